// The URL parser and the file-URL helpers: a parsed URL keeps its text,
// and a path turned into a file URL comes back as the same path.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <orla/models/url.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (auto parsed = orla::parseURL(text); parsed && parsed->text.empty() && !text.empty()) std::abort();
  (void)orla::filePathFromURL(text);
  if (!text.empty() && text.front() == '/' && text.find('\0') == std::string::npos) {
    const std::string url = orla::fileURLFromPath(text);
    auto back = orla::filePathFromURL(url);
    if (!back || *back != text) {
      std::fprintf(stderr, "path %s gave %s, which read back as %s\n", text.c_str(), url.c_str(),
                   back ? back->c_str() : "nothing");
      std::abort();
    }
  }
  return 0;
}
