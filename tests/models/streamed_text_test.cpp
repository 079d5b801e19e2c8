// StreamedText against the whole-text answer (trim, UTF-8 check, grapheme
// count and prefix), for texts cut into chunks at every kind of place.
#include <orla/models/streamed_text.h>

#include <gtest/gtest.h>

#include <random>

#include <orla/models/graphemes.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {
namespace {

struct Expected {
  bool valid;
  std::string shown;
  std::uint64_t count;
};

Expected wholeText(std::string_view text, std::size_t limit) {
  if (!isValidUtf8(text)) return {false, "", 0};
  const std::string_view trimmed = trimWhitespaceAndNewlines(text);
  return {true, std::string(graphemePrefix(trimmed, limit).prefix), graphemeCount(trimmed)};
}

Expected streamed(std::string_view text, std::size_t limit, std::size_t chunk) {
  StreamedText s(limit);
  for (std::size_t at = 0; at < text.size(); at += chunk) s.append(text.substr(at, chunk));
  s.finish();
  return {s.isValidUtf8(), std::string(s.shown()), s.characterCount()};
}

void expectSame(std::string_view text, std::size_t limit, std::size_t chunk) {
  const Expected want = wholeText(text, limit);
  const Expected got = streamed(text, limit, chunk);
  EXPECT_EQ(got.valid, want.valid) << ::testing::PrintToString(text) << " chunk " << chunk;
  EXPECT_EQ(got.count, want.count) << ::testing::PrintToString(text) << " chunk " << chunk;
  EXPECT_EQ(got.shown, want.shown) << ::testing::PrintToString(text) << " chunk " << chunk << " limit " << limit;
}

TEST(StreamedText, AgreesWithTheWholeTextWhateverTheChunks) {
  const std::string cases[] = {
      "",
      "   \n\t  ",
      "hello",
      "  hello world \n\n",
      "line\r\nline\r\n\r\n",
      "\r\n\r\nx\r\n",
      "e\xCC\x81\xCC\x81 cafe\xCC\x81",                           // combining acute accents
      " \xCC\x81x",                                               // a mark after leading white space
      "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB done",       // woman technologist (ZWJ)
      "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA\xF0\x9F\x87\xAB",  // FR DE and a lone F
      "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x80\x80\xE3\x80\x80",  // CJK, ideographic spaces at the end
      "\xC2\xA0\xC2\xA0x\xC2\xA0\xC2\x85",                       // no-break spaces, NEL
      "\xED\x95\x9C\xEA\xB8\x80 \xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8",  // Hangul syllables and jamo
      "ok \xFF bad",                                              // an invalid byte
      "cut at the end \xE2\x82",                                  // a truncated sequence
      "\xE0\xA4\x95\xE0\xA5\x8D\xE0\xA4\xB7",                   // Devanagari conjunct
      std::string("nul\0in\0it", 10),
  };
  for (const std::string& text : cases)
    for (std::size_t limit : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{2000}})
      for (std::size_t chunk : {1, 2, 3, 5, 7, 64, 100000}) expectSame(text, limit, chunk);
}

TEST(StreamedText, AgreesOnRandomMixturesAcrossChunkAndLimitEdges) {
  // Pieces that interact across boundaries: marks, joiners, indicators,
  // CR LF, white space of every width.
  const std::string pieces[] = {"a", "Z", " ", "\n", "\r", "\r\n", "\t", "\xCC\x81", "\xE2\x80\x8D",
                                "\xF0\x9F\x91\xA9", "\xF0\x9F\x87\xAB", "\xE6\x97\xA5", "\xC2\xA0",
                                "\xE3\x80\x80", "\xE1\x84\x80", "\xE1\x85\xA1", "\xEF\xB8\x8F", "\xE0\xA4\x95",
                                "\xD8\x80" /* a prepended mark */, "\xEA\xB0\x80" /* a Hangul syllable */,
                                "\xE1\x86\xA8" /* a final jamo */, "\xC3\xA9", "\xE2\x80\x94"};
  std::mt19937 random(8);
  for (int round = 0; round < 1500; ++round) {
    std::string text;
    const int length = std::uniform_int_distribution<int>(0, 300)(random);
    for (int i = 0; i < length; ++i) text += pieces[random() % std::size(pieces)];
    const std::size_t limit = std::uniform_int_distribution<std::size_t>(0, 40)(random);
    const std::size_t chunk = std::uniform_int_distribution<std::size_t>(1, 50)(random);
    expectSame(text, limit, chunk);
  }
}

TEST(StreamedText, CountsALongStreamWithoutKeepingIt) {
  StreamedText s(2000);
  const std::string line = "0123456789abcdef\r\n";  // 17 characters
  for (int i = 0; i < 100000; ++i) s.append(line);
  s.append("\xC3\xA9t\xC3\xA9   \n");
  s.finish();
  ASSERT_TRUE(s.isValidUtf8());
  EXPECT_EQ(s.characterCount(), 100000u * 17 + 3);
  EXPECT_TRUE(s.isCut());
  EXPECT_EQ(graphemeCount(s.shown()), 2000u);
  EXPECT_TRUE(s.shown().starts_with("0123456789abcdef\r\n0123"));
}

TEST(StreamedText, AnInvalidByteLateInALongStreamEmptiesIt) {
  StreamedText s(10);
  for (int i = 0; i < 1000; ++i) s.append("plenty of text ");
  s.append("\xC3");  // a lead byte whose continuation never comes
  s.append("x");
  s.finish();
  EXPECT_FALSE(s.isValidUtf8());
  EXPECT_EQ(s.shown(), "");
  EXPECT_EQ(s.characterCount(), 0u);
}

}  // namespace
}  // namespace orla
