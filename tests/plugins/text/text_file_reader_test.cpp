#include "plugins/text/text_file_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace orla {
namespace {

namespace fs = std::filesystem;

const fs::path kFixtures = fs::path(ORLA_TEST_FIXTURES) / "text";

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

struct RtfCase {
  const char* name;
  std::string rtf;
  std::string expected;
};

void expectPlainText(const std::vector<RtfCase>& cases) {
  for (const auto& c : cases) {
    const auto text = plainTextFromRtf(c.rtf);
    ASSERT_TRUE(text.has_value()) << c.name;
    EXPECT_EQ(*text, c.expected) << c.name;
  }
}

TEST(RtfPlainText, ReadsTextControlWordsAndSymbols) {
  expectPlainText({
      {"plain", R"({\rtf1\ansi Hello, world.})", "Hello, world."},
      {"delimiting space", R"({\rtf1 \b bold\b0  text})", "bold text"},
      {"numeric parameter ends the word", R"({\rtf1\fs24x})", "x"},
      {"negative parameter", R"({\rtf1\li-360 x})", "x"},
      {"breaks", R"({\rtf1 a\par b\line c\tab d\sect e})", "a\nb\nc\td\ne"},
      {"escaped line break", "{\\rtf1 a\\\nb}", "a\nb"},
      {"source line breaks", "{\\rtf1 a\r\nb\n}", "ab"},
      {"escaped characters", R"({\rtf1 \\ \{ \}})", "\\ { }"},
      {"spaces and hyphens", R"({\rtf1 a\~b co\-op x\_y})", "a\u00A0b coop x\u2011y"},
      {"punctuation words",
       R"({\rtf1 \emdash\endash\bullet\lquote\rquote\ldblquote\rdblquote})",
       "\u2014\u2013\u2022\u2018\u2019\u201C\u201D"},
      {"hyphen not part of a word", R"({\rtf1\b-x})", "-x"},
      {"groups", R"({\rtf1 a{\i b{\b c}}d})", "abcd"},
      {"table", R"({\rtf1 a\cell b\cell\row c\cell d\cell\row})", "a\tb\nc\td\n"},
      {"skipped cell keeps the text", R"({\rtf1 a{\*\x b\cell}\row})", "a\n"},
      {"list marker is text", R"({\rtf1{\listtext\tab \uc0\u8226 \tab}item})", "\t\u2022\titem"},
      {"text after the document", R"({\rtf1 a}b{c})", "a"},
  });
}

TEST(RtfPlainText, DecodesHexEscapesInTheDocumentCodePage) {
  expectPlainText({
      {"default is 1252", R"({\rtf1 caf\'e9 \'80})", "café €"},
      {"ansicpg1252", R"({\rtf1\ansi\ansicpg1252 caf\'E9 \'96})", "café –"},
      {"mac", R"({\rtf1\mac caf\'8e})", "café"},
      {"mac, literal byte", "{\\rtf1\\mac caf\x8e}", "café"},
      {"ansicpg10000", R"({\rtf1\ansi\ansicpg10000 caf\'8e})", "café"},
      {"ansicpg1251", R"({\rtf1\ansi\ansicpg1251 \'cf\'f0\'e8\'e2\'e5\'f2})", "Привет"},
      {"double-byte page", R"({\rtf1\ansi\ansicpg932 \'82\'a0\'82\'a2})", "あい"},
      {"unknown page reads as 1252", R"({\rtf1\ansicpg4242 caf\'e9})", "café"},
      {"font charset",
       R"({\rtf1\ansi\ansicpg1252{\fonttbl{\f0 Times;}{\f1\fcharset204 Arial Cyr;}})"
       R"(\f0 caf\'e9 {\f1\'e4\'e0} caf\'e9})",
       "café да café"},
      {"cpg wins over charset", R"({\rtf1{\fonttbl{\f1\cpg1251\fcharset238 X;}}\f1\'e4})", "д"},
      {"plain returns to the default font",
       R"({\rtf1\deff0{\fonttbl{\f0 A;}{\f1\fcharset204 B;}}\f1\'e4\plain\'e4})", "дä"},
      {"bad hex digits", R"({\rtf1 a\'zzb\'4})", "azzb"},
  });
}

TEST(RtfPlainText, ReadsUnicodeWithFallbackSkipping) {
  expectPlainText({
      {"uc1 default", R"({\rtf1 \u233?t\u233?})", "été"},
      {"uc0", R"({\rtf1\uc0 \u233 t\u233 })", "été"},
      {"uc2 skips two hex escapes", R"({\rtf1\uc2\u12354\'82\'a0x})", "あx"},
      {"fallback symbol counts one", R"({\rtf1 \u8364\{x})", "€x"},
      {"negative value", R"({\rtf1 \u-4064?})", "\uF020"},
      {"surrogate pair", R"({\rtf1 \u-10179?\u-8704?})", "😀"},
      {"surrogate pair, uc0", R"({\rtf1\uc0 \u55357 \u56832 })", "😀"},
      {"lone high surrogate", R"({\rtf1\uc0 \u55357 a})", "\uFFFDa"},
      {"lone low surrogate", R"({\rtf1\uc0 \u56832 a})", "\uFFFDa"},
      {"uc is scoped to its group", R"({\rtf1 {\uc0 \u233 }\u233?})", "éé"},
      {"a brace ends the fallback", R"({\rtf1\uc3 {\u233}x})", "éx"},
      {"so does an opening brace", R"({\rtf1 \u233{x}})", "éx"},
  });
}

TEST(RtfPlainText, SkipsDestinationsThatAreNotText) {
  expectPlainText({
      {"header tables",
       R"({\rtf1{\fonttbl{\f0\fnil\fcharset0 Helvetica;}{\f1{\*\panose 0}Times;}})"
       R"({\colortbl;\red255\green0\blue0;}{\stylesheet{\s0 Normal;}}Body})",
       "Body"},
      {"info", R"({\rtf1{\info{\title T}{\author A}{\doccomm C}}Body})", "Body"},
      {"ignorable, known or not", R"({\rtf1{\*\generator W;}{\*\unknownthing x{y}}Body})", "Body"},
      {"headers and footers", R"({\rtf1{\header h}{\footerl f}Body})", "Body"},
      {"picture with binary braces", R"({\rtf1{\pict\bin3 }{\}after})", "after"},
      {"field shows its result",
       R"({\rtf1{\field{\*\fldinst{HYPERLINK "https://example.com"}}{\fldrslt link}}})", "link"},
      {"attachment and its mark", R"({\rtf1 a {{\NeXTGraphic p.png \width9
}\'ac} b})", "a  b"},
      {"not sign elsewhere stays", R"({\rtf1 a \'ac b})", "a ¬ b"},
  });
}

TEST(RtfPlainText, ReturnsWhatWasGatheredFromDamagedInput) {
  expectPlainText({
      {"unclosed groups", R"({\rtf1 Hello {\b wor)", "Hello wor"},
      {"cut in a hex escape", R"({\rtf1 caf\'e)", "caf"},
      {"cut after a backslash", R"({\rtf1 a\)", "a"},
      {"cut in a word", R"({\rtf1 a\pa)", "a"},
      {"u without a value", R"({\rtf1 a\u b})", "ab"},
      {"cut after u", R"({\rtf1\uc1\u233)", "é"},
      {"pending high surrogate at the end", R"({\rtf1\uc0\u55357)", "\uFFFD"},
      {"bin longer than the input", R"({\rtf1 a\bin99999 xyz)", "a"},
      {"huge parameters", R"({\rtf1\uc99999999999999999\u99999999999999999 a\f-99999999999 b})",
       ""},
      {"extra closing braces", R"({\rtf1 a}}})", "a"},
      {"empty header only", R"({\rtf)", ""},
  });
  const std::string deep = "{\\rtf1 x" + std::string(200000, '{') + "y";
  EXPECT_EQ(plainTextFromRtf(deep), "x");
}

TEST(RtfPlainText, IsNoneForOtherText) {
  for (const char* text : {"", "hello", " {\\rtf1 x}", "{\\rt", "{\\RTF1 x}"})
    EXPECT_FALSE(plainTextFromRtf(text).has_value()) << text;
}

TEST(DecodeText, TakesTheFirstCharsetThatReadsTheBytes) {
  struct Case {
    const char* name;
    std::string bytes;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"ascii", "hello", "hello"},
      {"utf-8 with emoji", "a\xF0\x9F\x98\x80 é", "a😀 é"},
      {"byte-order mark dropped", "\xEF\xBB\xBFx", "x"},
      {"only a byte-order mark", "\xEF\xBB\xBF", std::nullopt},
      {"invalid utf-8 as mac roman", "Caf\x8E", "Café"},
      {"overlong utf-8 as mac roman", "\xC0\x80", "¿Ä"},
      {"truncated utf-8 as mac roman", "ab\xE2\x82", "ab‚Ç"},
      {"encoded surrogate as mac roman", "\xED\xA0\x80", "Ì†Ä"},
      {"empty", "", std::nullopt},
      {"utf-16 little-endian with its mark", std::string("\xFF\xFE" "C\0" "a\0" "f\0" "\xE9\0" "=\xD8\0\xDE", 14),
       "Café😀"},
      {"utf-16 big-endian with its mark", std::string("\xFE\xFF" "\0H" "\0i" "\x20\x26", 8), "Hi…"},
      {"only a utf-16 mark", "\xFF\xFE", std::nullopt},
      {"odd length after a utf-16 mark as mac roman", "\xFF\xFEx", "ˇ˛x"},
  };
  for (const auto& c : cases) EXPECT_EQ(decodeText(bytesOf(c.bytes)), c.expected) << c.name;
}

class TextFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("orla-text-file-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string write(const std::string& name, std::string_view contents) {
    const fs::path path = dir_ / name;
    std::ofstream(path, std::ios::binary) << contents;
    return path.string();
  }

  fs::path dir_;
};

TEST_F(TextFileTest, ReadsFixtures) {
  struct Case {
    const char* file;
    const char* expected;
  };
  const Case cases[] = {
      {"mac_roman.txt", "Café crème brûlée\n"},
      {"cp1252.rtf", "Café au lait – €3,50\nMerci\u00A0!\n"},
      {"letter.rtfd", "Dear Renée,\nhere is the plan  as promised 😀"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(readTextFromFile((kFixtures / c.file).string()), c.expected) << c.file;
}

TEST_F(TextFileTest, FallsBackOrGivesNone) {
  struct Case {
    const char* name;
    std::string path;
    std::optional<std::string> expected;
  };
  fs::create_directories(dir_ / "folder");
  fs::create_directories(dir_ / "empty.rtfd");
  write("empty.rtfd/TXT.rtf", R"({\rtf1{\fonttbl{\f0 Helvetica;}}})");
  const Case cases[] = {
      {"utf-8 file", write("a.txt", "line 1\nlíne 2"), "line 1\nlíne 2"},
      {"rtf without text reads as its source", write("b.rtf", R"({\rtf1{\info{\title T}}})"),
       R"({\rtf1{\info{\title T}}})"},
      {"empty file", write("c.txt", ""), std::nullopt},
      {"missing file", (dir_ / "missing.txt").string(), std::nullopt},
      {"folder", (dir_ / "folder").string(), std::nullopt},
      {"rtfd without text", (dir_ / "empty.rtfd").string(), std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(readTextFromFile(c.path), c.expected) << c.name;
}

TEST_F(TextFileTest, RefusesFilesTooLargeToType) {
  const std::string path = write("big.txt", "a");
  fs::resize_file(path, 64u * 1024u * 1024u + 1u);  // sparse: costs no disk
  EXPECT_FALSE(readTextFromFile(path).has_value());
}

}  // namespace
}  // namespace orla
