#include "models/base64.h"

#include <array>

namespace orla {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> makeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& v : table) v = -1;
  for (size_t i = 0; i < kAlphabet.size(); ++i)
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  return table;
}

constexpr auto kDecode = makeDecodeTable();

bool isSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

}  // namespace

std::string base64Encode(const Bytes& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const uint32_t n = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += kAlphabet[n & 63];
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    uint32_t n = bytes[i] << 16;
    if (rest == 2) n |= bytes[i + 1] << 8;
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::optional<Bytes> base64Decode(std::string_view text, bool ignoreInvalid) {
  Bytes out;
  out.reserve(text.size() / 4 * 3);
  uint32_t buffer = 0;
  int bits = 0;
  size_t symbols = 0;
  size_t padding = 0;
  for (char c : text) {
    if (c == '=') {
      ++padding;
      continue;
    }
    const int8_t value = kDecode[static_cast<unsigned char>(c)];
    if (value < 0) {
      if (ignoreInvalid || isSpace(c)) continue;
      return std::nullopt;
    }
    if (padding > 0 && !ignoreInvalid) return std::nullopt;  // data after padding
    ++symbols;
    buffer = (buffer << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<uint8_t>((buffer >> bits) & 0xFF));
    }
  }
  if (symbols % 4 == 1) return std::nullopt;
  if (!ignoreInvalid && padding > 0 && (symbols + padding) % 4 != 0) return std::nullopt;
  return out;
}

}  // namespace orla
