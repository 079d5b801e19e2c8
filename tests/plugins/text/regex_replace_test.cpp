// Regex replace writes its UTF-8 result straight from the text, mapping
// ICU's UTF-16 offsets back to bytes: it must give exactly what a UTF-16
// replace through ICU gives, on any text.
#include <gtest/gtest.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <random>
#include <string>
#include <vector>

#include "plugins/text/text_transforms.h"

namespace orla::transforms {
namespace {

std::string icuReplaceAll(const std::string& text, const char* pattern, const char* replacement) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError parseError;
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(pattern), 0, parseError, status));
  const icu::UnicodeString input = icu::UnicodeString::fromUTF8(text);
  std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(input, status));
  const icu::UnicodeString replaced = matcher->replaceAll(icu::UnicodeString::fromUTF8(replacement), status);
  EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
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

TEST(RegexReplace, InvalidBytesReadAsReplacementCharacters) {
  EXPECT_EQ(regexReplace("a\xFF" "b", "\\x{FFFD}", "?").value(), "a?b");
  EXPECT_EQ(regexReplace("\xE2\x82 x", "x", "y").value(), "\uFFFD y");
}

}  // namespace
}  // namespace orla::transforms
