// The shell-command plugin on the simulated desktop, which runs the real
// /bin/zsh and answers Terminal's script from its table.
#include "plugins/scripts/shell_command_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::SimTest;

class ShellCommandTest : public SimTest {
 protected:
  ShellCommandTest() : plugin(platform) {
    folder = fs::temp_directory_path() / ("orla-shell-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder);
    desktop->setEnvironment({{"HOME", folder.string()}});
  }
  ~ShellCommandTest() override { fs::remove_all(folder); }

  fs::path write(const std::string& name, std::string_view content) {
    std::ofstream(folder / name, std::ios::binary) << content;
    return folder / name;
  }

  PluginResult run(std::string command) { return plugin.execute({{"command", std::move(command)}}); }

  ShellCommandPlugin plugin;
  fs::path folder;
};

TEST_F(ShellCommandTest, ValidatesTheCommandOrTheFileByTheCommandNumber) {
  fs::create_directories(folder / "scripts");
  write("run.sh", "echo hi");
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> problem;
  };
  const std::string missing = (folder / "gone.sh").string();
  const Case cases[] = {
      {"nothing at all", {}, "Enter a command to run, for example: say hello"},
      {"only blanks", {{"command", " \n\t "}}, "Enter a command to run, for example: say hello"},
      {"blank first alias, later alias", {{"command", "  "}, {"Command", "ls"}}, std::nullopt},
      {"actionType 0", {{"actionType", 0}, {"Source", "ls"}}, std::nullopt},
      {"actionType 3", {{"actionType", 3}, {"command", "ls"}},
       "Unknown shell command. Choose Type command text or Run command file."},
      {"actionType -1", {{"actionType", -1}, {"command", "ls"}},
       "Unknown shell command. Choose Type command text or Run command file."},
      {"subAction wins", {{"subAction", "file"}, {"actionType", 1}, {"command", "ls"}},
       "Choose a script file with Browse…"},
      {"legacy Action", {{"Action", 2}}, "Choose a script file with Browse…"},
      {"missing file", {{"actionType", 2}, {"scriptPath", "~/gone.sh"}},
       "The script file “" + missing + "” can't be found. Choose it again with Browse…"},
      {"a folder", {{"subAction", "runFile"}, {"path", "~/scripts"}},
       "The script file “" + (folder / "scripts").string() +
           "” is a folder, not a script file. Choose a text file with Browse…"},
      {"a file by its last alias", {{"actionType", 2}, {"commandFile", " ~/run.sh "}}, std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.problem) << c.name;
    if (c.problem) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.problem)) << c.name;
    }
  }
  EXPECT_FALSE(plugin.requiresAccessibility({}));
}

TEST_F(ShellCommandTest, ReportsTheOutputsAndTheExitStatus) {
  struct Case {
    std::string command;
    PluginResult expected;
  };
  const Case cases[] = {
      {"true", PluginResult::success("The command finished. It printed nothing.")},
      {"echo hi", PluginResult::success("hi")},
      {"print -r -- ${(U):-zsh}", PluginResult::success("ZSH")},  // the Z shell's own expansion
      {"echo '  padded  '; echo", PluginResult::success("padded")},
      {"echo out; echo err >&2", PluginResult::success("out\nerr")},
      {"echo err >&2", PluginResult::success("err")},
      {"echo oops >&2; exit 2", PluginResult::failure("The command exited with status 2.\noops")},
      {"echo out; echo err >&2; exit 1", PluginResult::failure("The command exited with status 1.\nerr\nout")},
      {"exit 7", PluginResult::failure("The command exited with status 7.")},
      {"kill -9 $$", PluginResult::failure("The command exited with status 9.")},
      {"printf '\\377\\376'; printf 'fine' >&2", PluginResult::success("fine")},  // undecodable: empty
      {"cat; read -r line || echo 'end of input'", PluginResult::success("end of input")},
      {"echo \"quotes\" \\\\ and 'single'", PluginResult::success("quotes \\ and single")},
  };
  for (const Case& c : cases) EXPECT_EQ(run(c.command), c.expected) << c.command;
}

TEST_F(ShellCommandTest, CutsLongOutputsAndGivesTheirLengthInCharacters) {
  const std::string x2000(2000, 'x');
  EXPECT_EQ(run("printf 'x%.0s' {1..2000}"), PluginResult::success(x2000));
  EXPECT_EQ(run("printf 'x%.0s' {1..2500}"), PluginResult::success(x2000 + "… (2500 characters)"));
  // Characters, not bytes: "é" as e and a combining accent is one.
  std::string accented;
  for (int i = 0; i < 2000; ++i) accented += "e\xCC\x81";
  EXPECT_EQ(run("for i in {1..2001}; do printf 'e\\xcc\\x81'; done; echo '   '; exit 3 "),
            PluginResult::failure("The command exited with status 3.\n" + accented + "… (2001 characters)"));
  // Both outputs are cut on their own.
  EXPECT_EQ(run("printf 'o%.0s' {1..2001}; printf 'e%.0s' {1..2002} >&2"),
            PluginResult::success(std::string(2000, 'o') + "… (2001 characters)\n" + std::string(2000, 'e') +
                                  "… (2002 characters)"));
}

TEST_F(ShellCommandTest, RunsTheTrimmedTextOfAScriptFile) {
  const fs::path odd = write("my \"odd\" script's file.sh", "\n\n  echo \"from $0\" | tr a-z A-Z  \n\n");
  write("blank.sh", "\n \n\t\n");
  write("latin1.sh", "echo caf\xE9");
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"scriptPath", odd.string()}}),
            PluginResult::success("FROM /BIN/ZSH"));
  EXPECT_EQ(plugin.execute({{"subAction", "file"}, {"path", "~/blank.sh"}}),
            PluginResult::failure("The script file is empty."));
  EXPECT_EQ(plugin.execute({{"subAction", "file"}, {"path", "~/latin1.sh"}}),
            PluginResult::failure("Cannot read script file: The file “latin1.sh” couldn’t be opened using text "
                                  "encoding Unicode (UTF-8)."));
}

TEST_F(ShellCommandTest, AMissingShellIsALaunchFailure) {
  desktop->programs().setMissing("/bin/zsh");
  EXPECT_EQ(run("echo hi"), PluginResult::failure("Failed to launch: The file “/bin/zsh” doesn’t exist."));
}

TEST_F(ShellCommandTest, TerminalGetsTheCommandAsTypedInsideItsScript) {
  const std::string command = "say \"hi\" \\ back\\\\slash\nls \"$HOME\"";
  const std::string escaped = "say \\\"hi\\\" \\\\ back\\\\\\\\slash\nls \\\"$HOME\\\"";
  const std::string script =
      "tell application \"Terminal\"\n"
      "    activate\n"
      "    if (count of windows) is 0 then\n"
      "        do script \"" + escaped + "\"\n"
      "    else\n"
      "        do script \"" + escaped + "\" in front window\n"
      "    end if\n"
      "end tell";
  EXPECT_EQ(ShellCommandPlugin::terminalScript(command), script);
  desktop->setScriptAnswer(script, {true, std::nullopt, std::nullopt});
  EXPECT_EQ(plugin.execute({{"command", command}, {"runInTerminal", true}}),
            PluginResult::success("Opened Terminal and ran:\n" + command));
  EXPECT_EQ(desktop->givenScripts(), std::vector<std::string>{script});
  EXPECT_TRUE(desktop->trace("process").empty());  // nothing ran here
}

TEST_F(ShellCommandTest, TerminalErrorsAndTheAutomationPermission) {
  const std::string script = ShellCommandPlugin::terminalScript("ls");
  const std::string permission =
      "Allow Orla Pro to control Terminal in System Settings → Privacy & Security → Automation, then click Test "
      "again.";
  struct Case {
    sim::SimScriptAnswer answer;
    std::string expected;
  };
  const Case cases[] = {
      {{true, std::nullopt, ScriptError{"Not authorized to send Apple events to Terminal.", std::nullopt, -1743}},
       permission},
      {{true, std::nullopt, ScriptError{"Terminal got an error: -1743", std::nullopt, std::nullopt}}, permission},
      {{true, std::nullopt, ScriptError{"Operation NOT PERMITTED", std::nullopt, std::nullopt}}, permission},
      {{true, std::nullopt, ScriptError{"Error 1002 from the system", std::nullopt, std::nullopt}}, permission},
      {{true, std::nullopt, ScriptError{"Terminal isn’t running.", "brief", -600}}, "Terminal isn’t running."},
      {{true, std::nullopt, ScriptError{std::nullopt, "brief only", -1743}}, "Could not run in Terminal."},
      {{false, std::nullopt, std::nullopt}, "Could not build the Terminal script."},
  };
  for (const Case& c : cases) {
    desktop->setScriptAnswer(script, c.answer);
    EXPECT_EQ(plugin.execute({{"command", "ls"}, {"InTerminal", 1}}), PluginResult::failure(c.expected))
        << c.expected;
  }
  // A desktop without AppleScript says so.
  ShellCommandPlugin native(makeNativePlatform());
  EXPECT_EQ(native.execute({{"command", "ls"}, {"runInTerminal", true}}),
            PluginResult::failure("AppleScript is not available on this desktop; it needs macOS."));
}

}  // namespace
}  // namespace orla
