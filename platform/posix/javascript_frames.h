// The framing on the pipes between the host and its JavaScript worker: each
// message is one JSON object, preceded by its length as four bytes, least
// significant first. Both sides link this, so it stays free of the rest of
// the platform layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orla::javascript_frames {

// Larger than the largest honest message (a million characters of result or
// input, at most four bytes each, plus a console), so a frame above it can
// only come from a broken peer.
inline constexpr std::size_t kMaxFrame = std::size_t{16} << 20;

inline std::string encode(std::string_view payload) {
  std::string frame;
  frame.reserve(payload.size() + 4);
  const auto size = static_cast<std::uint32_t>(payload.size());
  for (int shift = 0; shift < 32; shift += 8) frame.push_back(static_cast<char>((size >> shift) & 0xff));
  frame.append(payload);
  return frame;
}

// Collects bytes as they arrive and hands out whole frames.
class Decoder {
 public:
  void append(std::string_view bytes) { buffer_.append(bytes); }
  // The next whole frame's payload, if one has arrived. Sets `broken` for a
  // frame over the limit.
  std::optional<std::string> next() {
    if (buffer_.size() < 4) return std::nullopt;
    std::uint32_t size = 0;
    for (int i = 0; i < 4; ++i) size |= static_cast<std::uint32_t>(static_cast<unsigned char>(buffer_[i])) << (8 * i);
    if (size > kMaxFrame) {
      broken_ = true;
      return std::nullopt;
    }
    if (buffer_.size() < 4 + std::size_t{size}) return std::nullopt;
    std::string payload = buffer_.substr(4, size);
    buffer_.erase(0, 4 + std::size_t{size});
    return payload;
  }
  bool broken() const { return broken_; }

 private:
  std::string buffer_;
  bool broken_ = false;
};

}  // namespace orla::javascript_frames
