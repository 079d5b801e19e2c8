#include "plugins/scripts/web_api_plugin.h"

#include <nlohmann/json.hpp>
#include <unicode/locid.h>

#include <orla/models/graphemes.h>
#include <orla/models/icu_support.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>

namespace orla {

namespace {

std::string uppercased(std::string_view text) {
  icu::UnicodeString unicode = unicodeString(text);
  unicode.toUpper(icu::Locale::getRoot());
  return utf8String(unicode);
}

bool equalsAsciiIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::optional<std::string> body(const ActionData& data) { return readString(data, {"body"}); }

// The time-out as given: a number or a switch; none for other cases.
std::optional<double> givenTimeout(const ActionData& data) {
  const AnyCodable* value = lookup(data, "timeout");
  if (!value) return std::nullopt;
  if (auto i = value->asInt()) return static_cast<double>(*i);
  if (auto d = value->asDouble()) return *d;
  if (auto b = value->asBool()) return *b ? 1.0 : 0.0;
  return std::nullopt;
}

// "Header “name”" and the rest of the sentence.
std::string headerSentence(std::string_view name, std::string_view rest) {
  std::string sentence = "Header ";
  sentence += orla::quoted(name);
  sentence += rest;
  return sentence;
}

std::string statusMessage(int status, std::string_view text) {
  std::string message = "HTTP ";
  message += std::to_string(status);
  if (text.empty()) message += ". The server sent no text.";
  else message.append("\n").append(text);
  return message;
}

}  // namespace

WebAPIPlugin::WebAPIPlugin() : WebAPIPlugin(Platform::current()) {}
WebAPIPlugin::WebAPIPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string WebAPIPlugin::httpMethod(const ActionData& data) {
  auto method = readString(data, {"method"});
  return method ? uppercased(*method) : std::string("GET");
}

Checked<std::string> WebAPIPlugin::url(const ActionData& data) {
  auto text = readString(data, {"url"});
  if (!text) return fail("Enter a URL, for example https://example.com/api/items.");
  auto parts = parseUrl(*text);
  if (!parts || (parts->scheme != "http" && parts->scheme != "https") || parts->host.empty())
    return fail("Enter a full URL starting with http:// or https://.");
  // A password in the address would be saved, shown and sent as plain text.
  if (parts->hasCredentials)
    return fail("Remove the user name and password from the URL and send them in an “Authorization” header instead.");
  return std::move(*text);
}

Checked<std::vector<HttpHeader>> WebAPIPlugin::headers(const ActionData& data) {
  std::vector<HttpHeader> list;
  auto text = readString(data, {"headers"});
  if (!text) return list;
  const auto json = nlohmann::json::parse(*text, nullptr, false);
  if (json.is_discarded() || !json.is_object())
    return fail(R"(Headers must be a JSON object, for example {"Accept": "application/json"}.)");
  for (const auto& [name, value] : json.items()) {
    if (!value.is_string()) return fail(headerSentence(name, " must be text, not a number or a list."));
    // Checked here so that a header can never split the request in two.
    if (!isValidHeaderName(name))
      return fail(headerSentence(name, " is not a valid header name: use letters, digits and hyphens."));
    std::string headerValue = value.get<std::string>();
    if (!isValidHeaderValue(headerValue))
      return fail(headerSentence(name, " must fit on one line: remove the line breaks from its value."));
    list.push_back({name, std::move(headerValue)});
  }
  return list;
}

double WebAPIPlugin::timeout(const ActionData& data) {
  return givenTimeout(data).value_or(defaultTimeout);
}

std::optional<std::string> WebAPIPlugin::validate(const ActionData& data) const {
  if (auto address = url(data); !address) return address.error();
  if (!methods.contains(httpMethod(data))) return "Choose a method: GET, POST, PUT, PATCH, or DELETE.";
  if (auto list = headers(data); !list) return list.error();
  // NaN is not greater than 0 either.
  if (auto seconds = givenTimeout(data); seconds && !(*seconds > 0))
    return "Timeout must be greater than 0 seconds.";
  return std::nullopt;
}

PluginResult WebAPIPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);

  HttpRequest request;
  request.url = *url(data);
  request.method = httpMethod(data);
  request.headers = *headers(data);
  const double seconds = timeout(data);
  request.timeout = std::chrono::duration<double>(seconds);
  request.maxResponseBytes = maxAnswerBytes;
  if (auto text = body(data)) {
    const bool typed = std::any_of(request.headers.begin(), request.headers.end(), [](const HttpHeader& h) {
      return equalsAsciiIgnoringCase(h.name, "Content-Type");
    });
    if (!typed) request.headers.push_back({"Content-Type", "application/json"});
    request.body = std::move(*text);
  }

  auto task = platform_->http().start(std::move(request));
  if (!task->wait(std::chrono::duration<double>(seconds + 5))) {
    task->cancel();
    return PluginResult::failure("HTTP request timed out");
  }
  const HttpResponse response = task->response();
  if (response.error) return PluginResult::failure("HTTP request failed: " + *response.error);

  std::string_view answer = response.body;
  if (response.bodyCut) answer = withoutPartialLastCharacter(answer);
  if (!isValidUtf8(answer)) answer = {};
  answer = trimWhitespaceAndNewlines(answer);
  const GraphemePrefix shown = graphemePrefix(answer, displayLimit);
  std::string text(shown.prefix);
  if (shown.truncated) text += "...";

  std::string message = statusMessage(response.statusCode, text);
  if (response.statusCode >= 200 && response.statusCode <= 299) return PluginResult::success(std::move(message));
  return PluginResult::failure(std::move(message));
}

}  // namespace orla
