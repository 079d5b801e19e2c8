// Regex replace writes its UTF-8 result straight from the text, mapping
// ICU's UTF-16 offsets back to bytes: it must give exactly what a UTF-16
// replace through ICU gives, on any text.
#include <gtest/gtest.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

#include "plugins/text/regex_search.h"
#include "plugins/text/text_transforms.h"

namespace orla::transforms {
namespace {

std::string icuReplaceAll(const std::string& text, const std::string& pattern, const std::string& replacement) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError;
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern), 0, parseError, status));
  if (U_FAILURE(status)) return "(invalid)";
  const icu::UnicodeString input = icu::UnicodeString::fromUTF8(text);
  std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(input, status));
  matcher->setTimeLimit(1000, status);
  const icu::UnicodeString replaced = matcher->replaceAll(icu::UnicodeString::fromUTF8(replacement), status);
  if (U_FAILURE(status)) return "(failed)";
  std::string out;
  replaced.toUTF8String(out);
  return out;
}

TEST(RegexReplace, SameAsAUtf16ReplaceOnRandomText) {
  // Templates both syntaxes read alike: groups, the whole match, literals.
  const struct {
    const char* pattern;
    const char* replacement;
  } cases[] = {
      {"(\\p{L})(\\p{M}*)", "[$2$1]"},
      {"(?<=(\\p{Han}))\\p{Han}", "<$1>"},
      {"\\b(\\w+)\\b", "$1€"},
      {"\\x{1F600}|e\\x{301}", "😀$0"},
      {"x*", "-"},
      {"\\s+", " "},
      {"(a)|(b)", "$2$1"},
      {"(?s).{3}", "«$0»"},
  };
  const std::vector<std::string> pieces = {"a", "b", "x", " ", "\n", "é", "e\u0301", "日本", "語", "😀", "👨‍👩‍👧",
                                           "Ω", "ß", "\u0915\u094D\u0937", "🇩🇪", "\t", "1"};
  std::mt19937 random(7);
  for (int round = 0; round < 400; ++round) {
    std::string text;
    const int length = static_cast<int>(random() % 30);
    for (int k = 0; k < length; ++k) text += pieces[random() % pieces.size()];
    for (const auto& c : cases) {
      const auto replaced = regexReplace(text, c.pattern, c.replacement);
      ASSERT_TRUE(replaced) << c.pattern;
      EXPECT_EQ(replaced.value(), icuReplaceAll(text, c.pattern, c.replacement)) << c.pattern << " on " << text;
    }
    if (HasFailure()) return;
  }
}

// The windows' conversion to UTF-16 goes a vector at a time through runs of
// ASCII, of two-byte and of three-byte code points: runs of every length of
// each, at every alignment and up to the end, give ICU's units.
TEST(RegexReplace, WindowsAreConvertedToUtf16AsIcuConvertsThem) {
  const char* const pieces[] = {"a", "word ", "é", "Москва", "中文", "👋🏽", "\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80",
                                "\xef\xbf\xbf", "\xf4\x8f\xbf\xbf", "0123456789abcdefghijklmnopqrstuvwxyz",
                                "ЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖЖ", "中中中中中中中中中中"};
  std::mt19937 random(24);
  for (int round = 0; round < 3000; ++round) {
    std::string text(random() % 40, 'x');  // shifts where the 32-byte steps fall
    const int count = static_cast<int>(random() % 60);
    for (int k = 0; k < count; ++k) text += pieces[random() % std::size(pieces)];
    const icu::UnicodeString expected = icu::UnicodeString::fromUTF8(text);
    std::u16string units(text.size() + 1, u'\0');
    const int32_t written = toUtf16(text, units.data());
    ASSERT_EQ(std::u16string_view(units.data(), static_cast<std::size_t>(written)),
              std::u16string_view(expected.getBuffer(), static_cast<std::size_t>(expected.length())))
        << "round " << round;
  }
}

TEST(RegexReplace, InvalidBytesReadAsReplacementCharacters) {
  EXPECT_EQ(regexReplace("a\xFF" "b", "\\x{FFFD}", "?").value(), "a?b");
  EXPECT_EQ(regexReplace("\xE2\x82 x", "x", "y").value(), "\uFFFD y");
}

// A pattern made of random constructs: anchors, look-around, classes,
// repeats, alternatives, flags.
std::string randomPattern(std::mt19937& random) {
  static const std::vector<std::string> atoms = {
      "a", "b", "ab", ".", "\\w", "\\W", "\\s", "\\d", "[ab]", "[^a\\n]", "\\p{L}", "\\p{M}", "é", "😀", "\\n",
      "\\r\\n", "\\R", "\\b", "\\B", "^", "$", "\\A", "\\z", "\\Z", "(?<=a)", "(?<!b)", "(?<=\\w{2})",
      "(?<=^a)", "(?<=\\b\\p{L}|\\r)", "(?=a)", "(?!b)", "(?=.*b)", "(a|bc)", "(x)?", "\\x{301}", "\\X", "\\G",
      "(?:a|\\n)", "[\\x{2028}\\r]", "\\1"};
  static const std::vector<std::string> repeats = {"", "", "", "*", "+", "?", "{2}", "{1,3}", "*?", "+?", "*+"};
  static const std::vector<std::string> flags = {"", "", "(?m)", "(?s)", "(?i)", "(?ms)", "(?w)"};
  // Repeats of an assertion ($*+, ^+?) make ICU run out of stack or loop
  // without end wherever the assertion holds: useless patterns, left out.
  const auto zeroWidth = [](const std::string& atom) {
    return atom == "^" || atom == "$" || (atom.starts_with("\\") && atom.size() == 2 && std::isupper(atom[1])) ||
           atom == "\\b" || atom.starts_with("(?<") || atom.starts_with("(?=") || atom.starts_with("(?!");
  };
  const auto piece = [&] {
    std::string out;
    for (int k = 0, count = 1 + static_cast<int>(random() % 4); k < count; ++k) {
      const std::string& atom = atoms[random() % atoms.size()];
      const std::string& repeat = repeats[random() % repeats.size()];
      out += atom + (zeroWidth(atom) && repeat != "?" ? "" : repeat);
    }
    return out;
  };
  std::string pattern = flags[random() % flags.size()] + piece();
  if (random() % 3 == 0) pattern.append("|").append(piece());
  if (random() % 3 == 0) pattern = std::string("(").append(pattern).append(")");
  return pattern;
}

TEST(RegexReplace, WindowsGiveTheSameMatchesAsTheWholeText) {
  const std::vector<std::string> pieces = {"a", "b", "ab", "x", " ", "\n", "\r\n", "\r", "\u2028", "é", "e\u0301",
                                           std::string(30, 'a'), "\u0301\u0301\u0301\u0301\u0301\u0301\u0301\u0301",
                                           "\u200D", "日本", "😀", "🇩🇪", "Ω", "ß", "SS", "1", "the", "\t"};
  std::mt19937 random(24);
  int compared = 0;
  for (int round = 0; round < 1500; ++round) {
    const std::string pattern = randomPattern(random);
    std::string text;
    for (int k = 0, length = static_cast<int>(random() % 40); k < length; ++k) text += pieces[random() % pieces.size()];
    const std::string expected = icuReplaceAll(text, pattern, "<$0>");
    if (expected == "(invalid)") continue;
    ++compared;
    for (const std::size_t window : {1, 2, 3, 7, 16, 64}) {
      const auto replaced = regexReplace(text, pattern, "<$0>", window);
      ASSERT_EQ(replaced ? replaced.value() : "(failed)", expected) << (replaced ? "" : replaced.error()) << ": " << pattern << " on \"" << text << "\", window " << window;
    }
  }
  EXPECT_GT(compared, 700);
}

TEST(RegexReplace, GroupsAroundAndBeforeTheMatchAcrossWindows) {
  const std::string text = "one two  three\r\nfour\u2028five 😀😀 six\nseven e\u0301e\u0301 eight";
  const struct {
    const char* pattern;
    const char* replacement;
  } cases[] = {
      {"(?<=(\\w)) (\\w)", "[$1$2]"},       // a group before the match
      {"(\\w+)(?=(\\s+)(\\w))", "$3$1$2"},  // groups after it
      {"(?m)^(\\w+)$", "<$1>"},
      {"(?s)t.*e", "|"},  // one match over many windows
      {"(\\p{L}\\p{M}*)\\b", "($1)"},
      {"\\R", "/"},
  };
  for (const auto& c : cases)
    for (const std::size_t window : {1, 4, 9, 1000})
      EXPECT_EQ(regexReplace(text, c.pattern, c.replacement, window).value(),
                icuReplaceAll(text, c.pattern, c.replacement))
          << c.pattern << ", window " << window;
}

TEST(RegexReplace, WhatTheWindowsCannotDecideTakesTheWholeText) {
  const struct {
    const char* pattern;
    bool wholeText;
  } cases[] = {
      {"\\b(the|and)\\b", false}, {"(?<=a{3})b", false}, {"\\X", true},         {"\\G\\w", true},
      {"(?w)\\bx", true},          {"(?iw:x)", true},       {"(?<=a{999}){999}", true}, {"[\\\\X]", false},
  };
  for (const auto& c : cases) EXPECT_EQ(regexReach(c.pattern).wholeText, c.wholeText) << c.pattern;
  EXPECT_GE(regexReach("(?<=a{3}b)c").lookBack, 4);
  EXPECT_GT(regexReach("(?<=a{300}b)c").lookBack, regexReach("(?<=a{3}b)c").lookBack);
}

}  // namespace
}  // namespace orla::transforms
