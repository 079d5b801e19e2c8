// Base64: whatever decodes, encodes back to a text that decodes to the same
// bytes; encoding any bytes decodes back to them.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <orla/models/base64.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (bool lenient : {false, true}) {
    if (auto bytes = orla::base64DecodeToString(text, lenient)) {
      auto again = orla::base64DecodeToString(orla::base64Encode(*bytes));
      if (!again || *again != *bytes) std::abort();
    }
  }
  auto back = orla::base64DecodeToString(orla::base64Encode(text));
  if (!back || *back != text) std::abort();
  return 0;
}
