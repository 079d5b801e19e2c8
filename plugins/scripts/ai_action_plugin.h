// AIActionPlugin ("AIAction"): sends one prompt to a language model (OpenAI,
// Anthropic, or a local model server such as Ollama) and returns the model's
// answer, trimmed and shortened, as its result. The API key comes from the
// secret store.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class AIActionPlugin : public PluginBase<AIActionPlugin> {
 public:
  static constexpr std::string_view pluginClass = "AIAction";
  static constexpr std::string_view defaultLocalEndpoint = "http://127.0.0.1:11434/api/chat";
  // Answers are shown up to this many characters, then "...".
  static constexpr std::size_t answerLimit = 4000;
  // The largest answer read. Even the longest completions are a small
  // fraction of this; a bigger body is not a model's answer.
  static constexpr std::size_t maxAnswerBytes = std::size_t{4} << 20;

  // Where the providers are reached and how long a request may take. The
  // defaults are the services' own; tests point them at a local server.
  struct Service {
    std::string openAIEndpoint = "https://api.openai.com/v1/chat/completions";
    std::string anthropicEndpoint = "https://api.anthropic.com/v1/messages";
    std::string localEndpoint = std::string(defaultLocalEndpoint);
    std::chrono::duration<double> requestTimeout{120};
    std::chrono::duration<double> wait{125};
  };

  AIActionPlugin();
  explicit AIActionPlugin(std::shared_ptr<Platform> platform);
  AIActionPlugin(std::shared_ptr<Platform> platform, Service service);

  // "openai", "anthropic" or "local" (or what the user wrote, trimmed and
  // lowercased); "openai" when absent.
  static std::string provider(const ActionData& data);
  static std::string prompt(const ActionData& data);
  static std::optional<std::string> apiKey(const ActionData& data);
  static std::string model(const ActionData& data, std::string_view provider);
  // A number or a switch; 0.7 for anything else (a text is not parsed).
  static double temperature(const ActionData& data);
  static std::int64_t maxTokens(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

  // One step of the path to the answer text inside the response.
  using PathStep = std::variant<std::string_view, std::size_t>;

 private:
  std::string localEndpoint(const ActionData& data) const;
  PluginResult send(const std::string& address, std::vector<HttpHeader> headers,
                    const nlohmann::json& body, std::vector<PathStep> path) const;

  std::shared_ptr<Platform> platform_;
  Service service_;
};

}  // namespace orla
