// The regex transforms under their time limit: a pattern, a text and a
// replacement from one input; any of them ends in a result or a sentence.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_input.h"
#include "plugins/text/text_transforms.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = orla::fuzz::split(data, size, 3);
  (void)orla::transforms::regexReplace(parts[1], parts[0], parts[2]);
  (void)orla::transforms::regexExtract(parts[1], parts[0]);
  return 0;
}
