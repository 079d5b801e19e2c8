// TextTransformPlugin ("TextTransformAction"): applies one of seventeen text
// transforms to typed text, the clipboard, or the selection of the
// application in front, and shows the result, puts it on the clipboard, or
// pastes it back over the selection.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/models/checked.h>
#include <orla/platform/platform.h>

namespace orla {

enum class Transform {
  regexReplace = 0,
  uppercase,
  lowercase,
  titleCase,
  trimWhitespace,
  reverse,
  urlEncode,
  urlDecode,
  base64Encode,
  base64Decode,
  countCharacters,
  countWords,
  countLines,
  sortLines,
  removeDuplicates,
  prettifyJSON,
  regexExtract,
};

inline constexpr std::array<Transform, 17> allTransforms = {
    Transform::regexReplace,    Transform::uppercase,      Transform::lowercase,    Transform::titleCase,
    Transform::trimWhitespace,  Transform::reverse,        Transform::urlEncode,    Transform::urlDecode,
    Transform::base64Encode,    Transform::base64Decode,   Transform::countCharacters, Transform::countWords,
    Transform::countLines,      Transform::sortLines,      Transform::removeDuplicates, Transform::prettifyJSON,
    Transform::regexExtract,
};

constexpr int rawValue(Transform t) { return static_cast<int>(t); }
std::optional<Transform> transformFromRawValue(std::int64_t raw);
// "Regex Find & Replace", "Uppercase", ...: the name in every message.
std::string_view title(Transform t);
constexpr bool usesPattern(Transform t) { return t == Transform::regexReplace || t == Transform::regexExtract; }
constexpr bool isCount(Transform t) {
  return t == Transform::countCharacters || t == Transform::countWords || t == Transform::countLines;
}

// Where the text to transform comes from.
struct Source {
  enum class Kind { input, selection, clipboard };
  Kind kind;
  // The typed text, for `input` only: a view into the action's parameters,
  // which may hold a whole file's text, so that it is never copied.
  std::string_view text;
  friend bool operator==(const Source& a, const Source& b) {
    return a.kind == b.kind && (a.kind != Kind::input || a.text == b.text);
  }
};

// Why a transform could not be made; its message is the sentence shown.
using TransformError = Failure;

class TextTransformPlugin : public PluginBase<TextTransformPlugin> {
 public:
  static constexpr std::string_view pluginClass = "TextTransformAction";

  TextTransformPlugin();
  explicit TextTransformPlugin(std::shared_ptr<Platform> platform);

  static std::optional<Transform> resolvedTransform(const ActionData& data);
  static Source source(const ActionData& data);
  // Whether the action copies the selection and pastes the result over it.
  static bool replacesSelection(const ActionData& data);

  // The text transformed as the action says; sorting follows the current
  // locale of `Platform::current()` unless one is given.
  static Checked<std::string> transform(std::string_view text, const ActionData& data);
  static Checked<std::string> transform(std::string_view text, const ActionData& data, std::string_view locale);
  static Checked<std::string> apply(Transform transform, std::string_view text, std::string_view pattern,
                                    std::string_view replacement);
  static Checked<std::string> apply(Transform transform, std::string_view text, std::string_view pattern,
                                    std::string_view replacement, std::string_view locale);

  std::optional<std::string> validate(const ActionData& data) const override;
  bool requiresAccessibility(const ActionData& data) const override { return replacesSelection(data); }
  PluginResult execute(const ActionData& data) override;

 private:
  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
