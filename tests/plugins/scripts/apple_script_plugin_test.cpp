// The AppleScript plugin on the simulated desktop, whose scripts answer from
// its table, and on the native Linux desktop, which has no AppleScript.
#include "plugins/scripts/apple_script_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::SimTest;

class AppleScriptTest : public SimTest {
 protected:
  AppleScriptTest() : plugin(platform) {
    folder = fs::temp_directory_path() / ("orla-applescript-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder / "Scripts");
    desktop->setEnvironment({{"HOME", folder.string()}});
  }
  ~AppleScriptTest() override { fs::remove_all(folder); }

  std::string write(const std::string& name, std::string_view content) {
    std::ofstream(folder / name, std::ios::binary) << content;
    return (folder / name).string();
  }

  void answer(std::string source, std::optional<std::string> result, std::optional<ScriptError> error = {},
              bool compiles = true) {
    desktop->setScriptAnswer(std::move(source), {compiles, std::move(result), std::move(error)});
  }

  AppleScriptPlugin plugin;
  fs::path folder;
};

TEST_F(AppleScriptTest, ValidatesTheScriptOrTheFileByTheCommandNumber) {
  const std::string file = write("Hello.scpt", "compiled");
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> problem;
  };
  const Case cases[] = {
      {"nothing", {}, "Enter an AppleScript, for example: beep"},
      {"blank script, then an alias", {{"script", "\n"}, {"Script", "beep"}}, std::nullopt},
      {"actionType 3", {{"actionType", 3}}, "Unknown AppleScript command. Choose Enter script text or Run script file."},
      {"subAction scriptFile", {{"subAction", "scriptFile"}, {"path", "~/Hello.scpt"}}, std::nullopt},
      {"subAction beats actionType", {{"subAction", "file"}, {"actionType", 1}, {"script", "beep"}},
       "Choose a script file with Browse…"},
      {"folder", {{"actionType", 2}, {"scriptPath", "~/Scripts"}},
       "The script file “" + (folder / "Scripts").string() +
           "” is a folder, not a script file. Choose a .scpt or .applescript file with Browse…"},
      {"missing", {{"actionType", 2}, {"Path", "~/Gone.scpt"}},
       "The script file “" + (folder / "Gone.scpt").string() + "” can't be found. Choose it again with Browse…"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.problem) << c.name;
    if (c.problem) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.problem)) << c.name;
    }
  }
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(AppleScriptTest, ReportsTheResultTextOrTheErrorText) {
  struct Case {
    const char* name;
    sim::SimScriptAnswer answer;
    PluginResult expected;
  };
  const Case cases[] = {
      {"no result", {true, std::nullopt, std::nullopt}, PluginResult::success("The script finished.")},
      {"blank result", {true, " \n ", std::nullopt}, PluginResult::success("The script finished.")},
      {"text with blank lines", {true, "\n\n  Hello, Ada  \n\n", std::nullopt}, PluginResult::success("Hello, Ada")},
      {"message", {true, std::nullopt, ScriptError{"Can’t get window 1.", "brief", -1728}},
       PluginResult::failure("Can’t get window 1.")},
      {"empty message, brief", {true, std::nullopt, ScriptError{"", "Brief words.", -1728}},
       PluginResult::failure("Brief words.")},
      {"number only", {true, std::nullopt, ScriptError{std::nullopt, std::nullopt, -1728}},
       PluginResult::failure("AppleScript error -1728.")},
      {"nothing at all", {true, std::nullopt, ScriptError{}}, PluginResult::failure("AppleScript error.")},
      {"does not compile", {false, std::nullopt, std::nullopt},
       PluginResult::failure("The AppleScript could not be compiled.")},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer("tell me", c.answer);
    EXPECT_EQ(plugin.execute({{"script", "  tell me \n"}}), c.expected) << c.name;
  }
  EXPECT_EQ(desktop->givenScripts().back(), "tell me");  // trimmed before it is compiled
}

TEST_F(AppleScriptTest, LoadsCompiledFilesAndCompilesTextFiles) {
  answer("compiled body", "from the compiled file");
  answer("return 42", "42");
  answer("broken body", std::nullopt, std::nullopt, false);
  const std::string capitals = write("Upper.SCPT", "compiled body");
  const std::string source = write("my \"odd\" name's.applescript", "\n\n  return 42 \n\n");
  const std::string broken = write("Broken.scpt", "broken body");
  const std::string brokenText = write("broken.applescript", "broken body");
  write("blank.applescript", " \n\t\n");
  write("latin1.txt", "return \"caf\xE9\"");

  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"scriptPath", capitals}}),
            PluginResult::success("from the compiled file"));
  EXPECT_EQ(desktop->trace("script").front().text, "load " + capitals);
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"scriptPath", source}}), PluginResult::success("42"));
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"scriptPath", broken}}),
            PluginResult::failure("The file “Broken.scpt” is not a compiled script."));
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"scriptPath", brokenText}}),
            PluginResult::failure("The AppleScript could not be compiled."));
  EXPECT_EQ(plugin.execute({{"subAction", "runFile"}, {"scriptPath", "~/blank.applescript"}}),
            PluginResult::failure("The script file is empty."));
  EXPECT_EQ(plugin.execute({{"subAction", "runFile"}, {"scriptPath", "~/latin1.txt"}}),
            PluginResult::failure("Cannot read script file: The file “latin1.txt” couldn’t be opened using text "
                                  "encoding Unicode (UTF-8)."));
  EXPECT_EQ(desktop->givenScripts(),
            (std::vector<std::string>{"compiled body", "return 42", "broken body", "broken body"}));
}

TEST_F(AppleScriptTest, ADesktopWithoutAppleScriptSaysSo) {
  AppleScriptPlugin native(makeNativePlatform());
  const std::string compiled = write("Hello.scpt", "x");
  const PluginResult expected = PluginResult::failure("AppleScript is not available on this desktop; it needs macOS.");
  EXPECT_EQ(native.execute({{"script", "beep"}}), expected);
  EXPECT_EQ(native.execute({{"actionType", 2}, {"scriptPath", compiled}}), expected);
}

}  // namespace
}  // namespace orla
