// The process service with real programs: floods on both pipes at once, the
// ways a program ends, the ways it fails to start, and what the child sees.
#include "platform/posix/posix_processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace orla {
namespace {

namespace fs = std::filesystem;

struct Captured {
  CapturedOutput out{std::size_t{1} << 16};
  CapturedOutput err{std::size_t{1} << 16};
};

Checked<ProcessExit> sh(Processes& processes, Captured& captured, std::string script,
                        std::string workingDirectory = {}) {
  return processes.run({"/bin/sh", {"-c", std::move(script)}, std::move(workingDirectory)}, captured.out,
                       captured.err);
}

class ProcessesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::temp_directory_path() / ("orla-processes-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder);
  }
  void TearDown() override { fs::remove_all(folder); }

  posix::PosixProcesses processes;
  fs::path folder;
};

TEST_F(ProcessesTest, ReadsAHundredMebibytesOnBothPipesAtOnce) {
  // Both writers run at the same time; a reader that finished one pipe
  // before starting the other would leave the second writer blocked.
  Captured c;
  auto exit = sh(processes, c,
                 "head -c 104857600 /dev/zero & head -c 104857600 /dev/zero >&2; wait; echo end >&2");
  ASSERT_TRUE(exit) << exit.error();
  EXPECT_EQ(*exit, (ProcessExit{ProcessExit::Reason::exited, 0}));
  EXPECT_EQ(c.out.total(), 104857600u);
  EXPECT_EQ(c.err.total(), 104857600u + 4);
  EXPECT_EQ(c.out.bytes().size(), std::size_t{1} << 16);  // the sink kept what it was asked to
}

TEST_F(ProcessesTest, AFloodOfErrorOutputBeforeAnyOutputDoesNotBlock) {
  Captured c;
  auto exit = sh(processes, c, "head -c 16777216 /dev/zero >&2; echo done");
  ASSERT_TRUE(exit) << exit.error();
  EXPECT_EQ(c.out.bytes(), "done\n");
  EXPECT_EQ(c.err.total(), 16777216u);
}

TEST_F(ProcessesTest, ReportsHowTheProgramEnded) {
  struct Case {
    std::string script;
    ProcessExit expected;
  } cases[] = {
      {"exit 0", {ProcessExit::Reason::exited, 0}},
      {"exit 3", {ProcessExit::Reason::exited, 3}},
      {"exit 255", {ProcessExit::Reason::exited, 255}},
      {"kill -9 $$", {ProcessExit::Reason::signalled, SIGKILL}},
      {"kill -TERM $$", {ProcessExit::Reason::signalled, SIGTERM}},
  };
  for (const Case& c : cases) {
    Captured captured;
    auto exit = sh(processes, captured, c.script);
    ASSERT_TRUE(exit) << c.script << ": " << exit.error();
    EXPECT_EQ(*exit, c.expected) << c.script << " ended with " << exit->status;
  }
}

TEST_F(ProcessesTest, SaysWhyAProgramCannotStart) {
  const fs::path notExecutable = folder / "script.sh";
  std::ofstream(notExecutable) << "echo hi\n";
  fs::permissions(notExecutable, fs::perms::owner_read | fs::perms::owner_write);
  struct Case {
    ProcessLaunch launch;
    std::string sentence;
  } cases[] = {
      {{"/nonexistent/program", {}, {}}, "The file “/nonexistent/program” doesn’t exist."},
      {{notExecutable.string(), {}, {}}, "You don’t have permission to run “" + notExecutable.string() + "”."},
      {{"sh", {"-c", "true"}, {}}, "The program “sh” must be given by its full path."},
      {{"/bin/sh", {"-c", "true"}, (folder / "missing").string()},
       "The folder “" + (folder / "missing").string() + "” doesn’t exist."},
  };
  for (const Case& c : cases) {
    Captured captured;
    auto exit = processes.run(c.launch, captured.out, captured.err);
    ASSERT_FALSE(exit) << c.launch.executable;
    EXPECT_EQ(exit.error(), c.sentence);
    auto started = processes.start(c.launch);
    ASSERT_FALSE(started) << c.launch.executable;
    EXPECT_EQ(started.error(), c.sentence);
  }
}

TEST_F(ProcessesTest, PassesArgumentsAndBytesThroughUntouched) {
  Captured c;
  // No shell in between: quotes, blanks, empty arguments and line breaks
  // arrive as given.
  auto exit = processes.run({"/usr/bin/printf", {"[%s]", "a b", "", "\"q\" 'x'", "line\nbreak", "$HOME"}, {}},
                            c.out, c.err);
  ASSERT_TRUE(exit) << exit.error();
  EXPECT_EQ(c.out.bytes(), "[a b][][\"q\" 'x'][line\nbreak][$HOME]");

  Captured bytes;
  ASSERT_TRUE(sh(processes, bytes, R"(printf '\377\376\000x'; printf '\300' >&2)"));
  EXPECT_EQ(bytes.out.bytes(), std::string("\xFF\xFE\0x", 4));
  EXPECT_EQ(bytes.err.bytes(), "\xC0");
}

TEST_F(ProcessesTest, StandardInputIsAtItsEndAtOnce) {
  Captured c;
  ASSERT_TRUE(sh(processes, c, "cat; read line; echo \"read: $?\""));
  EXPECT_EQ(c.out.bytes(), "read: 1\n");
}

TEST_F(ProcessesTest, RunsInTheWorkingDirectoryGiven) {
  Captured c;
  ASSERT_TRUE(sh(processes, c, "pwd -P", folder.string()));
  EXPECT_EQ(c.out.bytes(), fs::canonical(folder).string() + "\n");
}

TEST_F(ProcessesTest, TheChildGetsNoOtherDescriptorAndDefaultSignals) {
  if (!fs::exists("/proc/self/status")) GTEST_SKIP() << "no /proc";
  // A descriptor this process left inheritable, SIGPIPE ignored as some
  // hosts have it, and SIGUSR1 blocked on this thread: none of it may reach
  // the child (grep reads its own status).
  const int leaky = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(leaky, 3);
  struct sigaction ignore {}, previous {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &previous);
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  Captured c;
  auto exit = sh(processes, c,
                 "test -e /proc/self/fd/" + std::to_string(leaky) +
                     " && echo leaked || echo closed; grep -E '^Sig(Blk|Ign)' /proc/self/status");
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::sigaction(SIGPIPE, &previous, nullptr);
  ::close(leaky);
  ASSERT_TRUE(exit) << exit.error();
  std::istringstream lines(c.out.bytes());
  std::string fd, blockedLine, ignoredLine;
  std::getline(lines, fd);
  std::getline(lines, blockedLine);
  std::getline(lines, ignoredLine);
  EXPECT_EQ(fd, "closed");
  EXPECT_EQ(blockedLine, "SigBlk:\t0000000000000000");
  // Signals 32 and 33 (bits 31 and 32) belong to the C library, which keeps
  // them as it likes.
  ASSERT_TRUE(ignoredLine.starts_with("SigIgn:\t")) << ignoredLine;
  const auto ignoredMask = std::stoull(ignoredLine.substr(8), nullptr, 16);
  EXPECT_EQ(ignoredMask & 0x7FFFFFFFull, 0u) << ignoredLine;
}

TEST_F(ProcessesTest, ADetachedStartReturnsAtOnceAndTheProgramRuns) {
  const fs::path flag = folder / "started";
  // The program waits for a file that only appears after start returned.
  const fs::path go = folder / "go";
  auto started = processes.start(
      {"/bin/sh", {"-c", "while [ ! -e \"$1\" ]; do sleep 0.01; done; echo ran > \"$2\"", "sh", go.string(),
                   flag.string()},
       {}});
  ASSERT_TRUE(started) << started.error();
  EXPECT_FALSE(fs::exists(flag));
  std::ofstream(go) << "";
  std::string text;
  for (int i = 0; i < 1000 && text != "ran"; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ifstream in(flag);
    std::getline(in, text);
  }
  EXPECT_EQ(text, "ran");
}

}  // namespace
}  // namespace orla
