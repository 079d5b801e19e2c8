// What each transform is fed in the benchmarks: the corpus itself, or for
// the decoding transforms the corpus encoded first (Base64 wrapped at 76
// columns as the base64 tool writes it), with a pattern for the regular
// expressions.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "bench/corpus.h"
#include "plugins/text/text_transform_plugin.h"

namespace orla::bench {

struct TransformInput {
  std::string text;
  std::string pattern;
  std::string replacement;
};

// Whether the benchmark runs `transform` on `corpus` (JSON is prettified
// only from the JSON document).
bool applies(Transform transform, Corpus corpus);
// "base64Encode", "sortLines", ...
std::string_view shortName(Transform transform);
std::optional<Transform> transformNamed(std::string_view name);
TransformInput makeInput(Transform transform, Corpus corpus, const std::string& text);

class TransformInputs {
 public:
  const TransformInput& get(Transform transform, Corpus corpus, std::size_t bytes);

 private:
  std::mutex mutex_;
  std::map<std::pair<Corpus, std::size_t>, std::string> corpora_;
  std::map<std::tuple<Transform, Corpus, std::size_t>, TransformInput> inputs_;
};

}  // namespace orla::bench
