#include "bench/transform_inputs.h"

#include <array>

#include "plugins/text/text_transforms.h"

namespace orla::bench {

namespace {

constexpr std::array<std::string_view, 17> kShortNames = {
    "regexReplace", "uppercase",    "lowercase",       "titleCase",  "trimWhitespace", "reverse",
    "urlEncode",    "urlDecode",    "base64Encode",    "base64Decode", "countCharacters", "countWords",
    "countLines",   "sortLines",    "removeDuplicates", "prettifyJSON", "regexExtract"};

}  // namespace

bool applies(Transform transform, Corpus corpus) {
  return transform != Transform::prettifyJSON || corpus == Corpus::json;
}

std::string_view shortName(Transform transform) { return kShortNames[static_cast<std::size_t>(rawValue(transform))]; }

std::optional<Transform> transformNamed(std::string_view name) {
  for (Transform t : allTransforms)
    if (shortName(t) == name) return t;
  return std::nullopt;
}

TransformInput makeInput(Transform transform, Corpus corpus, const std::string& text) {
  TransformInput input;
  switch (transform) {
    case Transform::base64Decode: {
      const std::string encoded = transforms::base64Encode(text);
      input.text.reserve(encoded.size() + encoded.size() / 76 + 1);
      for (std::size_t at = 0; at < encoded.size(); at += 76) {
        input.text.append(encoded, at, 76);
        input.text += '\n';
      }
      break;
    }
    case Transform::urlDecode: input.text = transforms::urlEncode(text); break;
    default: input.text = text;
  }
  if (transform == Transform::regexReplace) {
    input.pattern = corpus == Corpus::json ? "\"id\":(\\d+)" : "\\b(the|and|of|Grace)\\b";
    input.replacement = corpus == Corpus::json ? "\"id\":\"$1\"" : "<$1>";
  } else if (transform == Transform::regexExtract) {
    // The last line's first word: the matcher walks the whole text.
    input.pattern = "[^\\n]+\\n?\\z";
  }
  return input;
}

const TransformInput& TransformInputs::get(Transform transform, Corpus corpus, std::size_t bytes) {
  std::lock_guard lock(mutex_);
  const auto key = std::tuple{transform, corpus, bytes};
  if (auto it = inputs_.find(key); it != inputs_.end()) return it->second;
  auto& text = corpora_[{corpus, bytes}];
  if (text.empty()) text = makeCorpus(corpus, bytes);
  return inputs_.emplace(key, makeInput(transform, corpus, text)).first->second;
}

}  // namespace orla::bench
