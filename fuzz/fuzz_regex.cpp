// The regex transforms under their time limit: a pattern, a text and a
// replacement from one input; any of them ends in a result or a sentence.
// The text is also searched in windows of a few bytes, which must find
// what one window over the whole text finds.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_input.h"
#include "plugins/text/text_transforms.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = orla::fuzz::split(data, size, 3);
  const auto whole = orla::transforms::regexReplace(parts[1], parts[0], parts[2]);
  const auto windowed = orla::transforms::regexReplace(parts[1], parts[0], parts[2], 1 + size % 7);
  // Only answers both reached: where the time limit stops a search depends
  // on how much of it was repeated.
  if (whole && windowed && whole.value() != windowed.value()) std::abort();
  (void)orla::transforms::regexExtract(parts[1], parts[0]);
  return 0;
}
