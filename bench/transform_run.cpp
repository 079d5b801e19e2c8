// A command-line runner of one transform over one file, for timing side by
// side with the standard tools (bench/transforms_vs_tools.sh):
//
//   orla_transform_run --corpus DIR [BYTES]   writes the benchmark texts to DIR
//   orla_transform_run TRANSFORM FILE [PATTERN [REPLACEMENT]]
//                                             writes FILE transformed to stdout
//
// It maps the file, applies the transform as the action does, and writes
// the result: the same work as `base64 FILE` or `sort -f FILE`.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include "bench/corpus.h"
#include "bench/transform_inputs.h"
#include "plugins/text/text_transform_plugin.h"
#include "plugins/text/text_transforms.h"

namespace {

int writeCorpora(const std::string& folder, std::size_t bytes) {
  using orla::bench::Corpus;
  for (Corpus corpus : {Corpus::english, Corpus::nonAscii, Corpus::json, Corpus::lines}) {
    const std::string text = orla::bench::makeCorpus(corpus, bytes);
    std::ofstream(folder + "/" + std::string(orla::bench::name(corpus)) + ".txt", std::ios::binary) << text;
    if (corpus == Corpus::english || corpus == Corpus::nonAscii) {
      const auto b64 = orla::bench::makeInput(orla::Transform::base64Decode, corpus, text);
      std::ofstream(folder + "/" + std::string(orla::bench::name(corpus)) + ".b64", std::ios::binary) << b64.text;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "--corpus") == 0)
    return writeCorpora(argv[2], argc >= 4 ? std::stoull(argv[3]) : std::size_t{64} << 20);
  if (argc < 3) {
    std::cerr << "usage: orla_transform_run TRANSFORM FILE [PATTERN [REPLACEMENT]] | --corpus DIR [BYTES]\n";
    return 2;
  }
  const auto transform = orla::bench::transformNamed(argv[1]);
  if (!transform) {
    std::cerr << "orla_transform_run: no transform named " << argv[1] << "\n";
    return 2;
  }
  // The file is mapped, not copied: the tools read it through a small
  // buffer, and a copy would add its page faults to our time.
  const int fd = ::open(argv[2], O_RDONLY);
  struct stat info {};
  if (fd < 0 || ::fstat(fd, &info) != 0) {
    std::cerr << "orla_transform_run: cannot read " << argv[2] << "\n";
    return 2;
  }
  const auto size = static_cast<std::size_t>(info.st_size);
  void* mapped = size ? ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0) : nullptr;
  if (size && mapped == MAP_FAILED) {
    std::cerr << "orla_transform_run: cannot map " << argv[2] << "\n";
    return 2;
  }
  const std::string_view text(static_cast<const char*>(mapped), size);
  auto result = orla::TextTransformPlugin::apply(*transform, text, argc > 3 ? argv[3] : "", argc > 4 ? argv[4] : "",
                                                 "en_US");
  if (!result) {
    std::cerr << result.error() << "\n";
    return 1;
  }
  std::fwrite(result.value().data(), 1, result.value().size(), stdout);
  std::fputc('\n', stdout);
  return 0;
}
