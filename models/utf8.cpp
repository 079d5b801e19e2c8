#include <orla/models/utf8.h>

#include <array>
#include <cstdint>
#include <cstring>

// The vector check is built with GCC's target pragmas; other compilers keep
// the byte loop.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORLA_UTF8_AVX2 1
#include <immintrin.h>
#endif

namespace orla {

namespace {

bool isValidUtf8Scalar(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    // Eight ASCII bytes at a time: most text is mostly ASCII.
    if (i + 8 <= n) {
      std::uint64_t word;
      std::memcpy(&word, s + i, 8);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    const unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the second byte's range
    if (c >= 0xC2 && c <= 0xDF) length = 2;
    else if (c == 0xE0) length = 3, low = 0xA0;
    else if (c == 0xED) length = 3, high = 0x9F;  // no surrogates
    else if (c >= 0xE1 && c <= 0xEF) length = 3;
    else if (c == 0xF0) length = 4, low = 0x90;
    else if (c >= 0xF1 && c <= 0xF3) length = 4;
    else if (c == 0xF4) length = 4, high = 0x8F;  // nothing above U+10FFFF
    else return false;
    if (i + length > n || s[i + 1] < low || s[i + 1] > high) return false;
    for (size_t k = 2; k < length; ++k)
      if ((s[i + k] & 0xC0) != 0x80) return false;
    i += length;
  }
  return true;
}

#ifdef ORLA_UTF8_AVX2

// Everything down to the end of the vector check is built for AVX2 and only
// called when the processor has it. Its helpers pass vectors between
// themselves, inside this file only, so the ABI note about vector arguments
// does not apply.
#pragma GCC push_options
#pragma GCC target("avx2")
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

// The vector check classifies every byte by three 16-entry table lookups: the
// high and low nibble of the byte before it and the high nibble of the byte
// itself. Each table entry is a set of error kinds that pair of bytes could
// make; the three sets are ANDed, so an error kind survives only when all
// three agree. Continuations owed to a three- or four-byte lead two or three
// bytes back are checked separately, and a lead at the very end that is still
// owed continuations is an error when the text ends or the next block is
// ASCII. Pure ASCII blocks cost one test.
namespace vector_check {

constexpr uint8_t kTooShort = 1 << 0;    // a lead followed by ASCII or another lead
constexpr uint8_t kTooLong = 1 << 1;     // ASCII followed by a continuation
constexpr uint8_t kOverlong3 = 1 << 2;   // E0 80..9F
constexpr uint8_t kTooLarge = 1 << 3;    // F4 90.. and higher leads
constexpr uint8_t kSurrogate = 1 << 4;   // ED A0..BF
constexpr uint8_t kOverlong2 = 1 << 5;   // C0 or C1
constexpr uint8_t kTooLarge1000 = 1 << 6;  // F5.. 80..8F
constexpr uint8_t kOverlong4 = 1 << 6;   // F0 80..8F
constexpr uint8_t kTwoContinuations = 1 << 7;
constexpr uint8_t kCarry = kTooShort | kTooLong | kTwoContinuations;
constexpr uint8_t kLarge = kCarry | kTooLarge | kTooLarge1000;
constexpr uint8_t kContinuation = kTooLong | kOverlong2 | kTwoContinuations;

// The error kinds by the high nibble of the byte before, its low nibble, and
// the high nibble of the byte itself.
constexpr uint8_t kByte1High[16] = {
    kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTwoContinuations,
    kTwoContinuations, kTwoContinuations, kTwoContinuations, kTooShort | kOverlong2, kTooShort,
    kTooShort | kOverlong3 | kSurrogate, kTooShort | kTooLarge | kTooLarge1000 | kOverlong4};
constexpr uint8_t kByte1Low[16] = {
    kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry, kCarry, kCarry | kTooLarge, kLarge,
    kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge | kSurrogate, kLarge, kLarge};
constexpr uint8_t kByte2High[16] = {
    kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
    kContinuation | kOverlong3 | kTooLarge1000 | kOverlong4, kContinuation | kOverlong3 | kTooLarge,
    kContinuation | kSurrogate | kTooLarge, kContinuation | kSurrogate | kTooLarge, kTooShort, kTooShort, kTooShort,
    kTooShort};

inline __m256i table(const uint8_t (&entries)[16]) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

inline __m256i highNibbles(__m256i v) {
  return _mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi8(0x0F));
}

// The bytes of `input` moved up by N, with the last N bytes of `previous`
// shifted in at the bottom: the byte N before each byte.
template <int N>
inline __m256i before(__m256i input, __m256i previous) {
  return _mm256_alignr_epi8(input, _mm256_permute2x128_si256(previous, input, 0x21), 16 - N);
}

struct Checker {
  __m256i error;
  __m256i previous;
  __m256i previousIncomplete;

  Checker() : error(_mm256_setzero_si256()), previous(error), previousIncomplete(error) {}

  void block(__m256i input) {
    if (_mm256_movemask_epi8(input) == 0) {
      error = _mm256_or_si256(error, previousIncomplete);
      return;
    }
    const __m256i prev1 = before<1>(input, previous);
    const __m256i byte1High = _mm256_shuffle_epi8(table(kByte1High), highNibbles(prev1));
    const __m256i byte1Low = _mm256_shuffle_epi8(table(kByte1Low), _mm256_and_si256(prev1, _mm256_set1_epi8(0x0F)));
    const __m256i byte2High = _mm256_shuffle_epi8(table(kByte2High), highNibbles(input));
    const __m256i special = _mm256_and_si256(_mm256_and_si256(byte1High, byte1Low), byte2High);

    // Where a three- or four-byte lead two or three bytes back still owes a
    // continuation, bit 7 must be set, and only there.
    const __m256i third = _mm256_subs_epu8(before<2>(input, previous), _mm256_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m256i fourth = _mm256_subs_epu8(before<3>(input, previous), _mm256_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m256i owed = _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(static_cast<char>(0x80)));
    error = _mm256_or_si256(error, _mm256_xor_si256(owed, special));

    // A lead in the last three bytes that needs more bytes than are left.
    const __m256i limits = _mm256_setr_epi8(
        -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
        -1, -1, -1, static_cast<char>(0xF0 - 1), static_cast<char>(0xE0 - 1), static_cast<char>(0xC0 - 1));
    previousIncomplete = _mm256_subs_epu8(input, limits);
    previous = input;
  }

  // An error so far; a lead at the end of the last block may still be
  // completed by the next.
  bool failed() const { return _mm256_testz_si256(error, error) == 0; }

  bool valid() const {
    return _mm256_testz_si256(_mm256_or_si256(error, previousIncomplete),
                              _mm256_or_si256(error, previousIncomplete)) != 0;
  }
};

}  // namespace vector_check

bool isValidUtf8Avx2(std::string_view text) {
  vector_check::Checker checker;
  const char* p = text.data();
  std::size_t n = text.size();
  for (std::size_t blocks = 1; n >= 32; p += 32, n -= 32, ++blocks) {
    checker.block(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    // Stop early on bad text, every 8 KiB: a long binary clipboard need not
    // be read through.
    if (blocks % 256 == 0 && checker.failed()) return false;
  }
  if (n > 0) {
    alignas(32) char tail[32] = {};  // padded with ASCII, which ends nothing early
    std::memcpy(tail, p, n);
    checker.block(_mm256_load_si256(reinterpret_cast<const __m256i*>(tail)));
  }
  return checker.valid();
}

#pragma GCC diagnostic pop
#pragma GCC pop_options

// The same check 64 bytes at a time, where the processor has AVX-512 with
// byte permutes (which move the bytes before across the whole vector).
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vbmi")
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

namespace wide_check {

using namespace vector_check;

// The masked form spares GCC 12 a false warning about the unmasked one's
// undefined start.
inline __m512i table(const uint8_t (&entries)[16]) {
  return _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

inline __m512i highNibbles(__m512i v) { return _mm512_and_si512(_mm512_srli_epi16(v, 4), _mm512_set1_epi8(0x0F)); }

// The byte N before each byte of `input`, from `previous` for the first N.
template <int N>
inline __m512i before(__m512i input, __m512i previous) {
  alignas(64) static constexpr auto indexes = [] {
    std::array<uint8_t, 64> at{};
    for (int k = 0; k < 64; ++k) at[k] = static_cast<uint8_t>(k >= N ? k - N : 64 + 64 - N + k);
    return at;
  }();
  return _mm512_permutex2var_epi8(input, _mm512_load_si512(indexes.data()), previous);
}

struct Checker {
  __m512i error;
  __m512i previous;
  __m512i previousIncomplete;

  Checker() : error(_mm512_setzero_si512()), previous(error), previousIncomplete(error) {}

  void block(__m512i input) {
    if (_mm512_movepi8_mask(input) == 0) {
      error = _mm512_or_si512(error, previousIncomplete);
      return;
    }
    const __m512i prev1 = before<1>(input, previous);
    const __m512i byte1High = _mm512_shuffle_epi8(table(kByte1High), highNibbles(prev1));
    const __m512i byte1Low = _mm512_shuffle_epi8(table(kByte1Low), _mm512_and_si512(prev1, _mm512_set1_epi8(0x0F)));
    const __m512i byte2High = _mm512_shuffle_epi8(table(kByte2High), highNibbles(input));
    const __m512i special = _mm512_and_si512(_mm512_and_si512(byte1High, byte1Low), byte2High);
    const __m512i third = _mm512_subs_epu8(before<2>(input, previous), _mm512_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m512i fourth = _mm512_subs_epu8(before<3>(input, previous), _mm512_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m512i owed = _mm512_and_si512(_mm512_or_si512(third, fourth), _mm512_set1_epi8(static_cast<char>(0x80)));
    error = _mm512_or_si512(error, _mm512_xor_si512(owed, special));
    // A lead in the last three bytes that needs more bytes than are left.
    alignas(64) static constexpr auto limits = [] {
      std::array<uint8_t, 64> at{};
      at.fill(0xFF);
      at[61] = 0xF0 - 1;
      at[62] = 0xE0 - 1;
      at[63] = 0xC0 - 1;
      return at;
    }();
    previousIncomplete = _mm512_subs_epu8(input, _mm512_load_si512(limits.data()));
    previous = input;
  }

  bool failed() const { return _mm512_test_epi8_mask(error, error) != 0; }
  bool valid() const {
    const __m512i either = _mm512_or_si512(error, previousIncomplete);
    return _mm512_test_epi8_mask(either, either) == 0;
  }
};

}  // namespace wide_check

bool isValidUtf8Avx512(std::string_view text) {
  wide_check::Checker checker;
  const char* p = text.data();
  std::size_t n = text.size();
  for (std::size_t blocks = 1; n >= 64; p += 64, n -= 64, ++blocks) {
    checker.block(_mm512_loadu_si512(p));
    // Stop early on bad text, every 8 KiB, as above.
    if (blocks % 128 == 0 && checker.failed()) return false;
  }
  if (n > 0) {
    alignas(64) char tail[64] = {};  // padded with ASCII, which ends nothing early
    std::memcpy(tail, p, n);
    checker.block(_mm512_load_si512(tail));
  }
  return checker.valid();
}

#pragma GCC diagnostic pop
#pragma GCC pop_options

bool haveAvx512() {
  static const bool have = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                           __builtin_cpu_supports("avx512vbmi");
  return have;
}

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}

#endif

}  // namespace

bool isValidUtf8(std::string_view text) {
#ifdef ORLA_UTF8_AVX2
  // Short texts (names, keys, answers of a few words) stay on the byte loop.
  if (text.size() >= 128 && haveAvx512()) return isValidUtf8Avx512(text);
  if (text.size() >= 64 && haveAvx2()) return isValidUtf8Avx2(text);
#endif
  return isValidUtf8Scalar(text);
}

std::string_view withoutPartialLastCharacter(std::string_view bytes) {
  // Look back over at most three continuation bytes for the lead byte.
  std::size_t lead = bytes.size();
  for (std::size_t back = 1; back <= 4 && back <= bytes.size(); ++back) {
    const auto byte = static_cast<uint8_t>(bytes[bytes.size() - back]);
    if ((byte & 0xC0) != 0x80) {
      lead = bytes.size() - back;
      break;
    }
  }
  if (lead == bytes.size()) return bytes;
  const auto first = static_cast<uint8_t>(bytes[lead]);
  const std::size_t needed = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
  return bytes.size() - lead < needed ? bytes.substr(0, lead) : bytes;
}

}  // namespace orla
