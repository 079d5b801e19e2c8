#include "plugins/input/message_plugin.h"

#include <gtest/gtest.h>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

using testing::SimTest;

TEST(MessageReaders, TitleAndDetail) {
  struct Case {
    const char* name;
    ActionData data;
    std::string title, detail;
  };
  const Case cases[] = {
      {"nothing", {}, "Orla", ""},
      {"message alone becomes the title", {{"message", "Done"}}, "Done", ""},
      {"message and second message without title",
       {{"Message1", "Done"}, {"message2", "Really"}},
       "Done",
       "Really"},
      {"title and both messages",
       {{"title", "T"}, {"message1", "a"}, {"Message2", "b"}},
       "T",
       "a\nb"},
      {"title and second message", {{"Title", "T"}, {"message2", "b"}}, "T", "b"},
      {"blank title is none", {{"title", "  \n"}, {"message", "m"}}, "m", ""},
      {"message1 before message", {{"message1", " one "}, {"message", "two"}}, "one", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MessagePlugin::alertTitle(c.data), c.title) << c.name;
    EXPECT_EQ(MessagePlugin::alertDetail(c.data), c.detail) << c.name;
  }
  EXPECT_EQ(MessagePlugin::button1Title({}), "OK");
  EXPECT_EQ(MessagePlugin::button1Title({{"button1", "Go"}}), "Go");
  EXPECT_EQ(MessagePlugin::button2Title({{"button2Label", " "}}), std::nullopt);
  EXPECT_EQ(MessagePlugin::button2Title({{"Button2", "Stop"}}), "Stop");
  EXPECT_TRUE(MessagePlugin::button1Stops({{"ButtonAction1", 1}}));
  EXPECT_FALSE(MessagePlugin::button1Stops({{"button1Action", 2}}));
  EXPECT_FALSE(MessagePlugin::button2Stops({{"button2Action", true}}))
      << "only the integer 1 stops";
  EXPECT_EQ(MessagePlugin::resolvedActionType({{"subAction", "dialog"}, {"actionType", 5}}), 1);
  EXPECT_EQ(MessagePlugin::resolvedActionType({{"Action", 0}}), 1);
  EXPECT_EQ(MessagePlugin::resolvedActionType({{"actionType", 2}}), 2);
}

class MessageTest : public SimTest {
 protected:
  PluginResult run(const ActionData& data) { return MessagePlugin(platform).execute(data); }
};

TEST_F(MessageTest, ButtonsContinueOrStop) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> answer;
    PluginResult result;
    const char* shown;
  };
  const auto stop = PluginResult::stopSequence();
  const Case cases[] = {
      {"default button",
       {{"message", "Hi"}},
       std::nullopt,
       PluginResult::success("Clicked OK. The shortcut continues."),
       "“Hi” [OK]"},
      {"second stops, second pressed",
       {{"button2", "Stop"}, {"button2Action", 1}},
       "2",
       stop,
       "“Orla” [OK] [Stop]"},
      {"second stops, first pressed",
       {{"button2", "Stop"}, {"button2Action", 1}},
       "OK",
       PluginResult::success("Clicked OK. The shortcut continues."),
       "“Orla” [OK] [Stop]"},
      {"first stops",
       {{"button1Label", "Cancel"}, {"button1Action", 1}},
       std::nullopt,
       stop,
       "“Orla” [Cancel]"},
      {"second continues",
       {{"title", "T"}, {"message", "d"}, {"button2", "Later"}},
       "Later",
       PluginResult::success("Clicked Later. The shortcut continues."),
       "“T” “d” [OK] [Later]"},
      {"an empty second button is none, and its action unused",
       {{"button2", ""}, {"button2Action", 1}},
       "2",
       PluginResult::success("Clicked OK. The shortcut continues."),
       "“Orla” [OK]"},
  };
  for (const Case& c : cases) {
    desktop->clearTrace();
    if (c.answer) desktop->scriptAlertAnswer(*c.answer);
    EXPECT_EQ(run(c.data), c.result) << c.name;
    EXPECT_EQ(desktop->trace("alert").at(0).text, c.shown) << c.name;
  }
}

TEST_F(MessageTest, AMenuBarHostComesForwardForTheAlertOnly) {
  struct Case {
    const char* name;
    ActivationPolicy before;
    bool keepInDock, titledWindow;
    ActivationPolicy after;
    std::size_t policyChanges;
  };
  const Case cases[] = {
      {"accessory and back", ActivationPolicy::accessory, false, false, ActivationPolicy::accessory,
       2},
      {"kept in the Dock by the user", ActivationPolicy::accessory, true, false,
       ActivationPolicy::regular, 1},
      {"kept for its open editor", ActivationPolicy::accessory, false, true,
       ActivationPolicy::regular, 1},
      {"a regular host is left alone", ActivationPolicy::regular, false, false,
       ActivationPolicy::regular, 0},
  };
  for (const Case& c : cases) {
    auto host = desktop->host();
    host.activationPolicy = c.before;
    host.hasTitledWindow = c.titledWindow;
    desktop->setHost(host);
    platform->userDefaults().set(MessagePlugin::keepInDockDefault, c.keepInDock);
    desktop->clearTrace();
    EXPECT_EQ(run({}).kind(), PluginResult::Kind::success) << c.name;
    EXPECT_EQ(desktop->host().activationPolicy, c.after) << c.name;
    EXPECT_EQ(desktop->trace("host").size(), c.policyChanges) << c.name;
    const auto trace = desktop->trace();
    // The host comes to the front, ignoring other applications, before the alert.
    auto activation =
        std::find(trace.begin(), trace.end(), sim::TraceEntry{"activate", "pid=100 options=2"});
    auto alert =
        std::find_if(trace.begin(), trace.end(), [](auto& e) { return e.category == "alert"; });
    EXPECT_LT(activation, alert) << c.name;
  }
}

TEST_F(MessageTest, UnknownCommandsAndMissingAlerts) {
  EXPECT_EQ(MessagePlugin(platform).validate({{"actionType", 2}}), "Unknown message command.");
  EXPECT_EQ(MessagePlugin(platform).validate({{"subAction", "show"}, {"actionType", 2}}),
            std::nullopt);
  EXPECT_EQ(run({{"actionType", -3}}), PluginResult::failure("Unknown message action: -3"));
  EXPECT_TRUE(desktop->trace("alert").empty());
  // On a desktop the real message would wait for a user: orla_desktop_tests
  // and the desktop end-to-end tests press its buttons from outside.
  auto nativePlatform = makeNativePlatform();
  if (!nativePlatform->supports(Capability::alerts)) {
    EXPECT_EQ(MessagePlugin(nativePlatform).execute({}),
              PluginResult::failure("Messages are not available on this desktop in this build of Orla."));
  }
}

}  // namespace
}  // namespace orla
