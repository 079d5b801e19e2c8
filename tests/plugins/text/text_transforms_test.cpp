#include "plugins/text/text_transforms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include <orla/models/base64.h>
#include <orla/models/graphemes.h>

namespace orla::transforms {
namespace {

struct TextCase {
  const char* name;
  std::string input;
  std::string expected;
};


using Transform = std::string (*)(std::string_view);

struct Named {
  Transform transform;
  std::vector<TextCase> cases;
};

TEST(TextTransforms, TextToText) {
  const std::vector<std::pair<const char*, Named>> table = {
      {"uppercase",
       {uppercase,
        {{"ascii", "Hello, World", "HELLO, WORLD"},
         {"sharp s expands", "straße", "STRASSE"},
         {"combining marks kept", "e\u0301a", "E\u0301A"},
         {"final sigma has no upper form issue", "ὀδυσσεύς", "ὈΔΥΣΣΕΎΣ"}}}},
      {"lowercase",
       {lowercase,
        {{"ascii", "HeLLo", "hello"},
         {"final sigma", "ΟΔΥΣΣΕΥΣ", "οδυσσευς"},
         {"dotted capital I", "İ", "i\u0307"}}}},
      {"titleCase",
       {titleCase,
        {{"mixed case", "hELLO wORLD", "Hello World"},
         {"words are runs between spaces", "hello-world it's", "Hello-world It's"},
         {"line breaks and tabs separate", "one\ttwo\nthree", "One\tTwo\nThree"},
         {"digraph takes its title form", "ǆemal", "ǅemal"},
         {"leading punctuation is the first character", "(hello)", "(hello)"}}}},
      {"trimWhitespace",
       {trimWhitespace,
        {{"middle blank line stays empty", "\n\n  a \t b  \n\n   \n c\n\n", "a b\n\n\nc"},
         {"only white space", " \t\n \u00A0 \n", ""},
         {"no-break and ideographic spaces fold", "a\u00A0\u3000b", "a b"},
         {"CR LF become two breaks", "a\r\nb", "a\n\nb"},
         {"line and paragraph separators", "a\u2028b\u2029 c ", "a\nb\nc"},
         {"empty", "", ""}}}},
      {"reverse",
       {reverse,
        {{"ascii", "abc", "cba"},
         {"combining mark stays on its letter", "ae\u0301b", "be\u0301a"},
         {"family emoji stays whole", "x👨\u200D👩\u200D👧y", "y👨\u200D👩\u200D👧x"},
         {"flags stay whole", "🇩🇪🇫🇷", "🇫🇷🇩🇪"},
         {"CR LF is one character", "a\r\nb", "b\r\na"},
         {"Hangul jamo cluster", "\u1100\u1161\u11A8z", "z\u1100\u1161\u11A8"}}}},
      {"urlEncode",
       {urlEncode,
        {{"space only", "a b&c", "a%20b&c"},
         {"query characters stay", "a=1+2/3?x@y~!$'()*,;:", "a=1+2/3?x@y~!$'()*,;:"},
         {"non-ASCII as UTF-8", "é #%", "%C3%A9%20%23%25"}}}},
      {"urlDecode",
       {urlDecode,
        {{"escapes", "a%20b%C3%A9", "a b\u00E9"},
         {"plus stays", "a+b", "a+b"},
         {"lone percent unchanged", "100%", "100%"},
         {"bad hex unchanged", "%zz and %20", "%zz and %20"},
         {"truncated escape unchanged", "ab%2", "ab%2"},
         {"invalid UTF-8 unchanged", "%FF%FE", "%FF%FE"}}}},
      {"removeDuplicates",
       {removeDuplicates,
        {{"case and order", "b\na\nb\nA", "b\na\nA"},
         {"white space counts", "a\na \na", "a\na "},
         {"CR LF: the empty line between is a line too", "x\r\nx\r\n", "x\n"}}}},
  };
  for (const auto& [name, entry] : table)
    for (const TextCase& c : entry.cases)
      EXPECT_EQ(entry.transform(c.input), c.expected) << name << ": " << c.name;
}

TEST(TextTransforms, UrlDecodeAcceptsAccentedEscapes) {
  EXPECT_EQ(urlDecode("a%20b%C3%A9"), "a b\u00E9");
}

TEST(TextTransforms, Counts) {
  struct Case {
    const char* text;
    size_t characters, words, lines;
  };
  const Case cases[] = {
      {"", 0, 0, 1},
      {"a\n", 2, 1, 2},
      {"a\r\nb", 3, 2, 3},  // CR LF: one character, two line breaks
      {"  one  two\nthree ", 17, 3, 2},
      {"e\u0301t\u00E9", 3, 1, 1},
      {"👨\u200D👩\u200D👧 🇩🇪", 3, 2, 1},
      {"a\u2028b\u2029c\u0085d\u000Be\u000Cf", 11, 6, 6},
      {"tab\tseparated\u00A0words\u3000here", 24, 4, 1},
      {" \u0301x", 2, 1, 1},  // the mark joins the space: still a separator
  };
  for (const Case& c : cases) {
    EXPECT_EQ(countCharacters(c.text), c.characters) << c.text;
    EXPECT_EQ(countWords(c.text), c.words) << c.text;
    EXPECT_EQ(countLines(c.text), c.lines) << c.text;
  }
}

TEST(TextTransforms, CountLinesAgreesWithTheLineSplitOnLongMixedText) {
  // Long enough for the sixteen-byte loop, with breaks at every offset.
  std::mt19937 random(7);
  const std::vector<std::string> pieces = {"a", "é", "\n", "\r", "\r\n", "\u2028", "\u2029", "\u0085", "€", "\u00A0", "xyz"};
  for (int round = 0; round < 50; ++round) {
    std::string text;
    size_t breaks = 0;
    for (int k = 0; k < 300; ++k) {
      const std::string& piece = pieces[random() % pieces.size()];
      text += piece;
      breaks += piece == "\r\n" ? 2 : (piece == "\n" || piece == "\r" || piece == "\u2028" || piece == "\u2029" || piece == "\u0085");
    }
    EXPECT_EQ(countLines(text), breaks + 1);
  }
}

TEST(TextTransforms, SortLines) {
  EXPECT_EQ(sortLines("b\nA\na\nB", "en_US"), "A\na\nb\nB");
  EXPECT_EQ(sortLines("cherry\nBanana\napple\n", "en_US"), "\napple\nBanana\ncherry");
  // Accents count, case does not; the sort is stable.
  EXPECT_EQ(sortLines("é\ne\nE\nÉ", "en_US"), "e\nE\né\nÉ");
  // Swedish puts ö after z; English beside o.
  EXPECT_EQ(sortLines("ö\nz\no", "sv_SE"), "o\nz\nö");
  EXPECT_EQ(sortLines("ö\nz\no", "en_US"), "o\nö\nz");
}

TEST(TextTransforms, Base64) {
  EXPECT_EQ(base64Encode("hello"), "aGVsbG8=");
  EXPECT_EQ(base64Encode(""), "");
  EXPECT_EQ(base64Decode("aGVs\nbG8=").value(), "hello");
  EXPECT_EQ(base64Decode(" a G V s b G 8 = ").value(), "hello");
  EXPECT_EQ(base64Decode("aGVsbG8").value(), "hello");  // padding may be left out
  const std::string invalid = "The text is not valid Base64, so it cannot be decoded.";
  for (const char* text : {"//79", "aGVsbG8=aGVs", "a", "aGVsbG8===", "Zg=Zg=="})
    EXPECT_EQ(base64Decode(text).error(), invalid) << text;
}

TEST(TextTransforms, Base64RoundTripsEveryLengthAndOffset) {
  // Lengths around the vector step (24 in, 32 out) and the block size.
  std::mt19937 random(11);
  for (size_t length : {0u, 1u, 2u, 3u, 23u, 24u, 25u, 27u, 28u, 29u, 47u, 48u, 100u, 1000u, 49151u, 49152u, 49153u,
                        200000u}) {
    std::string bytes(length, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    const std::string encoded = orla::base64Encode(bytes);
    ASSERT_EQ(encoded.size(), (length + 2) / 3 * 4);
    EXPECT_EQ(orla::base64DecodeToString(encoded), bytes) << length;
    // With a line break every 76 characters and stray garbage, as mail and
    // terminals wrap it.
    std::string wrapped;
    for (size_t i = 0; i < encoded.size(); i += 76) wrapped += encoded.substr(i, 76) + "\r\n*";
    EXPECT_EQ(orla::base64DecodeToString(wrapped, true), bytes) << length;
    if (length > 0) {
      EXPECT_FALSE(orla::base64DecodeToString(wrapped, false)) << length;
    }
  }
}

TEST(TextTransforms, Base64SkipsMegabytesOfGarbage) {
  std::string text(64 << 20, '!');
  std::copy_n("aGk=", 4, text.begin() + static_cast<std::ptrdiff_t>(text.size() / 2));
  EXPECT_EQ(base64Decode(text).value(), "hi");
  text[text.size() / 3] = 'Q';  // one symbol more: the padding no longer ends a group
  EXPECT_FALSE(base64Decode(text));
}

TEST(TextTransforms, PrettifyJSON) {
  EXPECT_EQ(prettifyJSON("42").value(), "42");
  EXPECT_EQ(prettifyJSON(" \"a\\u00e9\" ").value(), "\"a\u00e9\"");
  EXPECT_EQ(prettifyJSON("{\"b\":1,\"a\":[true,null,1.50,{}],\"c\":{\"d\":\"x\\ny\"}}").value(),
            "{\n  \"b\" : 1,\n  \"a\" : [\n    true,\n    null,\n    1.50,\n    {}\n  ],\n"
            "  \"c\" : {\n    \"d\" : \"x\\ny\"\n  }\n}");
  EXPECT_EQ(prettifyJSON("[]").value(), "[]");
  const std::string invalid = "The text is not valid JSON, so it cannot be prettified.";
  for (const char* text : {"{a:1}", "", "[1,]", "{\"a\":1} x", "\"\xFF\"", "[1"})
    EXPECT_EQ(prettifyJSON(text).error(), invalid) << text;
}

TEST(TextTransforms, PrettifyJSONKeepsARepeatedKeyOnceWithItsLastValue) {
  const struct {
    const char* text;
    const char* expected;
  } cases[] = {
      {"{\"a\":1,\"b\":2,\"a\":3}", "{\n  \"a\" : 3,\n  \"b\" : 2\n}"},
      {"[{\"k\":{\"x\":1},\"k\":[1.50,\"s\",null,true,-4,18446744073709551615]}]",
       "[\n  {\n    \"k\" : [\n      1.50,\n      \"s\",\n      null,\n      true,\n      -4,\n"
       "      18446744073709551615\n    ]\n  }\n]"},
      {"{\"o\":{\"a\":1,\"a\":{}},\"p\":{\"a\":2}}", "{\n  \"o\" : {\n    \"a\" : {}\n  },\n  \"p\" : {\n    \"a\" : 2\n  }\n}"},
  };
  for (const auto& c : cases) EXPECT_EQ(prettifyJSON(c.text).value(), c.expected) << c.text;
  // A repeated key does not excuse what is wrong further on.
  EXPECT_EQ(prettifyJSON("{\"a\":1,\"a\":2,}").error(), "The text is not valid JSON, so it cannot be prettified.");
  const std::string deep = "{\"a\":1,\"a\":" + std::string(600, '[') + std::string(600, ']') + "}";
  EXPECT_EQ(prettifyJSON(deep).error(), "The text is not valid JSON, so it cannot be prettified.");
}

TEST(TextTransforms, PrettifyJSONRefusesDeepNestingWithoutOverflowingTheStack) {
  const std::string deep = std::string(1'000'000, '[') + std::string(1'000'000, ']');
  EXPECT_EQ(prettifyJSON(deep).error(), "The text is not valid JSON, so it cannot be prettified.");
  const std::string fine = std::string(500, '[') + std::string(500, ']');
  EXPECT_TRUE(prettifyJSON(fine));
}

TEST(TextTransforms, Regex) {
  EXPECT_EQ(regexExtract("call 555-1234 now", "(\\d+)-(\\d+)").value(), "555-1234");
  EXPECT_EQ(regexExtract("abc", "x").error(), "No match for the pattern “x” in the text.");
  EXPECT_EQ(regexReplace("John Smith", "(\\w+) (\\w+)", "$2, $1").value(), "Smith, John");
  EXPECT_EQ(regexReplace("a1b22", "\\d", "").value(), "ab");
  EXPECT_EQ(regexReplace("cost 5", "\\d", "\\$$0").value(), "cost $5");
  // No options: "." stops at line breaks and "^" anchors only at the start.
  EXPECT_EQ(regexReplace("ab\nab", "^a.", "X").value(), "X\nab");
  EXPECT_EQ(regexReplace("ab\nab", "a.b", "X").value(), "ab\nab");
  EXPECT_EQ(regexError("("), "The regex pattern “(” is not valid: The value “(” is invalid.");
  EXPECT_EQ(regexError("a+"), std::nullopt);
  EXPECT_EQ(regexReplace("abc", "(b)", "$2").error(),
            "The replacement “$2” does not fit the regex pattern “(b)”: use $0 for the whole match, $1 for the first "
            "group, and \\$ for a dollar sign.");
  EXPECT_EQ(regexError("(b)", "$2"), regexReplace("abc", "(b)", "$2").error());
}

TEST(TextTransforms, ADollarSignWithoutAGroupNumberIsOrdinary) {
  const struct {
    const char* pattern;
    const char* replacement;
    const char* expected;
  } cases[] = {
      {"\\d+", "US$", "price US$ net"},
      {"\\d+", "$", "price $ net"},
      {"\\d+", "$$0", "price $12 net"},
      {"\\d+", "${0}", "price ${0} net"},
      {"\\d+", "\\\\$0", "price \\12 net"},
      {"\\d+", "\\$0", "price $0 net"},
      {"\\d+", "a\\", "price a\\ net"},
      {"(\\d)(\\d)", "$21", "price 21 net"},     // group 2, then "1": there is no group 21
      {"(\\d)(\\d)", "$03", "price 123 net"},    // group 0, then "3"
      {"(\\d)|(x)", "[$2]", "price [][] net"},  // a group outside the match inserts nothing
  };
  for (const auto& c : cases) {
    EXPECT_EQ(regexError(c.pattern, c.replacement), std::nullopt) << c.replacement;
    EXPECT_EQ(regexReplace("price 12 net", c.pattern, c.replacement).value(), c.expected) << c.replacement;
  }
  EXPECT_EQ(regexReplace("日本12", "\\d", "€").value(), "日本€€");
  EXPECT_EQ(regexReplace("aaa", "x*", "-").value(), "-a-a-a-");
}

TEST(TextTransforms, CatastrophicBacktrackingIsStopped) {
  const std::string text = std::string(4000, 'a') + "!";
  const auto replaced = regexReplace(text, "(a+)+b", "x");
  ASSERT_FALSE(replaced);
  EXPECT_EQ(replaced.error(), "The regex pattern “(a+)+b” took too long on this text and was stopped. Try a simpler pattern.");
  EXPECT_FALSE(regexExtract(text, "(a|aa)+$"));
  // The same when the text is searched in small windows.
  EXPECT_EQ(regexReplace(text, "(a+)+b", "x", 64).error(), replaced.error());
  EXPECT_FALSE(regexExtract(text, "(a|aa)+$", 64));
}

TEST(TextTransforms, DisplayCut) {
  EXPECT_EQ(displayCut(std::string(400, 'x')), std::string(400, 'x'));
  EXPECT_EQ(displayCut(std::string(401, 'x')), std::string(400, 'x') + "… (401 characters)");
  // Characters, not bytes: 401 accented letters of two code points each.
  std::string accented;
  for (int i = 0; i < 401; ++i) accented += "e\u0301";
  EXPECT_EQ(displayCut(accented), accented.substr(0, 400 * 3) + "… (401 characters)");
}

TEST(Graphemes, AgreeWithTheBreakIteratorOnMixedText) {
  // Random mixes of the kinds of characters that break naive code.
  std::mt19937 random(3);
  const std::vector<std::string> pieces = {"a", "b", "\u0301", "\r", "\n", "\r\n", "\u200D", "👨", "🇩", "🇪", "\u1100", "\u1161",
                                           "\u11A8", "\u0600", "क", "\u094D", "ष", "\xFF", " ", "é", "\U0001F3FD", "한", "각", "🇫", "\u0308"};
  for (int round = 0; round < 200; ++round) {
    std::string text;
    for (int k = 0; k < 40; ++k) text += pieces[random() % pieces.size()];
    std::vector<size_t> ends;
    forEachGrapheme(text, [&](size_t, size_t end) {
      ends.push_back(end);
      return true;
    });
    std::vector<uint32_t> expected;
    graphemes_detail::complexBoundaries(text, expected);
    EXPECT_EQ(ends, std::vector<size_t>(expected.begin(), expected.end())) << text;
    EXPECT_EQ(countCharacters(text), expected.size()) << text;
  }
}

}  // namespace
}  // namespace orla::transforms
