// Which desktop entry a process belongs to, told by what launching it knows,
// against real processes: a shell (the launcher or wrapper) and the program
// it started, with the environment GIO gives what it launches.
#include "platform/linux/launched_applications.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"

extern char** environ;

namespace orla::linux_desktop {
namespace {

// A shell that runs `program` as its child and waits for it; the shell's
// own pid and the child's.
class Family {
 public:
  Family(const std::string& program, const std::vector<std::string>& exports) {
    std::string script;
    for (const std::string& line : exports) script += "export " + line + "; ";
    script += "'" + program + "' 30 & echo $!; wait";
    int out[2];
    if (::pipe(out) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    char* empty[] = {nullptr};
    const char* argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    pid_t pid = 0;
    const bool spawned =
        posix_spawn(&pid, "/bin/sh", &actions, nullptr, const_cast<char**>(argv), empty) == 0;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (spawned) {
      shell = pid;
      FILE* lines = ::fdopen(out[0], "r");
      int childPid = 0;
      if (lines && std::fscanf(lines, "%d", &childPid) == 1) child = childPid;
      if (lines) std::fclose(lines);
      // Forked is not yet started: until the exec, the child's process
      // entry is still the shell's.
      std::error_code ec;
      const auto wanted = std::filesystem::canonical(program, ec);
      for (int i = 0; i < 500 && child > 0; ++i) {
        if (std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/exe", ec) == wanted) break;
        ::usleep(10000);
      }
    } else {
      ::close(out[0]);
    }
  }
  ~Family() {
    if (child > 0) ::kill(child, SIGKILL);
    if (shell > 0) {
      ::kill(shell, SIGKILL);
      ::waitpid(shell, nullptr, 0);
    }
  }
  ProcessId shell = 0, child = 0;
};

ManagedWindow windowOf(ProcessId pid, std::string startupId = {}) {
  ManagedWindow window;
  window.window = 0x400001;
  window.process = pid;
  window.startupId = std::move(startupId);
  return window;
}

TEST(LaunchedApplications, ParentAndEnvironmentFromProc) {
  testing::TempFolder tmp{"orla-launched"};
  // A program whose name holds the parentheses and spaces that the process
  // status line wraps names in.
  const auto odd = tmp.path() / "sl) 1 (p";
  std::filesystem::create_symlink("/bin/sleep", odd);
  Family family(odd.string(), {"ORLA_TEST_VALUE='a=b c'"});
  ASSERT_GT(family.child, 0);
  EXPECT_EQ(parentProcess(family.child), family.shell);
  EXPECT_EQ(processEnvironmentValue(family.child, "ORLA_TEST_VALUE"), "a=b c");
  EXPECT_EQ(processEnvironmentValue(family.child, "ORLA_TEST"), std::nullopt) << "a prefix is not a name";
  EXPECT_EQ(parentProcess(0x7ffffff0), std::nullopt);
}

TEST(LaunchedApplications, TheLaunchTellsTheEntryOnlyOfWhatItStarted) {
  testing::TempFolder tmp{"orla-launched"};
  const std::string file = tmp.write("org.example.Wrapped.desktop",
                                     "[Desktop Entry]\nType=Application\nName=Wrapped\nExec=true\n");
  const DesktopEntry entry{"org.example.Wrapped.desktop", "Wrapped", file};
  const std::string gioFile = "GIO_LAUNCHED_DESKTOP_FILE='" + file + "'";
  Family plain("/bin/sleep", {});
  Family gio("/bin/sleep", {gioFile, "GIO_LAUNCHED_DESKTOP_FILE_PID=$$"});
  Family gioGone("/bin/sleep", {gioFile, "GIO_LAUNCHED_DESKTOP_FILE_PID=2147483000"});
  for (const Family* family : {&plain, &gio, &gioGone}) ASSERT_GT(family->child, 0);

  enum Launch { none, shellLaunched, childLaunched, startupIdOnly };
  struct Case {
    const char* name;
    const Family& family;
    Launch launch;
    bool shellHasWindow;
    std::string childStartupId;
    bool tellsEntry;
  };
  const Case cases[] = {
      {"nothing known", plain, none, false, "", false},
      {"launched itself", plain, childLaunched, false, "", true},
      {"started by a launched wrapper", plain, shellLaunched, false, "", true},
      {"started from a launched terminal", plain, shellLaunched, true, "", false},
      {"GIO launched its wrapper", gio, none, false, "", true},
      {"GIO launched the terminal it runs under", gio, none, true, "", false},
      {"GIO's launcher has ended", gioGone, none, false, "", true},
      {"GIO's launcher has ended, under another application", gioGone, none, true, "", false},
      {"a window with the launch's startup id", plain, startupIdOnly, false, "orla-1-1", true},
      {"a window with another startup id", plain, startupIdOnly, false, "orla-1-2", false},
  };
  for (const Case& c : cases) {
    LaunchedApplications launched;
    if (c.launch == shellLaunched) launched.record(entry, {c.family.shell, "orla-1-0"});
    if (c.launch == childLaunched) launched.record(entry, {c.family.child, "orla-1-0"});
    if (c.launch == startupIdOnly) launched.record(entry, {0, "orla-1-1"});
    std::vector<ManagedWindow> windows{windowOf(c.family.child, c.childStartupId)};
    if (c.shellHasWindow) windows.push_back(windowOf(c.family.shell));
    const auto found = launched.entryOf(c.family.child, windows);
    EXPECT_EQ(found.has_value(), c.tellsEntry) << c.name;
    if (found && c.tellsEntry) {
      EXPECT_EQ(found->path, file) << c.name;
      EXPECT_EQ(found->name, "Wrapped") << c.name;
    }
  }
}

}  // namespace
}  // namespace orla::linux_desktop
