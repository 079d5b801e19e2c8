// The RTF reader: any text, with any nesting of groups and any control
// words, gives plain text or nothing, never a crash or a hang.
#include <cstdint>
#include <string_view>

#include "plugins/text/text_file_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  (void)orla::plainTextFromRtf(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
