// The texts the transform benchmarks run on, made the same way every time so
// that the Google Benchmark figures and the side-by-side tool timings see
// the same bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orla::bench {

enum class Corpus {
  english,   // sentences of common English words, about 80 characters a line
  nonAscii,  // German, French, Russian, Greek, Chinese, Japanese, emoji sequences, combining marks
  json,      // one minified JSON array of records
  lines,     // one short entry per line, a third of them repeated, mixed case
};

std::string_view name(Corpus corpus);
// About `bytes` bytes of the corpus, cut at a line (or, for JSON, a record)
// boundary so that it stays well formed.
std::string makeCorpus(Corpus corpus, std::size_t bytes);

}  // namespace orla::bench
