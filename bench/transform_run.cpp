// A command-line runner of one transform over one file, for timing side by
// side with the standard tools (bench/transforms_vs_tools.sh):
//
//   orla_transform_run --corpus DIR [BYTES]   writes the benchmark texts to DIR
//   orla_transform_run TRANSFORM FILE [PATTERN [REPLACEMENT]]
//                                             writes FILE transformed to stdout
//
// It reads the file, applies the transform as the action does, and writes
// the result: the same work as `base64 FILE` or `sort -f FILE`.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
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
    if (corpus == Corpus::english) {
      const auto b64 = orla::bench::makeInput(orla::Transform::base64Decode, corpus, text);
      std::ofstream(folder + "/english.b64", std::ios::binary) << b64.text;
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
  std::ifstream file(argv[2], std::ios::binary);
  if (!file) {
    std::cerr << "orla_transform_run: cannot read " << argv[2] << "\n";
    return 2;
  }
  std::string text;
  file.seekg(0, std::ios::end);
  text.resize(static_cast<std::size_t>(file.tellg()));
  file.seekg(0);
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
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
