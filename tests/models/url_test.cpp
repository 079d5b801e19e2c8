#include <orla/models/url.h>

#include <gtest/gtest.h>

namespace orla {
namespace {

TEST(URLTest, PercentEncodingKeepsOnlyTheSetItIsGiven) {
  const auto mail = URLCharacterSet::queryAllowed().removing("&+?=#");
  const struct {
    std::string text;
    URLCharacterSet set;
    std::string expected;
  } cases[] = {
      {"Q&A = fun? #1 + more", mail, "Q%26A%20%3D%20fun%3F%20%231%20%2B%20more"},
      {"a/b:c@d?e=f&g", URLCharacterSet::queryAllowed(), "a/b:c@d?e=f&g"},
      {"x#y%z", URLCharacterSet::queryAllowed(), "x%23y%25z"},
      {"x#y%z", URLCharacterSet::queryAllowed().adding("#%"), "x#y%z"},
      {"café\n", URLCharacterSet::queryAllowed(), "caf%C3%A9%0A"},
      {"a;b?c", URLCharacterSet::pathAllowed(), "a%3Bb%3Fc"},
  };
  for (const auto& c : cases) EXPECT_EQ(percentEncode(c.text, c.set), c.expected) << c.text;
}

TEST(URLTest, ParsingAcceptsWellFormedReferencesAndFindsTheScheme) {
  const struct {
    std::string text;
    std::optional<std::string> scheme;  // none: not a URL
  } cases[] = {
      {"https://example.com/a?b=c#d", "https"},
      {"mailto:ada@example.com?subject=Hi", "mailto"},
      {"x-orla+test.1:whatever", "x-orla+test.1"},
      {"www.example.com/page", ""},
      {"example.com:8080", "example.com"},
      {"https://example.com/a b", std::nullopt},
      {"https://example.com/%zz", std::nullopt},
      {"https://example.com/#a#b", std::nullopt},
      {"https://example.com/é", std::nullopt},
      {"ht tp://example.com", std::nullopt},
      {std::string("https://a.com/\0b", 16), std::nullopt},
  };
  for (const auto& c : cases) {
    const auto parsed = parseURL(c.text);
    ASSERT_EQ(parsed.has_value(), c.scheme.has_value()) << c.text;
    if (parsed) {
      EXPECT_EQ(parsed->scheme, *c.scheme) << c.text;
    }
  }
}

TEST(URLTest, FileURLsAndPathsConvertBothWays) {
  EXPECT_EQ(filePathFromURL("file:///Users/ada/My%20Notes.txt"), "/Users/ada/My Notes.txt");
  EXPECT_EQ(filePathFromURL("file://localhost/tmp/x"), "/tmp/x");
  EXPECT_EQ(filePathFromURL("FILE:///tmp/"), "/tmp/");
  EXPECT_EQ(filePathFromURL("https://example.com/tmp"), std::nullopt);
  EXPECT_EQ(filePathFromURL("file:///tmp/a b"), std::nullopt);
  for (std::string path : {"/a b/é.txt", "/tmp/100%/#1?", "/Folder/"}) {
    EXPECT_EQ(filePathFromURL(fileURLFromPath(path)), path);
  }
  EXPECT_EQ(fileURLFromPath("/a b/é"), "file:///a%20b/%C3%A9");
}

}  // namespace
}  // namespace orla
