#include <orla/models/utf8.h>

#include <gtest/gtest.h>
#include <unicode/utf8.h>

#include <random>
#include <string>
#include <vector>

namespace orla {
namespace {

// ICU's reading of the same bytes: every sequence must decode to a scalar
// value (surrogates and overlong forms are ill-formed).
bool icuAccepts(std::string_view bytes) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const int32_t length = static_cast<int32_t>(bytes.size());
  for (int32_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0) return false;
  }
  return true;
}

struct Sequence {
  const char* name;
  std::string bytes;
  bool valid;
};

const std::vector<Sequence>& sequences() {
  static const std::vector<Sequence> all = {
      {"two-byte é", "\xC3\xA9", true},
      {"three-byte €", "\xE2\x82\xAC", true},
      {"four-byte emoji", "\xF0\x9F\x98\x80", true},
      {"last scalar value", "\xF4\x8F\xBF\xBF", true},
      {"first three-byte", "\xE0\xA0\x80", true},
      {"last before surrogates", "\xED\x9F\xBF", true},
      {"first after surrogates", "\xEE\x80\x80", true},
      {"first four-byte", "\xF0\x90\x80\x80", true},
      {"lone continuation", "\x80", false},
      {"two continuations", "\x80\xBF", false},
      {"lead then ASCII", "\xC3" "a", false},
      {"lead at the end", "\xC3", false},
      {"three-byte cut short", "\xE2\x82", false},
      {"four-byte cut short", "\xF0\x9F\x98", false},
      {"overlong two-byte", "\xC0\xAF", false},
      {"overlong C1", "\xC1\xBF", false},
      {"overlong three-byte", "\xE0\x9F\xBF", false},
      {"overlong four-byte", "\xF0\x8F\xBF\xBF", false},
      {"surrogate", "\xED\xA0\x80", false},
      {"last surrogate", "\xED\xBF\xBF", false},
      {"above U+10FFFF", "\xF4\x90\x80\x80", false},
      {"F5 lead", "\xF5\x80\x80\x80", false},
      {"FF byte", "\xFF", false},
      {"too many continuations", "\xC3\xA9\xA9", false},
      {"four-byte with three continuations after", "\xF0\x9F\x98\x80\x80", false},
      {"two leads", "\xE2\xE2\x82\xAC", false},
  };
  return all;
}

// Every sequence at every offset across the first block edges of either
// vector width (32 and 64 bytes), between ASCII and between other valid
// characters, in texts long enough for the vector paths: errors at block
// edges are where such code goes wrong.
TEST(Utf8, SequencesAtEveryOffsetAndLength) {
  for (const Sequence& sequence : sequences()) {
    for (const std::string& filler : {std::string("a"), std::string("\xC3\xA9"), std::string("\xE2\x82\xAC")}) {
      for (std::size_t offset = 0; offset < 134; ++offset) {
        for (std::size_t after : {0u, 1u, 40u, 97u}) {
          std::string text;
          while (text.size() < offset) text += filler;
          text += sequence.bytes;
          const std::size_t end = text.size() + after;
          while (text.size() < end) text += filler;
          ASSERT_EQ(isValidUtf8(text), sequence.valid)
              << sequence.name << " at " << offset << " with " << after << " bytes after, filler " << filler.size();
        }
      }
    }
  }
}

// Random mixes of valid characters with single-byte damage, against ICU.
TEST(Utf8, AgreesWithIcuOnDamagedText) {
  const std::vector<std::string> pieces = {"a", " ", "\n", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                           "\xE4\xB8\xAD", "\xCC\x81", "\xE2\x80\x8D"};
  std::mt19937 random(7);
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    const std::size_t length = random() % 300;
    while (text.size() < length) text += pieces[random() % pieces.size()];
    if (!text.empty() && round % 2 == 0) text[random() % text.size()] = static_cast<char>(random() & 0xFF);
    if (!text.empty() && round % 5 == 0) text.resize(random() % text.size());
    ASSERT_EQ(isValidUtf8(text), icuAccepts(text)) << "round " << round;
  }
}

TEST(Utf8, WithoutPartialLastCharacter) {
  const struct {
    std::string bytes;
    std::string kept;
  } cases[] = {
      {"abc", "abc"},
      {"ab\xC3", "ab"},
      {"ab\xC3\xA9", "ab\xC3\xA9"},
      {"\xF0\x9F\x98", ""},
      {"x\xF0\x9F\x98\x80", "x\xF0\x9F\x98\x80"},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(withoutPartialLastCharacter(c.bytes), c.kept);
}

}  // namespace
}  // namespace orla
