#include <orla/models/graphemes.h>

#include <gtest/gtest.h>
#include <unicode/utf8.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <orla/models/text.h>
#include "plugins/text/text_transforms.h"

namespace orla {
namespace {

std::string utf8(char32_t c) {
  std::string out;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

std::vector<std::uint32_t> walkerEnds(std::string_view text) {
  std::vector<std::uint32_t> ends;
  forEachGrapheme(text, [&](std::size_t, std::size_t end) {
    ends.push_back(static_cast<std::uint32_t>(end));
    return true;
  });
  return ends;
}

std::vector<std::uint32_t> icuEnds(std::string_view text) {
  std::vector<std::uint32_t> ends;
  graphemes_detail::complexBoundaries(text, ends);
  return ends;
}

// Runs of ICU's clusters whose first code point is not white space.
std::size_t icuWordCount(const std::string& text) {
  std::size_t words = 0, begin = 0;
  bool inWord = false;
  for (std::uint32_t end : icuEnds(text)) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    int32_t at = static_cast<int32_t>(begin);
    UChar32 c;
    U8_NEXT(s, at, static_cast<int32_t>(text.size()), c);
    const bool separator = c >= 0 && isWhitespaceOrNewline(static_cast<char32_t>(c));
    words += !separator && !inWord;
    inWord = !separator;
    begin = end;
  }
  return words;
}

// Every way the walker is used must agree with ICU's break iterator.
void expectSameAsIcu(const std::string& text) {
  const std::vector<std::uint32_t> expected = icuEnds(text);
  EXPECT_EQ(walkerEnds(text), expected) << testing::PrintToString(text);
  EXPECT_EQ(graphemeCount(text), expected.size()) << testing::PrintToString(text);
  EXPECT_EQ(transforms::countCharacters(text), expected.size()) << testing::PrintToString(text);
}

TEST(GraphemeWalker, AgreesWithTheUnicodeTestFileAndIcu) {
  // The conformance cases of the Unicode version the ICU here implements
  // (Debian's unicode-data).
  std::ifstream file("/usr/share/unicode/auxiliary/GraphemeBreakTest.txt");
  if (!file) GTEST_SKIP() << "GraphemeBreakTest.txt is not installed (Debian package unicode-data)";
  std::string line;
  int cases = 0, agreeWithFile = 0;
  while (std::getline(file, line)) {
    line = line.substr(0, line.find('#'));
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    std::istringstream fields(line);
    std::string token, text;
    std::vector<std::uint32_t> fileEnds;
    while (fields >> token) {
      if (token == "\u00F7") {
        if (!text.empty()) fileEnds.push_back(static_cast<std::uint32_t>(text.size()));
      } else if (token != "\u00D7") {
        text += utf8(static_cast<char32_t>(std::stoul(token, nullptr, 16)));
      }
    }
    ++cases;
    expectSameAsIcu(text);
    agreeWithFile += walkerEnds(text) == fileEnds;
  }
  EXPECT_GT(cases, 500);
  // ICU follows the rules the file tests; should it ever tailor one, the
  // walker follows ICU and this says by how much.
  EXPECT_EQ(agreeWithFile, cases);
}

TEST(GraphemeWalker, AgreesWithIcuOnTrickyCases) {
  const std::vector<std::string> cases = {
      "",
      "a",
      "\r\n",
      "\n\r",
      "\r\r\n\n",
      "e\u0301\u0302x",                        // two marks on one letter
      "\u0301a",                               // a mark with nothing before it
      "\r\u0301",                              // a mark after a control stands alone
      "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466",  // a family: one character
      "\U0001F44B\U0001F3FD",                  // a skin tone
      "\u2764\uFE0F",                          // a heart with its presentation selector
      "a\u200D\U0001F469",                     // a joiner after a letter joins nothing after it
      "\U0001F468\u0301\u200D\U0001F469",      // marks between the pictograph and the joiner
      "\U0001F1E9\U0001F1EA\U0001F1EF\U0001F1F5\U0001F1EB",  // two flags and half of one
      "a\U0001F1E9\U0001F1EA\U0001F1EF",
      "\U0001F1E9\u0301\U0001F1EA",
      "\u1100\u1161\u11A8",                    // jamo making one syllable
      "\uAC00\u11A8\u1100\uAC01\u11A8",        // syllables and trailing jamo
      "\u0915\u094D\u0937",                    // a conjunct
      "\u0915\u094D\u0937\u094D\u092E",          // two
      "\u0915\u093C\u094D\u200D\u0937",          // a nukta and a joiner inside one
      "\u0915\u0902\u094D\u0937",               // a mark without a combining class ends it
      "\u0915\u094D\u0BB7",                    // a consonant of another script does not join
      "\u0A95\u0ACD\u0AB7",                    // Gujarati
      "\u0D15\u0D4D\u0D37",                    // Malayalam
      "\u0600\u0661",                          // a prepended mark
      "\u0600\r",
      "\u0E01\u0E33",                          // Thai: a spacing mark
      "\xFF\xFE\u0301",                        // invalid bytes, each standing alone
      "\xE2\x82",                              // a cut-off character
      "\xE2\x82\u0301",
      "\xED\xA0\x80\u0301",                    // an encoded surrogate
      "\xF0\x9F\x98",
      "\xF4\x90\x80\x80",                      // above U+10FFFF
      "\xC0\xAF",                              // an overlong form
      "ab\U000E0100c",                         // a variation selector above the BMP
  };
  for (const std::string& text : cases) expectSameAsIcu(text);
}

// Code points of every grapheme class and from everywhere in the code
// space, mixed at random with invalid bytes: the walker must find the same
// boundaries as ICU in every mix.
TEST(GraphemeWalker, AgreesWithIcuOnRandomText) {
  using namespace graphemes_detail;
  std::mt19937 random(24);
  std::vector<std::vector<char32_t>> byClass(kClassCount);
  for (char32_t c = 0; c < 0x110000; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    auto& list = byClass[classOf(tables(), c)];
    if (list.size() < 4000 || random() % 64 == 0) list.push_back(c);
  }
  for (std::uint8_t cls = 0; cls < kClassCount; ++cls) ASSERT_FALSE(byClass[cls].empty()) << int(cls);
  const std::vector<std::string> invalid = {"\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\x80", "\xED\xA0\x80"};
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int length = 1 + static_cast<int>(random() % 24);
    for (int k = 0; k < length; ++k) {
      const unsigned pick = random() % 100;
      if (pick < 4) {
        text += invalid[random() % invalid.size()];
      } else if (pick < 12) {
        char32_t c = random() % 0x110000;
        if (c >= 0xD800 && c <= 0xDFFF) c = 0xFFFD;
        text += utf8(c);
      } else {
        const auto& list = byClass[random() % kClassCount];
        text += utf8(list[random() % list.size()]);
      }
    }
    expectSameAsIcu(text);
    if (HasFailure()) return;  // one counterexample is enough to read
  }
}

TEST(GraphemeWalker, AgreesWithIcuOnEveryConjunctPair) {
  using namespace graphemes_detail;
  std::vector<char32_t> consonants, viramas, joiners = {0x200D};
  for (char32_t c = 0; c < 0x20000; ++c) {
    const std::uint8_t cls = classOf(tables(), c);
    if (cls == gLinkingConsonant) consonants.push_back(c);
    if (cls == gVirama) viramas.push_back(c);
    if (cls == gExtendCombining && joiners.size() < 8) joiners.push_back(c);
  }
  ASSERT_GT(consonants.size(), 100u);
  ASSERT_GE(viramas.size(), 6u);
  for (char32_t virama : viramas)
    for (std::size_t k = 0; k < consonants.size(); ++k) {
      const char32_t first = consonants[k], second = consonants[(k * 7 + virama) % consonants.size()];
      expectSameAsIcu(utf8(first) + utf8(virama) + utf8(second));
      expectSameAsIcu(utf8(first) + utf8(joiners[k % joiners.size()]) + utf8(virama) + utf8(second));
      if (HasFailure()) return;
    }
}

// Words are runs of characters whose first code point is not white space:
// counted in one pass, they must match a count over ICU's clusters.
TEST(GraphemeWalker, WordsCountedInOnePassMatchIcuClusters) {
  const std::vector<std::string> pieces = {"a", "Wort", " ", "  ", "\t", "\r\n", "\r", "\n", "\u3000", "\u00A0", "\u2028",
                                           "\u0085", " \u0301", "\u0301", "\u200D", "日本", "e\u0301", "👨‍👩‍👧", "🇩🇪",
                                           "\u0600 ", "\u0915\u094D\u0937", "\xFF", "\xE2\x82", "\u1100\u1161", "x\u2003y"};
  std::mt19937 random(11);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int length = static_cast<int>(random() % 20);
    for (int k = 0; k < length; ++k) text += pieces[random() % pieces.size()];
    EXPECT_EQ(transforms::countWords(text), icuWordCount(text)) << testing::PrintToString(text);
    if (HasFailure()) return;
  }
}

// Long texts of mostly plain characters take the block count: it must stop
// exactly where a character that is not plain begins.
TEST(GraphemeWalker, LongTextsAgreeWithIcu) {
  const std::vector<std::string> plain = {"a", "word ", "Привет ", "日本語", "서울", "Καλη", "ü", "\n", "©"};
  const std::vector<std::string> other = {"e\u0301", "\r\n", "👍🏽", "🇩🇪", "こんにちは", "한", "\u2764\uFE0F", "\u0600x",
                                          "\u0915\u094D\u0937", "\u200D", "\xFF", "\xE2\x82"};
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const int length = 50 + static_cast<int>(random() % 400);
    for (int k = 0; k < length; ++k)
      text += random() % 12 == 0 ? other[random() % other.size()] : plain[random() % plain.size()];
    EXPECT_EQ(graphemeCount(text), icuEnds(text).size()) << testing::PrintToString(text);
    if (HasFailure()) return;
  }
}

// The 64-byte count flags joining code points (and white space, for words)
// from their first three bytes: every code point, at every position in a
// block, next to what it joins, must count as the state machine counts it.
TEST(GraphemeWalker, WideCountAgreesOnEveryCodePoint) {
  using namespace graphemes_detail;
  if (!wideCountAvailable()) GTEST_SKIP() << "this processor has no 64-byte byte permutes; the state machine counts alone";
  std::string text;
  for (char32_t c = 0x80; c < 0x110000; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    // Only the joining code points and white space must be flagged; of
    // the others, which may or may not be, a sample.
    const bool mustFlag = ((1u << classOf(tables(), c)) & ~((1u << gOther) | (1u << gLF) | (1u << gControl) | (1u << gLV) |
                                                            (1u << gLVT) | (1u << gPictographic) |
                                                            (1u << gLinkingConsonant))) != 0 ||
                          isWhitespaceOrNewline(c);
    if (!mustFlag && c % 61 != 0) continue;
    const std::string cp = utf8(c);
    const auto join = [](std::initializer_list<std::string_view> parts) {
      std::string out;
      for (std::string_view part : parts) out.append(part);
      return out;
    };
    for (const std::string& around : {join({"a", cp, cp, "a"}), join({"a", cp, "\n"}), join({"\r", cp, " ", cp, "\u0915"})}) {
      text.assign(60 + c % 67, 'x');
      text += around;
      text.append(c % 3 == 0 ? 70 : c % 5, 'y');
      for (bool words : {false, true})
        ASSERT_EQ(countWellFormed(text, words), countWellFormedByStateMachine(text, words))
            << std::hex << "U+" << static_cast<std::uint32_t>(c) << (words ? " words " : " characters ")
            << testing::PrintToString(around);
    }
  }
}

// Long random mixes of ordinary text and everything that joins or
// separates: the wide count, the walker and ICU agree.
TEST(GraphemeWalker, WideCountAgreesOnRandomMixes) {
  using namespace graphemes_detail;
  const std::vector<std::string> pieces = {
      "word ", "Grüße ", "Привет ", "日本語", "こんにちは", "カタカナ", "한국어 ", "\u1100\u1161\u11A8", "👍", "👋🏽",
      "👨‍👩‍👧‍👦", "🇩🇪", "🇯🇵🇺", "\u2764\uFE0F", "e\u0301", "a\u0308\u0301", "\u0600x", "\u0915\u094D\u0937",
      "\r\n", "\r", "\n", "\t", "  ", "\u00A0", "\u3000", "\u2003", "\u0085", "€", "№", "“quoted”", "\u200D",
      "\u200C", "ﬁ", "\U000E0020", "\u0483", "\U0001F3FB", "\U0001F1E6", "\u0301", "x", "o\u0302\u0323\u0301\u0300\u034F", "\u0600\u0301",
      "\n\u0301", "\x01\u0301", "\u0378\u0301", "ЙЙ"};
  std::mt19937 random(64);
  for (int round = 0; round < 400; ++round) {
    std::string text;
    const int length = 20 + static_cast<int>(random() % 300);
    for (int k = 0; k < length; ++k) text += pieces[random() % (random() % 4 == 0 ? pieces.size() : 9)];
    for (bool words : {false, true})
      ASSERT_EQ(countWellFormed(text, words), countWellFormedByStateMachine(text, words))
          << (words ? "words " : "characters ") << testing::PrintToString(text);
    ASSERT_EQ(countWellFormed(text, false), icuEnds(text).size()) << testing::PrintToString(text);
    ASSERT_EQ(countWellFormed(text, true), icuWordCount(text)) << testing::PrintToString(text);
    ASSERT_EQ(transforms::countWords(text), icuWordCount(text)) << testing::PrintToString(text);
    ASSERT_EQ(graphemeCount(text), icuEnds(text).size()) << testing::PrintToString(text);
  }
}

// The 64-byte count settles the common emoji sequences (selectors, skin
// tones, joiners between pictographs, flags) from the block's masks. Every
// shape, and the near misses the masks must leave to the state machine, at
// every position of two blocks, with what may follow; then cut at every
// byte near a block's end, malformed or not.
TEST(GraphemeWalker, WideCountSettlesEmojiSequencesAtEveryPosition) {
  using namespace graphemes_detail;
  if (!wideCountAvailable()) GTEST_SKIP() << "this processor has no 64-byte byte permutes; the state machine counts alone";
  const std::vector<std::string> shapes = {
      "👍🏽", "\u2764\uFE0F", "👨‍👩‍👧‍👦", "👨🏽‍💻", "👩‍❤️‍👨", "🏳️‍🌈", "👁️‍🗨️", "🏃‍♀️", "🇩🇪", "🇩🇪🇯🇵",
      "🇺🇸🇦", "\U0001F1E6", "x\uFE0F", " \uFE0F", "\n\uFE0F", "\r\uFE0F", "\u00AD\uFE0F", "\u200B\uFE0F",
      "\u3000\uFE0F", "\u1680\uFE0F", "\u2028\u200D👍", "👍\u200D", "👍\u200Da", "👍\u200D\u2764",
      "👍\u200D\U0001F1E6", "👍\u200D\U0001F3FB", "👍\u200D\uFE0F", "👍\u200D\u200D👍", "👍\uFE0F\uFE0F\u200D👍",
      "👍🏽\uFE0F\u200D👍", "👍\uFE0F\uFE0F\uFE0F\u200D👍", "a\u200D👍", "\u0915\u200D\u0937", "\u0915\u094D\u200D\u0937",
      "\u0600🇩🇪", "\u0600\uFE0F", "\u0600👍", "e\u0301\uFE0F", "e\u0301\u200D👍", "ﬁ", "ﬃ", "\uFB1E", "a\uFB1E",
      "\uFB1D\uFB1E", "🏴\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067\U000E007F", "👍\u200D\U000E0020",
      "\U0001F3FB\U0001F3FB", "\u1100\uFE0F", "한\uFE0F", "\uFEFF\uFE0F", "\U0001F004\u200D\U0001F004"};
  const std::vector<std::string> after = {"", "a", " ", "\u200D👍", "\uFE0F", "\U0001F1E9", "\u0301"};
  std::string text;
  for (const std::string& shape : shapes)
    for (std::size_t at = 0; at < 130; ++at)
      for (const std::string& next : after) {
        text.assign(at, 'x');
        text += shape;
        text += next;
        text.append(70 + at % 7, 'y');
        for (bool words : {false, true})
          ASSERT_EQ(countWellFormed(text, words), countWellFormedByStateMachine(text, words))
              << (words ? "words at " : "characters at ") << at << " " << testing::PrintToString(shape + next);
      }
  // Texts that end inside a sequence, at every byte, near the end of the
  // first block: malformed ones take the walk that reads invalid bytes.
  for (const std::string& shape : shapes)
    for (std::size_t at = 52; at < 68; ++at)
      for (std::size_t cut = 1; cut <= shape.size(); ++cut) {
        text.assign(at, 'x');
        text.append(shape, 0, cut);
        text.append(at % 2 == 0 ? 0 : 80, 'y');
        ASSERT_EQ(graphemeCount(text), icuEnds(text).size()) << at << " " << testing::PrintToString(text);
        ASSERT_EQ(transforms::countWords(text), icuWordCount(text)) << at << " " << testing::PrintToString(text);
      }
}

// Text of emoji sequences and other non-ASCII characters, ASCII only beside
// joiners: every block hands the next what it ended with, and sequences run
// across blocks at every offset.
TEST(GraphemeWalker, WideCountCarriesSequencesAcrossBlocks) {
  using namespace graphemes_detail;
  if (!wideCountAvailable()) GTEST_SKIP() << "this processor has no 64-byte byte permutes; the state machine counts alone";
  const std::vector<std::string> pieces = {"👍", "🏽", "\uFE0F", "\u200D", "👨", "👩", "\U0001F1E9", "\U0001F1EA",
                                           "\u2764", "\u2640", "日本", "한", "é", "\u0301", "ﬁ", "\u3000", "\u00A0",
                                           "🏳", "\U000E0067", "\u0915\u094D", "a\u200D👍", "x\u200D"};
  std::mt19937 random(24);
  for (int round = 0; round < 1000; ++round) {
    std::string text;
    const int length = 40 + static_cast<int>(random() % 400);
    for (int k = 0; k < length; ++k) text += pieces[random() % pieces.size()];
    for (bool words : {false, true})
      ASSERT_EQ(countWellFormed(text, words), countWellFormedByStateMachine(text, words))
          << (words ? "words " : "characters ") << testing::PrintToString(text);
  }
}

TEST(GraphemeWalker, PrefixStopsAtCharacterBoundaries) {
  const std::string text = "e\u0301\U0001F1E9\U0001F1EA\r\nz";
  const struct {
    std::size_t count;
    std::size_t bytes;
    bool truncated;
  } cases[] = {{0, 0, true}, {1, 3, true}, {2, 11, true}, {3, 13, true}, {4, 14, false}, {9, 14, false}};
  for (const auto& c : cases) {
    const GraphemePrefix prefix = graphemePrefix(text, c.count);
    EXPECT_EQ(prefix.prefix.size(), c.bytes) << c.count;
    EXPECT_EQ(prefix.truncated, c.truncated) << c.count;
  }
}

}  // namespace
}  // namespace orla
