#include <orla/models/base64.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ORLA_BASE64_AVX2 1
#include <immintrin.h>
#endif

namespace orla {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// 6-bit value of each alphabet byte; -1 for '=', -2 for white space, -3 for
// anything else.
constexpr std::array<int8_t, 256> makeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& v : table) v = -3;
  for (size_t i = 0; i < kAlphabet.size(); ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  table['='] = -1;
  for (unsigned char c : {' ', '\n', '\r', '\t'}) table[c] = -2;
  return table;
}
constexpr auto kDecode = makeDecodeTable();

// Two output characters for every 12 bits of input.
constexpr std::array<std::array<char, 2>, 4096> makePairTable() {
  std::array<std::array<char, 2>, 4096> table{};
  for (size_t i = 0; i < 4096; ++i) table[i] = {kAlphabet[i >> 6], kAlphabet[i & 63]};
  return table;
}
constexpr auto kPairs = makePairTable();

// The codecs work through the text in blocks that fit the first-level cache
// and append each block's output: a 64 MiB text is written once, not zeroed
// and then overwritten.
constexpr size_t kBlock = 48 * 1024;  // a multiple of 3 and of 24

// ---- Encoding ----

size_t encodeScalar(const unsigned char* in, size_t n, char* out) {
  size_t i = 0;
  char* o = out;
  for (; i + 3 <= n; i += 3, o += 4) {
    const uint32_t v = (uint32_t{in[i]} << 16) | (uint32_t{in[i + 1]} << 8) | in[i + 2];
    std::memcpy(o, kPairs[v >> 12].data(), 2);
    std::memcpy(o + 2, kPairs[v & 0xFFF].data(), 2);
  }
  return i;
}

#ifdef ORLA_BASE64_AVX2
// Encodes 24 input bytes into 32 characters per step (the reshuffle and
// multiply-shift of the known AVX2 method). Answers how many input bytes it
// consumed; the caller finishes the rest.
__attribute__((target("avx2"))) size_t encodeAvx2(const unsigned char* in, size_t n, char* out) {
  const __m256i shuffle = _mm256_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1,  //
                                          10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1);
  const __m256i shiftLut = _mm256_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                            '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0,
                                            'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                            '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  size_t i = 0;
  char* o = out;
  // Each step reads 28 bytes (two 16-byte loads 12 apart) and uses 24.
  for (; i + 28 <= n; i += 24, o += 32) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 12));
    __m256i v = _mm256_set_m128i(hi, lo);
    v = _mm256_shuffle_epi8(v, shuffle);
    const __m256i t0 = _mm256_and_si256(v, _mm256_set1_epi32(0x0fc0fc00));
    const __m256i t1 = _mm256_mulhi_epu16(t0, _mm256_set1_epi32(0x04000040));
    const __m256i t2 = _mm256_and_si256(v, _mm256_set1_epi32(0x003f03f0));
    const __m256i t3 = _mm256_mullo_epi16(t2, _mm256_set1_epi32(0x01000010));
    const __m256i indices = _mm256_or_si256(t1, t3);
    // 0..25 -> 13 ('A'), 26..51 -> 0 ('a' - 26), 52..61 -> 1..10, 62 -> 11, 63 -> 12
    __m256i reduced = _mm256_subs_epu8(indices, _mm256_set1_epi8(51));
    const __m256i less = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), indices);
    reduced = _mm256_or_si256(reduced, _mm256_and_si256(less, _mm256_set1_epi8(13)));
    const __m256i chars = _mm256_add_epi8(_mm256_shuffle_epi8(shiftLut, reduced), indices);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o), chars);
  }
  return i;
}

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}
#endif

std::string encode(const unsigned char* in, size_t n) {
  std::string out;
  out.reserve((n + 2) / 3 * 4);
  char buffer[kBlock / 3 * 4];
  for (size_t at = 0; at < n; at += kBlock) {
    const size_t length = std::min(kBlock, n - at);
    const unsigned char* block = in + at;
    size_t done = 0;
#ifdef ORLA_BASE64_AVX2
    if (haveAvx2()) done = encodeAvx2(block, length, buffer);
#endif
    done += encodeScalar(block + done, length - done, buffer + done / 3 * 4);
    char* o = buffer + done / 3 * 4;
    const size_t rest = length - done;  // only in the last block
    if (rest > 0) {
      uint32_t v = uint32_t{block[done]} << 16;
      if (rest == 2) v |= uint32_t{block[done + 1]} << 8;
      o[0] = kAlphabet[(v >> 18) & 63];
      o[1] = kAlphabet[(v >> 12) & 63];
      o[2] = rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
      o[3] = '=';
      o += 4;
    }
    out.append(buffer, static_cast<size_t>(o - buffer));
  }
  return out;
}

// ---- Decoding ----

// Copies the alphabet characters of `text` to `out`, dropping what may be
// skipped; answers how many were kept, or none when a character may not be
// skipped. '=' is kept for the padding check.
std::optional<size_t> compactScalar(const unsigned char* in, size_t n, char* out, bool ignoreInvalid) {
  size_t kept = 0;
  for (size_t i = 0; i < n; ++i) {
    const int8_t v = kDecode[in[i]];
    if (v >= -1) out[kept++] = static_cast<char>(in[i]);
    else if (v == -3 && !ignoreInvalid) return std::nullopt;
  }
  return kept;
}

#ifdef ORLA_BASE64_AVX2
__attribute__((target("avx2"))) std::optional<size_t> compactAvx2(const unsigned char* in, size_t n, char* out,
                                                                   bool ignoreInvalid) {
  size_t kept = 0, i = 0;
#define ORLA_IN_RANGE(v, lo, hi)                                                 \
  _mm256_and_si256(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(static_cast<char>((lo)-1))), \
                   _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>((hi) + 1)), v))
  for (; i + 32 <= n; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i ok = _mm256_or_si256(ORLA_IN_RANGE(v, 'A', 'Z'), ORLA_IN_RANGE(v, 'a', 'z'));
    ok = _mm256_or_si256(ok, ORLA_IN_RANGE(v, '0', '9'));
    ok = _mm256_or_si256(ok, _mm256_cmpeq_epi8(v, _mm256_set1_epi8('+')));
    ok = _mm256_or_si256(ok, _mm256_cmpeq_epi8(v, _mm256_set1_epi8('/')));
    ok = _mm256_or_si256(ok, _mm256_cmpeq_epi8(v, _mm256_set1_epi8('=')));
    const auto mask = static_cast<uint32_t>(_mm256_movemask_epi8(ok));
    if (mask == 0xFFFFFFFFu) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + kept), v);
      kept += 32;
      continue;
    }
    // A line break or two in the block: copy the runs between them.
    uint32_t bad = ~mask;
    size_t start = 0;
    while (bad) {
      const auto pos = static_cast<size_t>(__builtin_ctz(bad));
      if (!ignoreInvalid && kDecode[in[i + pos]] == -3) return std::nullopt;
      std::memcpy(out + kept, in + i + start, pos - start);
      kept += pos - start;
      start = pos + 1;
      bad &= bad - 1;
    }
    std::memcpy(out + kept, in + i + start, 32 - start);
    kept += 32 - start;
  }
#undef ORLA_IN_RANGE
  auto rest = compactScalar(in + i, n - i, out + kept, ignoreInvalid);
  if (!rest) return std::nullopt;
  return kept + *rest;
}

// Decodes 32 clean alphabet characters into 24 bytes per step (the
// nibble-lookup translation and multiply-add packing of the known AVX2
// method). Answers how many characters it consumed.
__attribute__((target("avx2"))) size_t decodeAvx2(const char* in, size_t n, unsigned char* out) {
  const __m256i shiftLut = _mm256_setr_epi8(0, 0, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                            0, 0, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m256i pack = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                        2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, -1, -1);
  size_t i = 0;
  unsigned char* o = out;
  // Each step writes 32 bytes of which 24 count, so it stops 8 short.
  for (; i + 32 <= n; i += 32, o += 24) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const __m256i high = _mm256_and_si256(_mm256_srli_epi32(v, 4), _mm256_set1_epi8(0x0f));
    const __m256i slash = _mm256_cmpeq_epi8(v, _mm256_set1_epi8('/'));
    const __m256i shift = _mm256_blendv_epi8(_mm256_shuffle_epi8(shiftLut, high), _mm256_set1_epi8(16), slash);
    const __m256i values = _mm256_add_epi8(v, shift);
    const __m256i merged = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    __m256i bytes = _mm256_madd_epi16(merged, _mm256_set1_epi32(0x00011000));
    bytes = _mm256_shuffle_epi8(bytes, pack);
    bytes = _mm256_permutevar8x32_epi32(bytes, lanes);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(o), bytes);
  }
  return i;
}
#endif

// Decodes clean alphabet characters, four at a time.
void decodeScalar(const char* in, size_t n, unsigned char* out) {
  size_t i = 0;
  unsigned char* o = out;
  for (; i + 4 <= n; i += 4, o += 3) {
    const uint32_t v = (uint32_t(kDecode[static_cast<unsigned char>(in[i])]) << 18) |
                       (uint32_t(kDecode[static_cast<unsigned char>(in[i + 1])]) << 12) |
                       (uint32_t(kDecode[static_cast<unsigned char>(in[i + 2])]) << 6) |
                       uint32_t(kDecode[static_cast<unsigned char>(in[i + 3])]);
    o[0] = static_cast<unsigned char>(v >> 16);
    o[1] = static_cast<unsigned char>(v >> 8);
    o[2] = static_cast<unsigned char>(v);
  }
  if (n - i >= 2) {
    uint32_t v = (uint32_t(kDecode[static_cast<unsigned char>(in[i])]) << 18) |
                 (uint32_t(kDecode[static_cast<unsigned char>(in[i + 1])]) << 12);
    if (n - i == 3) v |= uint32_t(kDecode[static_cast<unsigned char>(in[i + 2])]) << 6;
    o[0] = static_cast<unsigned char>(v >> 16);
    if (n - i == 3) o[1] = static_cast<unsigned char>(v >> 8);
  }
}

// Decodes clean characters into `out`, answering how many bytes it wrote.
size_t decodeClean(const char* clean, size_t symbols, unsigned char* out) {
  size_t done = 0;
#ifdef ORLA_BASE64_AVX2
  if (haveAvx2()) done = decodeAvx2(clean, symbols, out);
#endif
  decodeScalar(clean + done, symbols - done, out + done / 4 * 3);
  return symbols / 4 * 3 + (symbols % 4 == 0 ? 0 : symbols % 4 - 1);
}

std::optional<std::string> decode(std::string_view text, bool ignoreInvalid) {
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  std::string out;
  out.reserve(n / 4 * 3 + 3);
  // Clean characters of the current block, after the 0 to 3 left over from
  // the one before; the decoded bytes, with room for the vector loop's
  // overshoot.
  char clean[kBlock + 4];
  unsigned char bytes[kBlock / 4 * 3 + 32];
  size_t carry = 0;
  size_t padding = 0;
  for (size_t at = 0; at < n; at += kBlock) {
    const size_t length = std::min(kBlock, n - at);
    std::optional<size_t> kept;
#ifdef ORLA_BASE64_AVX2
    if (haveAvx2()) kept = compactAvx2(in + at, length, clean + carry, ignoreInvalid);
    else
#endif
      kept = compactScalar(in + at, length, clean + carry, ignoreInvalid);
    if (!kept) return std::nullopt;
    size_t total = carry + *kept;
    // Padding ends the data: only more padding (two at most) may follow.
    if (const void* pad = padding ? clean + carry : std::memchr(clean + carry, '=', *kept)) {
      const auto first = static_cast<size_t>(static_cast<const char*>(pad) - clean);
      for (size_t k = first; k < total; ++k)
        if (clean[k] != '=') return std::nullopt;
      padding += total - first;
      if (padding > 2) return std::nullopt;
      total = first;
    }
    const size_t whole = total / 4 * 4;
    out.append(reinterpret_cast<const char*>(bytes), decodeClean(clean, whole, bytes));
    carry = total - whole;
    std::memmove(clean, clean + whole, carry);
  }
  if (carry == 1) return std::nullopt;
  if (padding > 0 && (carry + padding) % 4 != 0) return std::nullopt;
  out.append(reinterpret_cast<const char*>(bytes), decodeClean(clean, carry, bytes));
  return out;
}

}  // namespace

std::string base64Encode(std::string_view bytes) {
  return encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string base64Encode(const Bytes& bytes) { return encode(bytes.data(), bytes.size()); }

std::optional<std::string> base64DecodeToString(std::string_view text, bool ignoreInvalid) {
  return decode(text, ignoreInvalid);
}

std::optional<Bytes> base64Decode(std::string_view text, bool ignoreInvalid) {
  auto decoded = decode(text, ignoreInvalid);
  if (!decoded) return std::nullopt;
  return Bytes(decoded->begin(), decoded->end());
}

}  // namespace orla
