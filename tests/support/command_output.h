// What a shell command prints, for tests that check an effect from the
// other side (pactl, secret-tool, ...).
#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace orla::testing {

inline std::string outputOf(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    std::array<char, 256> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe)) out += buffer.data();
    pclose(pipe);
  }
  return out;
}

}  // namespace orla::testing
