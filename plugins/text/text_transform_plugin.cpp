#include "plugins/text/text_transform_plugin.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <charconv>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/input/typing_target.h"
#include "plugins/text/clipboard_mechanics.h"
#include "plugins/text/text_transforms.h"

namespace orla {

namespace {

struct TransformNames {
  std::string_view title;
  std::array<std::string_view, 5> names;  // accepted names after normalisation
};

constexpr std::array<TransformNames, 17> kTransforms = {{
    {"Regex Find & Replace", {"regex", "regexreplace", "regexfindreplace", "findreplace", "replace"}},
    {"Uppercase", {"uppercase", "upper"}},
    {"Lowercase", {"lowercase", "lower"}},
    {"Title Case", {"titlecase", "capitalize", "capitalized"}},
    {"Trim Whitespace", {"trim", "trimwhitespace"}},
    {"Reverse Text", {"reverse", "reversetext"}},
    {"URL Encode", {"urlencode"}},
    {"URL Decode", {"urldecode"}},
    {"Base64 Encode", {"base64encode", "base64"}},
    {"Base64 Decode", {"base64decode"}},
    {"Count Characters", {"countcharacters", "countchars", "characters"}},
    {"Count Words", {"countwords", "words"}},
    {"Count Lines", {"countlines", "lines"}},
    {"Sort Lines", {"sortlines", "sort"}},
    {"Remove Duplicates", {"removeduplicates", "removeduplicatelines", "unique", "uniq"}},
    {"Prettify JSON", {"prettifyjson", "json", "formatjson"}},
    {"Regex Extract", {"regexextract", "extract"}},
}};


std::optional<Transform> transformNamed(std::string_view name) {
  const std::string key = normalisedName(name);
  for (size_t raw = 0; raw < kTransforms.size(); ++raw)
    for (std::string_view accepted : kTransforms[raw].names)
      if (!accepted.empty() && accepted == key) return static_cast<Transform>(raw);
  std::int64_t raw = 0;
  const auto [end, ec] = std::from_chars(key.data(), key.data() + key.size(), raw);
  if (ec != std::errc() || end != key.data() + key.size() || key.empty()) return std::nullopt;
  return transformFromRawValue(raw);
}

// A Boolean parameter counts only as a Boolean or an integer.
std::optional<bool> switchValue(const ActionData& data, std::string_view key) { return readSwitch(data, {key}); }

// A string parameter counts only as a string; anything else reads as empty.
std::string stringValue(const ActionData& data, std::string_view key) {
  return readRawString(data, key).value_or(std::string());
}

// The same, as a view into `data`: for the text to transform, which may be
// a whole file.
std::string_view stringView(const ActionData& data, std::string_view key) {
  const AnyCodable* value = lookup(data, key);
  const std::string* text = value ? value->asString() : nullptr;
  return text ? std::string_view(*text) : std::string_view();
}

std::string currentLocale() { return Platform::current()->clock().locale(); }

}  // namespace

std::optional<Transform> transformFromRawValue(std::int64_t raw) {
  if (raw < 0 || raw >= static_cast<std::int64_t>(allTransforms.size())) return std::nullopt;
  return static_cast<Transform>(raw);
}

std::string_view title(Transform t) { return kTransforms[static_cast<size_t>(rawValue(t))].title; }

TextTransformPlugin::TextTransformPlugin() : TextTransformPlugin(Platform::current()) {}
TextTransformPlugin::TextTransformPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::optional<Transform> TextTransformPlugin::resolvedTransform(const ActionData& data) {
  // A number in "actionType" decides alone, even when it names nothing.
  if (const AnyCodable* type = lookup(data, "actionType"))
    if (auto raw = type->intValue()) return transformFromRawValue(*raw);
  const AnyCodable* named = lookup(data, "transform");
  if (!named) return std::nullopt;
  if (const std::string* name = named->asString(); name && !name->empty()) return transformNamed(*name);
  if (auto raw = named->intValue()) return transformFromRawValue(*raw);
  return std::nullopt;
}

bool TextTransformPlugin::replacesSelection(const ActionData& data) {
  if (auto paste = switchValue(data, "pasteAfter")) return *paste;
  if (auto clipboard = switchValue(data, "useClipboard")) return *clipboard;
  return true;
}

Source TextTransformPlugin::source(const ActionData& data) {
  if (switchValue(data, "useClipboard") == false) return {Source::Kind::input, stringView(data, "input")};
  return {replacesSelection(data) ? Source::Kind::selection : Source::Kind::clipboard, {}};
}

Checked<std::string> TextTransformPlugin::apply(Transform t, std::string_view text, std::string_view pattern,
                                                std::string_view replacement) {
  return apply(t, text, pattern, replacement, currentLocale());
}

Checked<std::string> TextTransformPlugin::apply(Transform t, std::string_view text, std::string_view pattern,
                                                std::string_view replacement, std::string_view locale) {
  using namespace transforms;
  if (usesPattern(t) && pattern.empty()) return fail("Enter a regular expression in the Regex pattern field.");
  switch (t) {
    case Transform::regexReplace: return regexReplace(text, pattern, replacement);
    case Transform::uppercase: return uppercase(text);
    case Transform::lowercase: return lowercase(text);
    case Transform::titleCase: return titleCase(text);
    case Transform::trimWhitespace: return trimWhitespace(text);
    case Transform::reverse: return reverse(text);
    case Transform::urlEncode: return urlEncode(text);
    case Transform::urlDecode: return urlDecode(text);
    case Transform::base64Encode: return transforms::base64Encode(text);
    case Transform::base64Decode: return transforms::base64Decode(text);
    case Transform::countCharacters: return std::to_string(countCharacters(text));
    case Transform::countWords: return std::to_string(countWords(text));
    case Transform::countLines: return std::to_string(countLines(text));
    case Transform::sortLines: return sortLines(text, locale);
    case Transform::removeDuplicates: return removeDuplicates(text);
    case Transform::prettifyJSON: return prettifyJSON(text);
    case Transform::regexExtract: return regexExtract(text, pattern);
  }
  return fail("Unknown text transform. Choose a transform from the menu.");
}

Checked<std::string> TextTransformPlugin::transform(std::string_view text, const ActionData& data) {
  return transform(text, data, currentLocale());
}

Checked<std::string> TextTransformPlugin::transform(std::string_view text, const ActionData& data,
                                                    std::string_view locale) {
  const auto t = resolvedTransform(data);
  if (!t) return fail("Unknown text transform. Choose a transform from the menu.");
  return apply(*t, text, stringValue(data, "pattern"), stringValue(data, "replacement"), locale);
}

std::optional<std::string> TextTransformPlugin::validate(const ActionData& data) const {
  const auto t = resolvedTransform(data);
  if (!t) {
    std::string named = "?";
    if (auto raw = lookup(data, "actionType") ? lookup(data, "actionType")->intValue() : std::nullopt)
      named = std::to_string(*raw);
    else if (auto name = readRawString(data, "transform"))
      named = *name;
    return "Unknown text transform " + named + ". Choose a transform from the menu.";
  }
  if (usesPattern(*t)) {
    const std::string pattern = stringValue(data, "pattern");
    if (pattern.empty())
      return *t == Transform::regexExtract
                 ? "Enter a regular expression in the Regex pattern field. The first match is extracted."
                 : "Enter a regular expression in the Regex pattern field (the Replacement may stay empty).";
    if (auto error = transforms::regexError(pattern, *t == Transform::regexReplace ? stringValue(data, "replacement")
                                                                                  : std::string()))
      return error;
  }
  const Source from = source(data);
  if (from.kind == Source::Kind::input && trimWhitespaceAndNewlines(from.text).empty())
    return "Type the text to transform in the box, or turn on \u201CUse clipboard as input\u201D.";
  return std::nullopt;
}

PluginResult TextTransformPlugin::execute(const ActionData& data) {
  if (auto message = validate(data)) return PluginResult::failure(*message);
  const auto t = resolvedTransform(data);
  if (!t) return PluginResult::failure("Unknown text transform");
  Platform& p = *platform_;
  ClipboardMechanics clipboard(p);
  const Source from = source(data);
  const bool replace = replacesSelection(data);
  const bool writeToClipboard = switchValue(data, "writeToClipboard").value_or(true);
  const std::string_view name = title(*t);

  std::optional<PasteboardSnapshot> saved;
  if (replace) {
    if (!p.accessibility().isProcessTrusted())
      return PluginResult::failure(
          "Accessibility permission is required to replace the selection (Orla sends \u2318C and \u2318V). Enable "
          "Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility, or turn off \u201CReplace "
          "current selection\u201D to transform the clipboard only.");
    if (!ensureTypingTarget(p))
      return PluginResult::failure(
          from.kind == Source::Kind::selection
              ? "No app to read the selection from. Click into the app with the text you want, then click Test again."
              : "No app to paste into. Click into the app with the text you want, then click Test again.");
    if (!writeToClipboard) saved = clipboard.snapshot();
  }

  // A failure while getting the text leaves the clipboard as it is. The
  // typed text is used where it stands; a copied one is kept in `copiedText`.
  std::string copiedText;
  std::string_view text;
  switch (from.kind) {
    case Source::Kind::input: text = from.text; break;
    case Source::Kind::clipboard: {
      auto current = clipboard.readText();
      if (!current || current->empty())
        return PluginResult::failure(
            "The clipboard has no text. Copy some text first, or turn off \u201CUse clipboard as input\u201D and "
            "type the text to transform.");
      copiedText = std::move(*current);
      text = copiedText;
      break;
    }
    case Source::Kind::selection: {
      CopiedSelection copied = clipboard.copySelection();
      switch (copied.outcome) {
        case CopiedSelection::Outcome::eventsFailed: return PluginResult::failure(std::string(kKeyEventsFailed));
        case CopiedSelection::Outcome::nothingCopied:
          return PluginResult::failure(
              "Nothing was copied. Select some text in the target app first (the app in front before you clicked "
              "Test), then try again.");
        case CopiedSelection::Outcome::notText:
          return PluginResult::failure(
              "The selection was copied but it is not text (an image or file). Orla can only transform text.");
        case CopiedSelection::Outcome::text: break;
      }
      if (copied.text.empty()) return PluginResult::failure("The selection is empty. Select some text first.");
      copiedText = std::move(copied.text);
      text = copiedText;
      break;
    }
  }

  auto result = transform(text, data, p.clock().locale());
  if (!result) {
    if (saved) (void)clipboard.restore(*saved);
    return PluginResult::failure(result.error());
  }

  if (!replace) {
    if (!writeToClipboard)
      return PluginResult::success(std::string(name) + " result:\n" + transforms::displayCut(*result));
    // The excerpt first: the result itself then goes to the clipboard
    // without a copy.
    std::string shown = std::string(name) + " result (now on the clipboard):\n" + transforms::displayCut(*result);
    if (auto written = clipboard.takeText(std::move(*result)); !written) return PluginResult::failure(written.error());
    return PluginResult::success(std::move(shown));
  }

  // A count replaces the selection with the number, on purpose.
  std::string shown;
  if (isCount(*t))
    shown = std::string(name) + ": " + *result + "\n(The number replaced the selection.)";
  else if (*result == text)
    shown = std::string(name) + ": the text was already in that form, nothing changed.\n" + transforms::displayCut(text);
  if (auto written = clipboard.takeText(std::move(*result)); !written) {
    if (saved) (void)clipboard.restore(*saved);
    return PluginResult::failure(written.error());
  }
  clipboard.wait(std::chrono::milliseconds(50));
  const Checked<void> pasted = clipboard.postCommandChord(key_codes::v);
  clipboard.wait(std::chrono::milliseconds(250));
  if (saved) (void)clipboard.restore(*saved);
  if (!pasted) return PluginResult::failure(pasted.error());
  return shown.empty() ? PluginResult::silentSuccess() : PluginResult::success(std::move(shown));
}

}  // namespace orla
