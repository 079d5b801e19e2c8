#include "plugins/apps/url_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using Command = URLPlugin::Command;

class URLPluginTest : public testing::SimTest {
 protected:
  URLPluginTest() {
    desktop->installApplication({"/Applications/Firefox.app", "org.mozilla.firefox", "Firefox", "",
                                 ActivationPolicy::regular, std::chrono::microseconds(0), sim::QuitBehaviour::quits});
  }

  std::vector<std::string> opened() const {
    std::vector<std::string> out;
    for (const auto& entry : desktop->trace("open")) out.push_back(entry.text);
    return out;
  }

  URLPlugin plugin{platform};
};

TEST_F(URLPluginTest, TheCommandComesFromItsNameThenItsNumber) {
  const struct {
    ActionData data;
    std::optional<Command> expected;
  } cases[] = {
      {{}, Command::openURL},
      {{{"actionType", 0}}, Command::openURL},
      {{{"actionType", 2}}, Command::mailto},
      {{{"Action", 2}}, Command::mailto},
      {{{"subAction", "email"}, {"actionType", 1}}, Command::mailto},
      {{{"subAction", "open"}}, Command::openURL},
      {{{"subAction", "Mail"}}, Command::openURL},
      {{{"actionType", 3}}, std::nullopt},
      {{{"actionType", -1}}, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(URLPlugin::command(c.data), c.expected);
  EXPECT_EQ(plugin.validate({{"actionType", 3}}), "Unknown URL command 3. Choose Open URL or Create Mail from the menu.");
  EXPECT_EQ(plugin.execute({{"actionType", 3}}), PluginResult::failure("Unknown URL action: 3"));
}

TEST_F(URLPluginTest, ATypedAddressGetsAURLOnlyWhenItHasAScheme) {
  const struct {
    std::string text;
    std::optional<std::string> expected;
  } cases[] = {
      {"https://example.com/a?b=c#d", "https://example.com/a?b=c#d"},
      {"  https://example.com/a b\n", "https://example.com/a%20b"},
      {"https://example.com/Ünïcode?q=ä ö", "https://example.com/%C3%9Cn%C3%AFcode?q=%C3%A4%20%C3%B6"},
      {"https://example.com/%41", "https://example.com/%41"},
      {"https://example.com/#top#more", std::nullopt},
      {"mailto:ada@example.com", "mailto:ada@example.com"},
      {"example.com:8080", std::nullopt},
      {"example.com:8080/status", std::nullopt},
      {"www.example.com", std::nullopt},
      {"https://example.com/100%", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(URLPlugin::resolvedURL(c.text), c.expected) << c.text;
}

TEST_F(URLPluginTest, ValidationExplainsWhatIsWrongWithTheAddress) {
  const struct {
    ActionData data;
    std::optional<std::string> expected;
  } cases[] = {
      {{}, "Enter the URL to open, for example https://www.example.com"},
      {{{"url", "www.example.com"}},
       "The address \"www.example.com\" has no scheme. Type the full address, for example https://www.example.com"},
      {{{"URL", "example.com:8080"}},
       "The address \"example.com:8080\" has no scheme. Type the full address, for example https://example.com:8080"},
      {{{"url", "www.example.com/my page"}},
       "The address \"www.example.com/my page\" has no scheme. Type the full address, for example "
       "https://www.example.com/my page"},
      {{{"url", "ht tp://example.com"}}, "The address \"ht tp://example.com\" isn't correct."},
      {{{"url", "https://example.com"}, {"application", "Netscape"}},
       "The application \"Netscape\" can't be found. Choose it again with Browse…, or leave the Open with field empty "
       "to use the default browser"},
      {{{"subAction", "mail"}}, "Enter the recipient's email address in the To field."},
      {{{"subAction", "mail"}, {"to", "ada@example.com"}, {"AppPath", "Pigeon"}},
       "The application \"Pigeon\" can't be found. Choose it again with Browse…, or leave the Open with field empty "
       "to use the default mail app"},
      {{{"url", "https://example.com"}, {"application", "Firefox"}}, std::nullopt},
      {{{"subAction", "mail"}, {"url", "mailto:ada@example.com"}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.expected);
    if (c.expected) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.expected));
    }
  }
  EXPECT_TRUE(opened().empty());
}

TEST_F(URLPluginTest, MailAddressesKeepEveryCharacterOfTheirParts) {
  EXPECT_EQ(URLPlugin::mailURL("ada@example.com", "", ""), "mailto:ada@example.com");
  EXPECT_EQ(URLPlugin::mailURL("a&b+c@example.com", "Q&A = fun? #1", "Line 1\nLine 2 & more"),
            "mailto:a%26b%2Bc@example.com?subject=Q%26A%20%3D%20fun%3F%20%231&body=Line%201%0ALine%202%20%26%20more");
  EXPECT_EQ(URLPlugin::mailURL("x@y.z", "", "only a body"), "mailto:x@y.z?body=only%20a%20body");

  const ActionData data{{"subAction", "mailto"}, {"to", "team@example.com"}, {"subject", "Status = done & dusted?"},
                        {"message", "See #42"}};
  EXPECT_EQ(plugin.execute(data), PluginResult::success("Created an email to team@example.com in Mail."));
  EXPECT_EQ(opened(), std::vector<std::string>{
                          "mailto:team@example.com?subject=Status%20%3D%20done%20%26%20dusted%3F&body=See%20%2342"});
}

TEST_F(URLPluginTest, WithoutAnApplicationTheSchemesHandlerOpensIt) {
  EXPECT_EQ(plugin.execute({{"url", " https://example.com/a b "}}),
            PluginResult::success("Opened https://example.com/a%20b in Safari."));
  EXPECT_EQ(opened(), std::vector<std::string>{"https://example.com/a%20b"});
  EXPECT_EQ(plugin.execute({{"url", "gopher://example.com"}}),
            PluginResult::failure("No application on this Mac can open gopher: addresses. Check the URL, or choose the "
                                  "application to open it with."));
  // The handler itself refuses.
  sim::SimApplicationBundle safari{"/Applications/Safari.app", "com.apple.Safari", "Safari", "",
                                   ActivationPolicy::regular, std::chrono::microseconds(0), sim::QuitBehaviour::quits};
  safari.opensDocuments = false;
  desktop->installApplication(safari);
  EXPECT_EQ(plugin.execute({{"url", "https://example.com"}}), PluginResult::failure("Could not open https://example.com"));
}

TEST_F(URLPluginTest, AChosenApplicationIsFoundByPathNameOrIdentifierAndAnswersWithinEightSeconds) {
  for (std::string app : {"/Applications/Firefox.app", "/Applications/Firefox", "Firefox", "org.mozilla.firefox"}) {
    EXPECT_EQ(plugin.resolvedApplicationURL(app), "/Applications/Firefox.app") << app;
  }
  desktop->clearTrace();
  EXPECT_EQ(plugin.execute({{"url", "https://example.com"}, {"applicationPath", "Firefox"}}),
            PluginResult::success("Opened https://example.com in Firefox."));
  EXPECT_EQ(opened(), std::vector<std::string>{"https://example.com with /Applications/Firefox.app"});

  sim::SimApplicationBundle refusing{"/Applications/Lynx.app", "org.lynx", "Lynx", "", ActivationPolicy::regular,
                                     std::chrono::microseconds(0), sim::QuitBehaviour::quits};
  refusing.opensDocuments = false;
  desktop->installApplication(refusing);
  EXPECT_EQ(plugin.execute({{"url", "https://example.com"}, {"application", "Lynx"}}),
            PluginResult::failure("Lynx could not open https://example.com"));

  sim::SimApplicationBundle silent{"/Applications/Hang.app", "org.hang", "Hang", "", ActivationPolicy::regular,
                                   std::nullopt, sim::QuitBehaviour::quits};
  desktop->installApplication(silent);
  const auto before = desktop->monotonicNow();
  EXPECT_EQ(plugin.execute({{"url", "https://example.com"}, {"application", "Hang"}}),
            PluginResult::failure("Asked Hang to open https://example.com, but it did not answer within 8 seconds"));
  EXPECT_GE(desktop->monotonicNow() - before, std::chrono::seconds(8));
  EXPECT_LT(desktop->monotonicNow() - before, std::chrono::milliseconds(8100));
}

}  // namespace
}  // namespace orla
