#include "plugins/scripts/web_api_plugin.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/sim_fixture.h"
#include "tests/support/test_http_server.h"

namespace orla {
namespace {

using testing::Reply;
using testing::TestHttpServer;

class WebAPIPluginTest : public testing::SimTest {
 protected:
  PluginResult run(ActionData data) { return plugin.execute(data); }
  ActionData at(std::string_view path, ActionData extra = {}) {
    extra["url"] = server.url(path);
    return extra;
  }

  TestHttpServer server;
  WebAPIPlugin plugin{platform};
};

TEST_F(WebAPIPluginTest, ValidateChecksAddressMethodHeadersAndTimeOutInThatOrder) {
  const std::string url = "https://example.com/api";
  const std::string address = "Enter a full URL starting with http:// or https://.";
  const std::string method = "Choose a method: GET, POST, PUT, PATCH, or DELETE.";
  const std::string object = R"(Headers must be a JSON object, for example {"Accept": "application/json"}.)";
  const std::string timeout = "Timeout must be greater than 0 seconds.";
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> message;
  };
  const Case cases[] = {
      {"no url", {}, "Enter a URL, for example https://example.com/api/items."},
      {"blank url", {{"url", "  \n"}}, "Enter a URL, for example https://example.com/api/items."},
      {"url not text", {{"url", 5}}, "Enter a URL, for example https://example.com/api/items."},
      {"no scheme", {{"url", "example.com/api"}}, address},
      {"ftp", {{"url", "ftp://example.com/file"}}, address},
      {"no host", {{"url", "http:///path"}}, address},
      {"spaces", {{"url", "http://exa mple.com"}}, address},
      {"credentials", {{"url", "https://ada:pw@example.com/"}},
       "Remove the user name and password from the URL and send them in an “Authorization” header instead."},
      {"trimmed url, upper-case scheme", {{"url", "  HTTPS://example.com/api \n"}}, std::nullopt},
      {"method lower case with spaces", {{"url", url}, {"method", " post "}}, std::nullopt},
      {"method HEAD", {{"url", url}, {"method", "HEAD"}}, method},
      {"bad url wins over bad method", {{"url", "ftp://x"}, {"method", "HEAD"}}, address},
      {"headers array", {{"url", url}, {"headers", "[1, 2]"}}, object},
      {"headers not JSON", {{"url", url}, {"headers", "{Accept: json}"}}, object},
      {"headers blank", {{"url", url}, {"headers", "   "}}, std::nullopt},
      {"header number", {{"url", url}, {"headers", R"({"Accept": "a", "X-Count": 3})"}},
       "Header “X-Count” must be text, not a number or a list."},
      {"header list", {{"url", url}, {"headers", R"({"X-List": ["a"]})"}},
       "Header “X-List” must be text, not a number or a list."},
      {"header value with a line break", {{"url", url}, {"headers", R"({"X-Evil": "a\r\nHost: other"})"}},
       "Header “X-Evil” must fit on one line: remove the line breaks from its value."},
      {"header name with a space", {{"url", url}, {"headers", R"({"X Evil": "a"})"}},
       "Header “X Evil” is not a valid header name: use letters, digits and hyphens."},
      {"bad method wins over bad headers", {{"url", url}, {"method", "TRACE"}, {"headers", "[]"}}, method},
      {"timeout 0", {{"url", url}, {"timeout", 0}}, timeout},
      {"timeout -1", {{"url", url}, {"timeout", -1.0}}, timeout},
      {"timeout false", {{"url", url}, {"timeout", false}}, timeout},
      {"timeout NaN", {{"url", url}, {"timeout", std::nan("")}}, timeout},
      {"timeout text is not checked", {{"url", url}, {"timeout", "-5"}}, std::nullopt},
      {"timeout huge", {{"url", url}, {"timeout", 1e308}}, std::nullopt},
      {"timeout true", {{"url", url}, {"timeout", true}}, std::nullopt},
      {"bad headers win over bad timeout", {{"url", url}, {"headers", "1"}, {"timeout", 0}}, object},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(plugin.validate(c.data), c.message);
    if (c.message) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.message));
    }
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_FALSE(plugin.requiresAccessibility({}));
}

TEST_F(WebAPIPluginTest, ReadersApplyTheirDefaults) {
  EXPECT_EQ(WebAPIPlugin::httpMethod({}), "GET");
  EXPECT_EQ(WebAPIPlugin::httpMethod({{"method", "  "}}), "GET");
  EXPECT_EQ(WebAPIPlugin::httpMethod({{"method", " patch\n"}}), "PATCH");
  EXPECT_EQ(WebAPIPlugin::httpMethod({{"method", "po\xEF\xAC\x86"}}), "POST") << "full case mapping of ﬆ";
  EXPECT_EQ(WebAPIPlugin::timeout({}), 30);
  EXPECT_EQ(WebAPIPlugin::timeout({{"timeout", "5"}}), 30);
  EXPECT_EQ(WebAPIPlugin::timeout({{"timeout", 5}}), 5);
  EXPECT_EQ(WebAPIPlugin::timeout({{"timeout", 2.5}}), 2.5);
  EXPECT_EQ(WebAPIPlugin::timeout({{"timeout", true}}), 1);
}

TEST_F(WebAPIPluginTest, ResultCarriesStatusAndTheBeginningOfTheAnswer) {
  const std::string longText(2500, 'l');
  Reply huge;
  huge.behaviour = Reply::Behaviour::streamed;
  huge.streamedBytes = std::size_t{100} << 20;
  huge.contentType = "text/plain";
  struct Case {
    const char* name;
    Reply reply;
    PluginResult expected;
  };
  const Case cases[] = {
      {"200 with text", Reply::text(200, "  hello\n"), PluginResult::success("HTTP 200\nhello")},
      {"201 JSON", Reply::json(201, {{"id", 7}}), PluginResult::success("HTTP 201\n{\"id\":7}")},
      {"204 empty", Reply::text(204, ""), PluginResult::success("HTTP 204. The server sent no text.")},
      {"200 blank", Reply::text(200, " \n\t "), PluginResult::success("HTTP 200. The server sent no text.")},
      {"404 with text", Reply::text(404, "no such item"), PluginResult::failure("HTTP 404\nno such item")},
      {"500 HTML", Reply::text(500, "<html><body>Oops</body></html>", "text/html"),
       PluginResult::failure("HTTP 500\n<html><body>Oops</body></html>")},
      {"2500 characters", Reply::text(200, longText), PluginResult::success(std::string("HTTP 200\n") + std::string(2000, 'l') + "...")},
      {"2000 characters", Reply::text(200, std::string(2000, 'k')), PluginResult::success(std::string("HTTP 200\n") + std::string(2000, 'k'))},
      {"characters, not bytes", Reply::text(200, std::string(1999, 'a') + "e\xCC\x81" + "🙂"),
       PluginResult::success(std::string("HTTP 200\n") + std::string(1999, 'a') + "e\xCC\x81...")},
      {"invalid UTF-8", Reply::text(200, "ab\xFF\xFE"), PluginResult::success("HTTP 200. The server sent no text.")},
      {"100 MiB", huge, PluginResult::success(std::string("HTTP 200\n") + std::string(2000, 'x') + "...")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    server.reply("/r", c.reply);
    EXPECT_EQ(run(at("/r")), c.expected);
  }
}

TEST_F(WebAPIPluginTest, SendsTheRequestAsConfigured) {
  server.reply("/items", Reply::text(200, "ok"));
  ASSERT_EQ(run(at("/items?page=2", {{"method", " put "},
                                     {"headers", R"({"Accept": "application/json", "X-Token": "t-1"})"},
                                     {"body", "  {\"name\": \"Ada\"}\n"}})),
            PluginResult::success("HTTP 200\nok"));
  auto sent = server.lastRequest();
  EXPECT_EQ(sent.method, "PUT");
  EXPECT_EQ(sent.target, "/items?page=2");
  EXPECT_EQ(sent.header("Accept"), "application/json");
  EXPECT_EQ(sent.header("X-Token"), "t-1");
  EXPECT_EQ(sent.header("Content-Type"), "application/json") << "the default for a body";
  EXPECT_EQ(sent.body, "{\"name\": \"Ada\"}") << "trimmed";

  ASSERT_FALSE(run(at("/items", {{"method", "POST"}, {"headers", R"({"content-type": "text/csv"})"}, {"body", "a,b"}}))
                   .isFailure());
  sent = server.lastRequest();
  EXPECT_EQ(sent.header("Content-Type"), "text/csv") << "the user's own type is kept";
  EXPECT_EQ(std::count_if(sent.headers.begin(), sent.headers.end(),
                          [](const auto& h) { return h.first == "Content-Type" || h.first == "content-type"; }),
            1);

  ASSERT_FALSE(run(at("/items", {{"method", "DELETE"}, {"body", "   "}})).isFailure());
  sent = server.lastRequest();
  EXPECT_EQ(sent.method, "DELETE");
  EXPECT_EQ(sent.body, "");
  EXPECT_EQ(sent.header("Content-Type"), std::nullopt) << "no body, no content type";

  // The trace names the request without its query, which may hold a token.
  EXPECT_EQ(desktop->trace("http").back().text, "DELETE " + server.url("/items"));
  EXPECT_EQ(desktop->trace("http").front().text, "PUT " + server.url("/items"));
}

TEST_F(WebAPIPluginTest, SendsALargeBody) {
  server.reply("/upload", Reply::text(200, "stored"));
  const std::string body(std::size_t{50} << 20, 'b');
  EXPECT_EQ(run(at("/upload", {{"method", "POST"}, {"body", body}, {"timeout", 1e308}})),
            PluginResult::success("HTTP 200\nstored"));
  EXPECT_EQ(server.lastRequest().body.size(), body.size());
}

TEST_F(WebAPIPluginTest, TransportProblemsAreReportedWithTheirDescription) {
  Reply closing = Reply::text(200, std::string(1000, 'c'));
  closing.behaviour = Reply::Behaviour::closeMidBody;
  server.reply("/close", closing);
  EXPECT_EQ(run(at("/close")), PluginResult::failure("HTTP request failed: The network connection was lost."));

  Reply stalling = Reply::text(200, std::string(1000, 's'));
  stalling.behaviour = Reply::Behaviour::stallMidBody;
  server.reply("/stall", stalling);
  EXPECT_EQ(run(at("/stall", {{"timeout", 0.3}})), PluginResult::failure("HTTP request failed: The request timed out."));

  const std::string closed = "http://127.0.0.1:" + std::to_string(TestHttpServer::closedPort()) + "/";
  EXPECT_EQ(run({{"url", closed}}), PluginResult::failure("HTTP request failed: Could not connect to the server."));
}

// A server that never goes idle and never finishes: only the plugin's own
// wait (the time-out plus 5 seconds) ends it. This takes about 5.5 s.
TEST_F(WebAPIPluginTest, GivesUpAfterTheTimeOutPlusFiveSeconds) {
  Reply trickle = Reply::text(200, std::string(1000, 't'));
  trickle.behaviour = Reply::Behaviour::trickle;
  server.reply("/trickle", trickle);
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(run(at("/trickle", {{"timeout", 0.5}})), PluginResult::failure("HTTP request timed out"));
  const auto waited = std::chrono::steady_clock::now() - started;
  EXPECT_GE(waited, std::chrono::milliseconds(5500));
  EXPECT_LT(waited, std::chrono::seconds(15));
}

}  // namespace
}  // namespace orla
