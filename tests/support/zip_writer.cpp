#include "tests/support/zip_writer.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace orla::testing {

namespace {

std::uint32_t crc32(const std::string& bytes) {
  static const auto table = [] {
    std::array<std::uint32_t, 256> t{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  std::uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char b : bytes) crc = table[(crc ^ b) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

void put16(std::string& out, std::uint32_t v) {
  out += static_cast<char>(v & 0xFF);
  out += static_cast<char>((v >> 8) & 0xFF);
}

void put32(std::string& out, std::uint32_t v) {
  put16(out, v & 0xFFFF);
  put16(out, v >> 16);
}

}  // namespace

void writeZip(const std::string& path, const std::vector<ZipEntry>& entries) {
  std::string body, directory;
  for (const ZipEntry& entry : entries) {
    const std::uint32_t crc = crc32(entry.content);
    const auto size = static_cast<std::uint32_t>(entry.content.size());
    const auto offset = static_cast<std::uint32_t>(body.size());
    std::uint32_t mode = 0100644;
    if (entry.kind == ZipEntry::Kind::folder) mode = 040755;
    if (entry.kind == ZipEntry::Kind::symlink) mode = 0120777;

    put32(body, 0x04034b50);
    put16(body, 10);      // version needed
    put16(body, 0);       // flags
    put16(body, 0);       // stored
    put16(body, 0);       // time
    put16(body, 0x21);    // date: 1980-01-01
    put32(body, crc);
    put32(body, size);
    put32(body, size);
    put16(body, static_cast<std::uint32_t>(entry.name.size()));
    put16(body, 0);
    body += entry.name;
    body += entry.content;

    put32(directory, 0x02014b50);
    put16(directory, (3u << 8) | 30);  // made on Unix, version 3.0
    put16(directory, 10);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0x21);
    put32(directory, crc);
    put32(directory, size);
    put32(directory, size);
    put16(directory, static_cast<std::uint32_t>(entry.name.size()));
    put16(directory, 0);  // extra
    put16(directory, 0);  // comment
    put16(directory, 0);  // disk
    put16(directory, 0);  // internal attributes
    put32(directory, mode << 16);
    put32(directory, offset);
    directory += entry.name;
  }
  std::string end;
  put32(end, 0x06054b50);
  put16(end, 0);
  put16(end, 0);
  put16(end, static_cast<std::uint32_t>(entries.size()));
  put16(end, static_cast<std::uint32_t>(entries.size()));
  put32(end, static_cast<std::uint32_t>(directory.size()));
  put32(end, static_cast<std::uint32_t>(body.size()));
  put16(end, 0);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) throw std::runtime_error("cannot write " + path);
  file << body << directory << end;
}

}  // namespace orla::testing
