#include "plugins/scripts/ai_action_plugin.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include <orla/models/graphemes.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/scripts/secret_store.h"

namespace orla {

namespace {

using nlohmann::json;

constexpr std::string_view kJson = "application/json";

bool isLocalAddress(std::string_view address) {
  auto parts = parseUrl(address);
  return parts && (parts->scheme == "http" || parts->scheme == "https") && !parts->host.empty();
}

// Every role-and-content list is built the same way: an optional system
// message, then the prompt.
json messages(const std::optional<std::string>& system, const std::string& prompt) {
  json list = json::array();
  if (system) list.push_back({{"role", "system"}, {"content", *system}});
  list.push_back({{"role", "user"}, {"content", prompt}});
  return list;
}

// Keys never leave in a message, even when a service quotes one back in an
// error text.
std::string hideSecret(std::string message, std::string_view key) {
  if (key.empty()) return message;
  constexpr std::string_view hidden = "[hidden API key]";
  for (auto at = message.find(key); at != std::string::npos; at = message.find(key, at + hidden.size()))
    message.replace(at, key.size(), hidden);
  return message;
}

PluginResult withoutSecret(PluginResult result, std::string_view key) {
  if (key.empty() || !result.hasMessage()) return result;
  std::string message = hideSecret(result.message(), key);
  return result.isFailure() ? PluginResult::failure(std::move(message))
                            : PluginResult::success(std::move(message));
}

// The text at `path` inside `body`, or the sentence that says why not.
Checked<std::string> walk(const json& body, const std::vector<AIActionPlugin::PathStep>& path) {
  const Failure shape = fail("The model response was not in the expected shape.");
  const json* node = &body;
  for (const auto& step : path) {
    if (const auto* key = std::get_if<std::string_view>(&step)) {
      if (!node->is_object()) return shape;
      auto it = node->find(*key);
      if (it == node->end()) return fail(std::string("The model response did not include ").append(*key).append("."));
      node = &*it;
    } else {
      const std::size_t index = std::get<std::size_t>(step);
      if (!node->is_array() || node->size() <= index) return shape;
      node = &(*node)[index];
    }
  }
  if (!node->is_string()) return shape;
  return node->get<std::string>();
}

// "The model service returned HTTP " + status + the rest of the sentence.
std::string serviceStatus(int status, std::string_view rest) {
  std::string sentence = "The model service returned HTTP ";
  sentence += std::to_string(status);
  sentence += rest;
  return sentence;
}

// The service's own error text: "error" as an object with a non-empty
// "message", or "error" as a non-empty text.
std::optional<std::string> serviceError(const json& body) {
  if (!body.is_object()) return std::nullopt;
  auto error = body.find("error");
  if (error == body.end()) return std::nullopt;
  if (error->is_string() && !error->get_ref<const std::string&>().empty()) return error->get<std::string>();
  if (error->is_object()) {
    auto message = error->find("message");
    if (message != error->end() && message->is_string() && !message->get_ref<const std::string&>().empty())
      return message->get<std::string>();
  }
  return std::nullopt;
}

}  // namespace

AIActionPlugin::AIActionPlugin() : AIActionPlugin(Platform::current()) {}
AIActionPlugin::AIActionPlugin(std::shared_ptr<Platform> platform)
    : AIActionPlugin(std::move(platform), Service{}) {}
AIActionPlugin::AIActionPlugin(std::shared_ptr<Platform> platform, Service service)
    : platform_(std::move(platform)), service_(std::move(service)) {}

std::string AIActionPlugin::provider(const ActionData& data) {
  return readIdentifier(data, {"provider"}, "openai");
}

std::string AIActionPlugin::prompt(const ActionData& data) { return readStringOr(data, {"prompt"}); }

std::optional<std::string> AIActionPlugin::apiKey(const ActionData& data) {
  return readRawString(data, AIActionKeyStore::dataKey);
}

std::string AIActionPlugin::model(const ActionData& data, std::string_view provider) {
  if (auto name = readString(data, {"model"})) return *name;
  if (provider == "anthropic") return "claude-sonnet-4-20250514";
  if (provider == "local") return "gemma3:4b";
  return "gpt-4o-mini";
}

double AIActionPlugin::temperature(const ActionData& data) {
  const AnyCodable* value = lookup(data, "temperature");
  if (!value) return 0.7;
  if (auto i = value->asInt()) return static_cast<double>(*i);
  if (auto d = value->asDouble()) return *d;
  if (auto b = value->asBool()) return *b ? 1.0 : 0.0;
  return 0.7;
}

std::int64_t AIActionPlugin::maxTokens(const ActionData& data) { return readIntOr(data, {"maxTokens"}, 1024); }

std::string AIActionPlugin::localEndpoint(const ActionData& data) const {
  return readStringOr(data, {"endpoint"}, service_.localEndpoint);
}

std::optional<std::string> AIActionPlugin::validate(const ActionData& data) const {
  const std::string name = provider(data);
  if (name != "openai" && name != "anthropic" && name != "local")
    return "Unknown AI provider. Choose OpenAI, Anthropic, or Local.";
  if (prompt(data).empty()) return "Enter a prompt to send to the model.";
  if (name == "local") {
    if (!isLocalAddress(localEndpoint(data)))
      return "Enter a full model address starting with http:// or https://.";
    return std::nullopt;
  }
  if (!SecretMarker::isPlaintextSecret(apiKey(data)) && AIActionKeyStore::load(name).empty())
    return name == "anthropic" ? "Enter an Anthropic API key." : "Enter an OpenAI API key.";
  return std::nullopt;
}

PluginResult AIActionPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);

  const std::string name = provider(data);
  const std::string text = prompt(data);
  // Also moves a plain-text key into the keychain, even if the request
  // then fails.
  const std::string key = AIActionKeyStore::resolveKey(name, data);
  const std::string modelName = model(data, name);
  std::optional<std::string> system = readRawString(data, "systemPrompt");
  if (system && system->empty()) system.reset();
  const double temp = temperature(data);
  const std::int64_t tokens = maxTokens(data);

  if (name == "anthropic" && key.empty()) return PluginResult::failure("Enter an Anthropic API key.");
  if (name == "openai" && key.empty()) return PluginResult::failure("Enter an OpenAI API key.");

  // A temperature that is not a finite number cannot be written as JSON.
  if (!std::isfinite(temp)) return PluginResult::failure("Failed to serialize request body");

  PluginResult result = PluginResult::silentSuccess();
  if (name == "openai") {
    json body = {{"model", modelName}, {"messages", messages(system, text)},
                 {"temperature", temp}, {"max_tokens", tokens}};
    result = send(service_.openAIEndpoint,
                  {{"Authorization", "Bearer " + key}, {"Content-Type", std::string(kJson)}}, body,
                  {"choices", std::size_t{0}, "message", "content"});
  } else if (name == "anthropic") {
    json body = {{"model", modelName}, {"max_tokens", tokens},
                 {"messages", messages(std::nullopt, text)}};
    if (system) body["system"] = *system;  // no temperature, by design
    result = send(service_.anthropicEndpoint,
                  {{"x-api-key", key}, {"anthropic-version", "2023-06-01"}, {"Content-Type", std::string(kJson)}},
                  body, {"content", std::size_t{0}, "text"});
  } else {
    // The local server never gets a key, whatever the parameters hold.
    const std::string endpoint = localEndpoint(data);
    const std::vector<HttpHeader> headers{{"Content-Type", std::string(kJson)}};
    const json options = {{"temperature", temp}, {"num_predict", tokens}};
    if (endpoint.find("/api/generate") != std::string::npos) {
      json body = {{"model", modelName}, {"prompt", text}, {"system", system.value_or("")},
                   {"stream", false}, {"options", options}};
      result = send(endpoint, headers, body, {"response"});
    } else if (endpoint.find("/chat/completions") != std::string::npos) {
      json body = {{"model", modelName}, {"messages", messages(system, text)},
                   {"temperature", temp}, {"max_tokens", tokens}};
      result = send(endpoint, headers, body, {"choices", std::size_t{0}, "message", "content"});
    } else {
      json body = {{"model", modelName}, {"messages", messages(system, text)},
                   {"stream", false}, {"options", options}};
      result = send(endpoint, headers, body, {"message", "content"});
    }
  }
  return withoutSecret(std::move(result), key);
}

PluginResult AIActionPlugin::send(const std::string& address, std::vector<HttpHeader> headers,
                                  const json& body, std::vector<PathStep> path) const {
  if (!parseUrl(address)) return PluginResult::failure("Invalid URL");

  HttpRequest request;
  request.url = address;
  request.method = "POST";
  request.headers = std::move(headers);
  request.timeout = service_.requestTimeout;
  request.maxResponseBytes = maxAnswerBytes;
  // A key header must never follow a redirect to a host the user did not
  // name.
  request.followRedirects = false;
  try {
    request.body = body.dump();
  } catch (const json::exception&) {  // text that is not UTF-8
    return PluginResult::failure("Failed to serialize request body");
  }

  auto task = platform_->http().start(std::move(request));
  if (!task->wait(service_.wait)) {
    task->cancel();
    return PluginResult::failure("AI request timed out");
  }
  const HttpResponse response = task->response();
  if (response.error) return PluginResult::failure("AI request failed: " + *response.error);
  if (response.bodyCut)
    return PluginResult::failure(
        "The model service sent an answer of more than 4 MB, which Orla does not read; lower the token limit or check the model address.");

  const int status = response.statusCode;
  const json parsed = json::parse(response.body, nullptr, false);
  // Only an object or a list counts as a JSON answer, as with the system's
  // own parser.
  if (parsed.is_discarded() || !parsed.is_structured()) {
    if (status != 0)
      return PluginResult::failure(serviceStatus(status, " and the body was not JSON."));
    return PluginResult::failure("Failed to parse the model response.");
  }
  if (auto error = serviceError(parsed)) return PluginResult::failure(*error);
  if (status != 0 && (status < 200 || status > 299))
    return PluginResult::failure(serviceStatus(status, "."));

  auto answer = walk(parsed, path);
  if (!answer) return PluginResult::failure(answer.error());
  const std::string_view trimmed = trimWhitespaceAndNewlines(*answer);
  if (trimmed.empty()) return PluginResult::success("The model returned no text.");
  const GraphemePrefix shown = graphemePrefix(trimmed, answerLimit);
  std::string message(shown.prefix);
  if (shown.truncated) message += "...";
  return PluginResult::success(std::move(message));
}

}  // namespace orla
