#include "plugins/scripts/ai_action_plugin.h"

#include <gtest/gtest.h>

#include <cmath>

#include "plugins/scripts/secret_store.h"
#include "tests/sim_fixture.h"
#include "tests/support/test_http_server.h"

namespace orla {
namespace {

using nlohmann::json;
using testing::Reply;
using testing::TestHttpServer;
using namespace std::chrono_literals;

const std::string kKey = "sk-SECRET-0123456789";

class AIActionPluginTest : public testing::SimTest {
 protected:
  AIActionPluginTest() {
    AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>(platform));
    server.reply("/v1/chat/completions", Reply::openAI("Hello from OpenAI"));
    server.reply("/v1/messages", Reply::anthropic("Hello from Anthropic"));
    server.reply("/api/chat", Reply::ollamaChat("Hello from Ollama"));
    server.reply("/api/generate", Reply::ollamaGenerate("Generated"));
  }
  ~AIActionPluginTest() override { AIActionKeyStore::setBackend(std::make_shared<KeychainSecretBackend>()); }

  AIActionPlugin::Service service() {
    AIActionPlugin::Service s;
    s.openAIEndpoint = server.url("/v1/chat/completions");
    s.anthropicEndpoint = server.url("/v1/messages");
    s.localEndpoint = server.url("/api/chat");
    s.requestTimeout = 5s;
    s.wait = 10s;
    return s;
  }

  std::optional<std::string> storedKey(std::string_view provider) {
    for (const auto& item : desktop->keychain().items())
      if (item.account == AIActionKeyStore::account(provider)) return item.data;
    return std::nullopt;
  }

  TestHttpServer server;
  AIActionPlugin plugin{platform, service()};
};

TEST_F(AIActionPluginTest, ValidateChecksProviderPromptKeyAndAddress) {
  const std::string openAIKey = "Enter an OpenAI API key.";
  const std::string localAddress = "Enter a full model address starting with http:// or https://.";
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> message;
  };
  const Case cases[] = {
      {"unknown provider", {{"provider", "mistral"}, {"prompt", "hi"}},
       "Unknown AI provider. Choose OpenAI, Anthropic, or Local."},
      {"unknown provider before the prompt", {{"provider", "x"}}, "Unknown AI provider. Choose OpenAI, Anthropic, or Local."},
      {"no prompt", {{"apiKey", "k"}}, "Enter a prompt to send to the model."},
      {"blank prompt", {{"prompt", " \n "}, {"apiKey", "k"}}, "Enter a prompt to send to the model."},
      {"openai without key", {{"prompt", "hi"}}, openAIKey},
      {"openai with the marker only", {{"prompt", "hi"}, {"apiKey", "<keychain>"}}, openAIKey},
      {"openai with a blank key", {{"prompt", "hi"}, {"apiKey", "   "}}, openAIKey},
      {"anthropic without key", {{"provider", " Anthropic "}, {"prompt", "hi"}}, "Enter an Anthropic API key."},
      {"openai with a key", {{"prompt", "hi"}, {"apiKey", "k"}}, std::nullopt},
      {"local needs no key", {{"provider", "local"}, {"prompt", "hi"}}, std::nullopt},
      {"local ftp", {{"provider", "local"}, {"prompt", "hi"}, {"endpoint", "ftp://127.0.0.1/api"}}, localAddress},
      {"local no host", {{"provider", "local"}, {"prompt", "hi"}, {"endpoint", "http:///api/chat"}}, localAddress},
      {"local not an address", {{"provider", "local"}, {"prompt", "hi"}, {"endpoint", "localhost:11434"}}, localAddress},
      {"local https", {{"provider", "LOCAL"}, {"prompt", "hi"}, {"endpoint", " HTTPS://models.lan/v1/chat/completions "}},
       std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(plugin.validate(c.data), c.message);
    if (c.message) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.message));
    }
  }
  EXPECT_TRUE(server.requests().empty());

  // A key in the keychain counts, for its own provider only.
  AIActionKeyStore::save("anthropic", "stored");
  EXPECT_EQ(plugin.validate({{"provider", "anthropic"}, {"prompt", "hi"}, {"apiKey", "<keychain>"}}), std::nullopt);
  EXPECT_EQ(plugin.validate({{"prompt", "hi"}}), openAIKey);
  EXPECT_FALSE(plugin.requiresAccessibility({}));
}

TEST_F(AIActionPluginTest, ReadersApplyTheirDefaults) {
  EXPECT_EQ(AIActionPlugin::provider({}), "openai");
  EXPECT_EQ(AIActionPlugin::provider({{"provider", " Anthropic "}}), "anthropic");
  EXPECT_EQ(AIActionPlugin::model({}, "openai"), "gpt-4o-mini");
  EXPECT_EQ(AIActionPlugin::model({}, "anthropic"), "claude-sonnet-4-20250514");
  EXPECT_EQ(AIActionPlugin::model({}, "local"), "gemma3:4b");
  EXPECT_EQ(AIActionPlugin::model({{"model", " gpt-4.1 "}}, "openai"), "gpt-4.1");
  const std::pair<ActionData, double> temperatures[] = {
      {{}, 0.7}, {{{"temperature", "0.2"}}, 0.7}, {{{"temperature", 1}}, 1.0}, {{{"temperature", 0.25}}, 0.25},
      {{{"temperature", true}}, 1.0}, {{{"temperature", false}}, 0.0}, {{{"temperature", AnyArray{}}}, 0.7}};
  for (const auto& [data, value] : temperatures) EXPECT_EQ(AIActionPlugin::temperature(data), value);
  EXPECT_EQ(AIActionPlugin::maxTokens({}), 1024);
  EXPECT_EQ(AIActionPlugin::maxTokens({{"maxTokens", " 42 "}}), 42);
  EXPECT_EQ(AIActionPlugin::maxTokens({{"maxTokens", -5}}), -5) << "no clamping";
}

TEST_F(AIActionPluginTest, BuildsEachProvidersRequestExactly) {
  struct Case {
    const char* name;
    ActionData data;
    std::string path;
    json body;
    std::vector<std::pair<std::string, std::string>> headers;  // that must be present
    std::vector<std::string> absent;                           // headers that must not be
    std::string answer;
  };
  const Case cases[] = {
      {"openai by default",
       {{"prompt", " hi "}, {"apiKey", kKey}},
       "/v1/chat/completions",
       {{"model", "gpt-4o-mini"}, {"messages", {{{"role", "user"}, {"content", "hi"}}}}, {"temperature", 0.7}, {"max_tokens", 1024}},
       {{"Authorization", "Bearer " + kKey}, {"Content-Type", "application/json"}},
       {"x-api-key"},
       "Hello from OpenAI"},
      {"openai with system prompt, int temperature and token text",
       {{"prompt", "hi"}, {"apiKey", kKey}, {"systemPrompt", " Be brief. "}, {"temperature", 1},
        {"maxTokens", "64"}, {"model", "gpt-4.1"}},
       "/v1/chat/completions",
       {{"model", "gpt-4.1"},
        {"messages", {{{"role", "system"}, {"content", " Be brief. "}}, {{"role", "user"}, {"content", "hi"}}}},
        {"temperature", 1.0},
        {"max_tokens", 64}},
       {{"Authorization", "Bearer " + kKey}},
       {},
       "Hello from OpenAI"},
      {"anthropic without temperature, system of spaces sent",
       {{"provider", " Anthropic "}, {"prompt", "hi"}, {"apiKey", kKey}, {"systemPrompt", "   "},
        {"temperature", 0.1}},
       "/v1/messages",
       {{"model", "claude-sonnet-4-20250514"}, {"max_tokens", 1024}, {"messages", {{{"role", "user"}, {"content", "hi"}}}},
        {"system", "   "}},
       {{"x-api-key", kKey}, {"anthropic-version", "2023-06-01"}, {"Content-Type", "application/json"}},
       {"Authorization"},
       "Hello from Anthropic"},
      {"anthropic without system prompt",
       {{"provider", "anthropic"}, {"prompt", "hi"}, {"apiKey", kKey}, {"systemPrompt", ""}},
       "/v1/messages",
       {{"model", "claude-sonnet-4-20250514"}, {"max_tokens", 1024}, {"messages", {{{"role", "user"}, {"content", "hi"}}}}},
       {},
       {},
       "Hello from Anthropic"},
      {"local default: the Ollama chat form, no key sent",
       {{"provider", "local"}, {"prompt", "hi"}, {"apiKey", kKey}, {"systemPrompt", "sys"}},
       "/api/chat",
       {{"model", "gemma3:4b"},
        {"messages", {{{"role", "system"}, {"content", "sys"}}, {{"role", "user"}, {"content", "hi"}}}},
        {"stream", false},
        {"options", {{"temperature", 0.7}, {"num_predict", 1024}}}},
       {{"Content-Type", "application/json"}},
       {"Authorization", "x-api-key"},
       "Hello from Ollama"},
      {"local generate",
       {{"provider", "local"}, {"prompt", "hi"}, {"endpoint", "@/api/generate"}, {"temperature", "0.2"}},
       "/api/generate",
       {{"model", "gemma3:4b"}, {"prompt", "hi"}, {"system", ""}, {"stream", false},
        {"options", {{"temperature", 0.7}, {"num_predict", 1024}}}},
       {},
       {"Authorization", "x-api-key"},
       "Generated"},
      {"local chat completions: the OpenAI shape without a key",
       {{"provider", "local"}, {"prompt", "hi"}, {"endpoint", "@/v1/chat/completions"}, {"apiKey", kKey},
        {"model", "llama3"}},
       "/v1/chat/completions",
       {{"model", "llama3"}, {"messages", {{{"role", "user"}, {"content", "hi"}}}}, {"temperature", 0.7}, {"max_tokens", 1024}},
       {},
       {"Authorization", "x-api-key"},
       "Hello from OpenAI"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ActionData data = c.data;
    if (auto it = data.find("endpoint"); it != data.end())
      it->second = server.url(it->second.asString()->substr(1));
    desktop->keychain().setItems({});
    EXPECT_EQ(plugin.execute(data), PluginResult::success(c.answer));
    const auto sent = server.lastRequest();
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.path, c.path);
    const json body = sent.json();
    EXPECT_EQ(body, c.body);
    // Numbers keep their kinds: temperature floating, token limits integral.
    for (const json* node : {&body, body.contains("options") ? &body["options"] : &body}) {
      if (node->contains("temperature")) {
        EXPECT_TRUE((*node)["temperature"].is_number_float());
      }
      for (const char* key : {"max_tokens", "num_predict"}) {
        if (node->contains(key)) {
          EXPECT_TRUE((*node)[key].is_number_integer()) << key;
        }
      }
    }
    for (const auto& [name, value] : c.headers) EXPECT_EQ(sent.header(name), value) << name;
    for (const auto& name : c.absent) EXPECT_EQ(sent.header(name), std::nullopt) << name;
  }
}

TEST_F(AIActionPluginTest, AnswerIsTrimmedAndCutAt4000Characters) {
  const std::pair<std::string, std::string> cases[] = {
      {"\n  An answer. \n", "An answer."},
      {" \n\t ", "The model returned no text."},
      {"", "The model returned no text."},
      {std::string(4000, 'a'), std::string(4000, 'a')},
      {std::string(4001, 'b'), std::string(4000, 'b') + "..."},
      {std::string(3999, 'c') + "🇫🇷🇩🇪", std::string(3999, 'c') + "🇫🇷..."},
  };
  for (const auto& [answer, message] : cases) {
    server.reply("/v1/chat/completions", Reply::openAI(answer));
    EXPECT_EQ(plugin.execute({{"prompt", "hi"}, {"apiKey", "k"}}), PluginResult::success(message));
  }
}

Reply withBehaviour(Reply reply, Reply::Behaviour behaviour) {
  reply.behaviour = behaviour;
  return reply;
}

// Every way a request can fail, with the sentence it gives. None may show
// the key, whichever provider sent it and whatever the service answered.
TEST_F(AIActionPluginTest, EveryFailureHasItsSentenceAndNeverShowsTheKey) {
  Reply huge;
  huge.behaviour = Reply::Behaviour::streamed;
  huge.streamedBytes = std::size_t{100} << 20;
  Reply redirect = Reply::text(307, "");
  redirect.location = "/elsewhere";
  const std::string& key = kKey;
  const std::string quotesKey = std::string("Incorrect API key provided: ").append(kKey).append(".");
  const std::string notJson500 = "The model service returned HTTP 500 and the body was not JSON.";
  struct Case {
    const char* name;
    Reply reply;
    std::string message;
  };
  const Case cases[] = {
      {"401 with an error object", Reply::json(401, {{"error", {{"message", "Invalid API key."}, {"type", "auth"}}}}),
       "Invalid API key."},
      {"error text with a 200 status", Reply::json(200, {{"error", "Model is overloaded."}}), "Model is overloaded."},
      {"error that quotes the key", Reply::json(401, {{"error", {{"message", quotesKey}}}}),
       "Incorrect API key provided: [hidden API key]."},
      {"empty error message falls to the status", Reply::json(429, {{"error", {{"message", ""}}}}),
       "The model service returned HTTP 429."},
      {"500 HTML", Reply::text(500, "<html>Internal error</html>", "text/html"), notJson500},
      {"200 not JSON", Reply::text(200, "plain words"), "The model service returned HTTP 200 and the body was not JSON."},
      {"200 JSON number", Reply::text(200, "42"), "The model service returned HTTP 200 and the body was not JSON."},
      {"invalid UTF-8", Reply::text(200, "{\"a\": \"\xFF\"}"), "The model service returned HTTP 200 and the body was not JSON."},
      {"204 empty", Reply::text(204, ""), "The model service returned HTTP 204 and the body was not JSON."},
      {"503 JSON", Reply::json(503, {{"status", "down"}}), "The model service returned HTTP 503."},
      {"redirects are not followed", redirect, "The model service returned HTTP 307 and the body was not JSON."},
      {"top-level list", Reply::text(200, "[1]"), "The model response was not in the expected shape."},
      {"100 MiB", huge,
       "The model service sent an answer of more than 4 MB, which Orla does not read; lower the token limit or check the model address."},
      {"closed mid-body", withBehaviour(Reply::openAI(std::string(1000, 'z')), Reply::Behaviour::closeMidBody),
       "AI request failed: The network connection was lost."},
      {"stalled mid-body", withBehaviour(Reply::openAI(std::string(1000, 'z')), Reply::Behaviour::stallMidBody),
       "AI request failed: The request timed out."},
      {"never idle, never done", withBehaviour(Reply::openAI(std::string(1000, 'z')), Reply::Behaviour::trickle),
       "AI request timed out"},
  };
  AIActionPlugin::Service quick = service();
  quick.requestTimeout = 500ms;
  quick.wait = 2s;
  AIActionPlugin impatient(platform, quick);
  for (const char* provider : {"openai", "anthropic"}) {
    const std::string path = provider == std::string("openai") ? "/v1/chat/completions" : "/v1/messages";
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(provider) + ": " + c.name);
      server.reply(path, c.reply);
      const PluginResult result = impatient.execute({{"provider", provider}, {"prompt", "hi"}, {"apiKey", key}});
      EXPECT_EQ(result, PluginResult::failure(c.message));
      EXPECT_EQ(result.message().find(kKey), std::string::npos);
    }
  }
  const std::string closed = "http://127.0.0.1:" + std::to_string(TestHttpServer::closedPort());
  AIActionPlugin::Service nowhere = service();
  nowhere.openAIEndpoint = closed + "/v1/chat/completions";
  EXPECT_EQ(AIActionPlugin(platform, nowhere).execute({{"prompt", "hi"}, {"apiKey", kKey}}),
            PluginResult::failure("AI request failed: Could not connect to the server."));
  nowhere.openAIEndpoint = "not an address";
  EXPECT_EQ(AIActionPlugin(platform, nowhere).execute({{"prompt", "hi"}, {"apiKey", kKey}}),
            PluginResult::failure("Invalid URL"));
  for (const ActionData& data : {ActionData{{"prompt", "hi"}, {"apiKey", kKey}, {"temperature", std::nan("")}},
                                 ActionData{{"prompt", "caf\xE9"}, {"apiKey", kKey}}})
    EXPECT_EQ(plugin.execute(data), PluginResult::failure("Failed to serialize request body"));


  const auto requests = server.requests();
  EXPECT_TRUE(std::none_of(requests.begin(), requests.end(), [](const auto& r) { return r.path == "/elsewhere"; }))
      << "a redirect is never followed with a key";
  for (const sim::TraceEntry& entry : desktop->trace())
    EXPECT_EQ(entry.text.find(kKey), std::string::npos) << entry.category << ": " << entry.text;
}

TEST_F(AIActionPluginTest, AnswerPathIsWalkedStepByStep) {
  struct Case {
    const char* provider;
    json body;
    std::string message;
  };
  const std::string shape = "The model response was not in the expected shape.";
  const Case cases[] = {
      {"openai", {{"id", "x"}}, "The model response did not include choices."},
      {"openai", {{"choices", json::array()}}, shape},
      {"openai", {{"choices", {{"message", "x"}}}}, shape},
      {"openai", {{"choices", {json::object()}}}, "The model response did not include message."},
      {"openai", {{"choices", {{{"message", "text"}}}}}, shape},
      {"openai", {{"choices", {{{"message", {{"role", "assistant"}}}}}}}, "The model response did not include content."},
      {"openai", {{"choices", {{{"message", {{"content", 5}}}}}}}, shape},
      {"openai", {{"choices", {{{"message", {{"content", nullptr}}}}}}}, shape},
      {"anthropic", {{"content", json::array()}}, shape},
      {"anthropic", {{"content", {json::object()}}}, "The model response did not include text."},
      {"anthropic", {{"content", "flat text"}}, shape},
      {"local", {{"message", "flat text"}}, shape},
      {"local", {{"done", true}}, "The model response did not include message."},
  };
  AIActionKeyStore::save("anthropic", "k");
  AIActionKeyStore::save("openai", "k");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.body.dump());
    for (const char* path : {"/v1/chat/completions", "/v1/messages", "/api/chat"}) server.reply(path, Reply::json(200, c.body));
    EXPECT_EQ(plugin.execute({{"provider", c.provider}, {"prompt", "hi"}}), PluginResult::failure(c.message));
  }
}

TEST_F(AIActionPluginTest, APlainKeyMovesToTheKeychainEvenWhenTheRequestFails) {
  server.reply("/v1/chat/completions", Reply::json(401, {{"error", {{"message", "Invalid API key."}}}}));
  EXPECT_TRUE(plugin.execute({{"prompt", "hi"}, {"apiKey", "  " + kKey + " "}}).isFailure());
  EXPECT_EQ(storedKey("openai"), kKey);

  // From now on the stored key is used, even over another plain one.
  server.reply("/v1/chat/completions", Reply::openAI("ok"));
  EXPECT_EQ(plugin.execute({{"prompt", "hi"}, {"apiKey", "sk-other"}}), PluginResult::success("ok"));
  EXPECT_EQ(server.lastRequest().header("Authorization"), "Bearer " + kKey);
  EXPECT_EQ(plugin.execute({{"prompt", "hi"}, {"apiKey", "<keychain>"}}), PluginResult::success("ok"));

  // A locked keychain hides the stored key: the action says what to do.
  desktop->keychain().setAccess(sim::SimKeychainAccess::locked);
  EXPECT_EQ(plugin.execute({{"prompt", "hi"}, {"apiKey", "<keychain>"}}),
            PluginResult::failure("Enter an OpenAI API key."));
}

}  // namespace
}  // namespace orla
