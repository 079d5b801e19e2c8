// The JavaScript action on the simulated desktop, which runs the real worker
// and engine; the time and memory limits are also forced through the scene,
// so that the clipboard paths after them are tested without waiting.
#include "plugins/flow/pause_plugin.h"
#include "plugins/scripts/javascript_plugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/sim_fixture.h"
#include "tests/support/javascript_worker.h"
#include "tests/support/test_http_server.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::SimTest;
using Kind = JavaScriptOutcome::Kind;

const PasteboardSnapshot kUserClipboard = {
    {{{"public.rtf", "{\\rtf1 bold}"}, {"public.utf8-plain-text", "bold"}}},
    {{{"public.png", std::string("\x89PNG\r\n\x1a\n\0\0", 10)}}},
};

class JavaScriptTest : public SimTest {
 protected:
  JavaScriptTest() : plugin(platform) {
    useBuiltJavaScriptWorker();
    desktop->addApplication(app("TextEdit", "com.apple.TextEdit", 300));
    desktop->setFrontmost(300);
    desktop->setTextField(300, sim::SimTextField{u"hello world", 0, 5, std::nullopt});
    desktop->setClipboardItems(kUserClipboard);
    folder = fs::temp_directory_path() / ("orla-js-" + std::to_string(::getpid()) + "-" +
                                          ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(folder);
    desktop->setEnvironment({{"HOME", folder.string()}});
  }
  ~JavaScriptTest() override { fs::remove_all(folder); }

  PluginResult run(std::string script, ActionData more = {}) {
    more["script"] = std::move(script);
    return plugin.execute(more);
  }

  JavaScriptPlugin plugin;
  fs::path folder;
};

TEST(JavaScriptValidation, FirstFailingRuleGivesItsSentence) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> problem;
  };
  const std::string enter = "Enter the JavaScript to run, for example: input.toUpperCase().";
  const Case cases[] = {
      {"nothing", {}, enter},
      {"blank", {{"script", " \n "}}, enter},
      {"later alias", {{"script", ""}, {"source", "1"}}, std::nullopt},
      {"at the length limit", {{"script", std::string(100'000, '1')}}, std::nullopt},
      {"over the length limit", {{"script", std::string(100'001, '1')}},
       "The script is longer than 100,000 characters. Shorten it, then click Test again."},
      {"input 4", {{"script", "1"}, {"inputSource", 4}}, "Choose the input from the menu."},
      {"input -1", {{"script", "1"}, {"inputSource", -1}}, "Choose the input from the menu."},
      {"output 3", {{"script", "1"}, {"output", 3}}, "Choose where the result goes from the menu."},
      {"typed input blank", {{"script", "1"}, {"inputSource", 1}, {"inputText", "  "}},
       "Type the input text in the box, or choose another input."},
      {"typed input under its alias", {{"script", "1"}, {"inputSource", 1}, {"text", "a"}}, std::nullopt},
      {"time limit 0.05", {{"script", "1"}, {"timeLimit", 0.05}},
       "The time limit must be between 0.1 and 60 seconds."},
      {"time limit 61", {{"script", "1"}, {"timeout", 61}}, "The time limit must be between 0.1 and 60 seconds."},
      {"time limit 0.1 and 60", {{"script", "1"}, {"timeLimit", 0.1}, {"timeout", 60}}, std::nullopt},
  };
  JavaScriptPlugin plugin(sim::makeSimPlatform(std::make_shared<sim::SimDesktop>()));
  for (const Case& c : cases) EXPECT_EQ(plugin.validate(c.data), c.problem) << c.name;
  EXPECT_EQ(PausePlugin::formatSeconds(0.1), "0.1 seconds");
  EXPECT_EQ(PausePlugin::formatSeconds(1), "1 second");
  EXPECT_EQ(PausePlugin::formatSeconds(2.50), "2.5 seconds");
  EXPECT_TRUE(plugin.requiresAccessibility({{"inputSource", 3}}));
  EXPECT_TRUE(plugin.requiresAccessibility({{"output", 2}}));
  EXPECT_FALSE(plugin.requiresAccessibility({{"inputSource", 2}, {"output", 1}}));
}

TEST_F(JavaScriptTest, ScriptsGiveTheirResultsAndFailures) {
  struct Case {
    const char* script;
    ActionData more;
    PluginResult expected;
  };
  const auto ok = [](std::string m) { return PluginResult::success(std::move(m)); };
  const auto no = [](std::string m) { return PluginResult::failure(std::move(m)); };
  const Case cases[] = {
      {"1+1", {}, ok("2")},
      {"input.toUpperCase()", {{"inputSource", 1}, {"inputText", "abc"}}, ok("ABC")},
      {"({a: 1})", {}, ok("{\n  \"a\": 1\n}")},
      {"console.log('hi')", {}, ok("hi")},
      {"console.log('a', 1); console.warn(null)", {}, ok("a 1\nnull")},
      {"let x = 1;", {}, ok("The script finished without a result.")},
      {"''", {}, ok("The script returned an empty text.")},
      {"'  padded  '", {}, ok("padded")},
      {"throw new Error('bad')", {}, no("The script stopped with an error on line 1: Error: bad. Fix it, then click Test again.")},
      {"\n\nthrow 5", {}, no("The script stopped with an error: 5. Fix it, then click Test again.")},
      {"1 +", {}, no("The script has a syntax error on line 1: Unexpected end of script. Fix it, then click Test again.")},
      {"typeof setTimeout + typeof fetch + typeof require", {}, ok("undefinedundefinedundefined")},
      {"readTextFile('x')", {}, no("The script stopped with an error on line 1: ReferenceError: Can't find variable: "
                                   "readTextFile. Fix it, then click Test again.")},
      {"Promise.resolve(5)", {}, ok("5")},
      {"Promise.reject(new TypeError('no'))", {}, no("The script stopped with an error on line 1: TypeError: no. Fix it, then click Test again.")},
      {"new Promise(() => {})", {}, no("The script returned a promise that never settled. Timers and events do not run "
                                       "here; return the value itself.")},
      {"while (true) {}", {{"timeLimit", 0.1}}, no("The script ran longer than its time limit of 0.1 seconds and was "
                                                   "stopped. Make it faster, or raise the time limit (at most 60 seconds).")},
      {"'x'.repeat(1000001)", {}, no("The script's result is longer than 1,000,000 characters. Return a shorter text.")},
      {"[1, 'two', null]", {}, ok("[\n  1,\n  \"two\",\n  null\n]")},
      {"(() => 1)", {}, ok("() => 1")},
      {"({toJSON() { throw 1 }, toString() { return 'own' }})", {}, ok("own")},
      {"JSON = null; String = null; ({b: [2]})", {}, ok("{\n  \"b\": [\n    2\n  ]\n}")},
  };
  for (const Case& c : cases) EXPECT_EQ(run(c.script, c.more), c.expected) << c.script;
}

TEST_F(JavaScriptTest, LongResultsAreShortenedInTheMessageAndWrittenWhole) {
  const PluginResult shown = run("'x'.repeat(2500)");
  EXPECT_EQ(shown, PluginResult::success(std::string(2000, 'x') + "\u2026 (2500 characters)"));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
  const PluginResult copied = run("'y'.repeat(2500) + ' '", {{"output", 1}});
  EXPECT_EQ(desktop->clipboardText(), std::string(2500, 'y') + " ");
  EXPECT_EQ(copied, PluginResult::success("JavaScript result (now on the clipboard):\n" + std::string(400, 'y') +
                                          "\u2026 (2501 characters)"));
}

TEST_F(JavaScriptTest, InputsComeFromTheClipboardAndTheSelection) {
  desktop->setClipboardText("from the clipboard");
  EXPECT_EQ(run("input.length", {{"inputSource", 2}}), PluginResult::success("18"));
  desktop->setClipboardText(std::nullopt);
  EXPECT_EQ(run("input", {{"inputSource", 2}}),
            PluginResult::failure("The clipboard has no text. Copy some text first, or choose another input."));

  desktop->setClipboardItems(kUserClipboard);
  EXPECT_EQ(run("input.toUpperCase()", {{"inputSource", 3}}), PluginResult::success("HELLO"));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);

  EXPECT_EQ(run("input.toUpperCase()", {{"inputSource", 3}, {"output", 2}}), PluginResult::silentSuccess());
  EXPECT_EQ(desktop->textFieldValue(300), "HELLO world");
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);

  desktop->setClipboardText(std::string(1'000'001, 'a'));
  EXPECT_EQ(run("input", {{"inputSource", 2}}),
            PluginResult::failure("The input is longer than 1,000,000 characters. Use a shorter text."));
}

// Whatever ends the run, the user's clipboard comes back byte for byte,
// except where the result is meant to stay on it.
TEST_F(JavaScriptTest, TheClipboardIsRestoredOnEveryWayOut) {
  struct Case {
    const char* name;
    std::string script;
    std::optional<Kind> forced;
    std::int64_t output;
  };
  const Case cases[] = {
      {"thrown", "throw new Error('x')", std::nullopt, 0},
      {"syntax", "(", std::nullopt, 2},
      {"time limit", "1", Kind::timedOut, 2},
      {"memory", "1", Kind::memoryExceeded, 0},
      {"no result, paste", "undefined", std::nullopt, 2},
      {"no result, clipboard", "undefined", std::nullopt, 1},
      {"too long", "'x'.repeat(1000001)", std::nullopt, 1},
      {"shown", "input", std::nullopt, 0},
  };
  for (const Case& c : cases) {
    desktop->setClipboardItems(kUserClipboard);
    desktop->setTextField(300, sim::SimTextField{u"hello world", 0, 5, std::nullopt});
    desktop->forceNextJavaScriptOutcome(c.forced);
    (void)run(c.script, {{"inputSource", 3}, {"output", c.output}});
    EXPECT_EQ(desktop->clipboardItems(), kUserClipboard) << c.name;
    EXPECT_EQ(desktop->textFieldValue(300), "hello world") << c.name;
  }
  EXPECT_EQ(run("1", {{"output", 1}}), PluginResult::success("JavaScript result (now on the clipboard):\n1"));
  desktop->forceNextJavaScriptOutcome(Kind::memoryExceeded);
  EXPECT_EQ(run("1"), PluginResult::failure("The script used more than 256 MB of memory and was stopped. Make it use "
                                            "less memory, then click Test again."));
}

TEST_F(JavaScriptTest, SelectionNeedsTrustAndAnApp) {
  desktop->setAccessibilityTrusted(false);
  EXPECT_TRUE(run("1", {{"output", 2}}).isFailure());
  EXPECT_EQ(run("1", {{"inputSource", 3}}).message().rfind("Accessibility permission is required to read or replace", 0), 0u);
  desktop->setAccessibilityTrusted(true);
  desktop->setFrontmost(desktop->host().processIdentifier);
  EXPECT_EQ(run("1", {{"output", 2}}),
            PluginResult::failure("No app to paste into. Click into the app with the text you want, then click Test again."));
  EXPECT_EQ(desktop->clipboardItems(), kUserClipboard);
}

TEST_F(JavaScriptTest, FileReadsAreTheHostsAndKeepTheirLimits) {
  std::ofstream(folder / "notes.txt") << "caf\xC3\xA9";
  std::ofstream(folder / "binary.dat", std::ios::binary) << std::string("\xFF\xFE", 2);
  std::ofstream(folder / "big.txt") << std::string((1 << 20) + 1, 'a');
  std::ofstream(folder / "limit.txt") << std::string(1 << 20, 'a');
  fs::create_directories(folder / "folder");
  const ActionData allowed{{"allowFileRead", true}};
  struct Case {
    std::string script;
    std::string expected;
  };
  const auto error = [](std::string text) {
    return "The script stopped with an error on line 1: Error: " + text + ". Fix it, then click Test again.";
  };
  const Case cases[] = {
      {"readTextFile('~/notes.txt').toUpperCase()", "CAFÉ"},
      {"readTextFile('~/limit.txt').length", "1048576"},
      {"readTextFile('~/missing.txt')", error("Cannot read ~/missing.txt: there is no such file")},
      {"readTextFile('~/folder')", error("Cannot read ~/folder: it is a folder")},
      {"readTextFile('~/big.txt')", error("Cannot read ~/big.txt: it is larger than 1 MiB")},
      {"readTextFile('~/binary.dat')", error("Cannot read ~/binary.dat: it is not UTF-8 text")},
      {"try { readTextFile('~/gone') } catch (e) { e.message.startsWith('Cannot read ~/gone') }", "true"},
      {"typeof httpGet", "undefined"},
  };
  for (const Case& c : cases) EXPECT_EQ(run(c.script, allowed).message(), c.expected) << c.script;
}

TEST_F(JavaScriptTest, WebRequestsAreTheHostsAndKeepTheirLimits) {
  testing::TestHttpServer server;
  server.reply("/ok", testing::Reply::text(200, "hello"));
  server.reply("/missing", testing::Reply::text(404, "gone"));
  server.reply("/big", {200, "", "text/plain", {}, testing::Reply::Behaviour::streamed, (1u << 20) + 1, ""});
  server.reply("/stall", {200, "", "text/plain", std::chrono::milliseconds(30'000), testing::Reply::Behaviour::whole, 0, ""});
  const ActionData allowed{{"allowNetwork", true}, {"timeLimit", 2}};
  const std::string ok = server.url("/ok");
  const auto error = [](std::string text) {
    return "The script stopped with an error on line 1: Error: " + text + ". Fix it, then click Test again.";
  };
  EXPECT_EQ(run("httpGet('" + ok + "') + typeof readTextFile", allowed).message(), "helloundefined");
  EXPECT_EQ(run("httpGet('" + server.url("/missing") + "')", allowed).message(), error("HTTP 404"));
  EXPECT_EQ(run("httpGet('" + server.url("/big") + "')", allowed).message(), error("The answer is larger than 1 MiB"));
  EXPECT_EQ(run("httpGet('file:///etc/passwd')", allowed).message(),
            error("httpGet takes only http and https addresses"));
  EXPECT_EQ(run("let n = 0; try { for (;;) { httpGet('" + ok + "'); n++ } } catch (e) { n + ' ' + e.message }", allowed)
                .message(),
            "20 httpGet makes at most 20 requests in one run");
  // A server that never answers costs the script its time limit, no more.
  EXPECT_EQ(run("httpGet('" + server.url("/stall") + "')", allowed).message(),
            "The script ran longer than its time limit of 2 seconds and was stopped. Make it faster, or raise the time "
            "limit (at most 60 seconds).");
}

TEST_F(JavaScriptTest, AMissingOrBrokenWorkerGivesItsSentence) {
  std::ofstream(folder / "crash.sh") << "#!/bin/sh\nprintf '\\022\\000\\000\\000{\"type\":\"started\"}'\nkill -SEGV $$\n";
  fs::permissions(folder / "crash.sh", fs::perms::owner_all);
  // Closes its output and lingers: nothing waits for it.
  std::ofstream(folder / "linger.sh") << "#!/bin/sh\nexec >&-\nexec sleep 30\n";
  fs::permissions(folder / "linger.sh", fs::perms::owner_all);
  struct Case {
    std::string worker;
    std::string expected;
  };
  const Case cases[] = {
      {(folder / "nothing-here").string(),
       "The JavaScript engine could not be started. Reinstall Orla, then click Test again."},
      {"/bin/false", "The JavaScript engine could not be started. Reinstall Orla, then click Test again."},
      {(folder / "linger.sh").string(),
       "The JavaScript engine could not be started. Reinstall Orla, then click Test again."},
      {(folder / "crash.sh").string(),
       "The JavaScript engine stopped unexpectedly while running the script. Simplify the script, then click Test "
       "again."},
  };
  for (const Case& c : cases) {
    ::setenv("ORLA_JAVASCRIPT_WORKER", c.worker.c_str(), 1);
    JavaScriptPlugin broken(sim::makeSimPlatform(desktop));
    desktop->setClipboardItems(kUserClipboard);
    EXPECT_EQ(broken.execute({{"script", "1"}, {"inputSource", 3}}), PluginResult::failure(c.expected)) << c.worker;
    EXPECT_EQ(desktop->clipboardItems(), kUserClipboard) << c.worker;
  }
  useBuiltJavaScriptWorker();
}

}  // namespace
}  // namespace orla
