#include "plugins/apps/url_plugin.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <orla/models/text.h>
#include <orla/models/url.h>
#include "plugins/apps/open_request.h"

namespace orla {

namespace {

constexpr std::string_view kMailtoPrefix = "mailto:";
constexpr std::string_view kApplicationFolders[] = {"/Applications", "/Applications/Utilities", "/System/Applications",
                                                    "/System/Applications/Utilities", "/System/Library/CoreServices"};

bool startsWithMailto(std::string_view text) {
  return text.size() >= kMailtoPrefix.size() && equalsIgnoringCase(text.substr(0, kMailtoPrefix.size()), kMailtoPrefix);
}

// "example.com:8080" or "example.com:8080/path": a host and a port that a
// URL parser would read as the scheme "example.com".
bool isHostAndPort(std::string_view text) {
  if (text.find("://") != std::string_view::npos) return false;
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || text.find(':', colon + 1) != std::string_view::npos) return false;
  const std::string_view host = text.substr(0, colon);
  std::string_view port = text.substr(colon + 1);
  port = port.substr(0, port.find('/'));
  return host.find('.') != std::string_view::npos && !port.empty() &&
         std::all_of(port.begin(), port.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); });
}

// The text once percent-encoded, when that changes it: what a typed address
// with spaces or non-ASCII letters becomes.
std::optional<std::string> encodedOnce(std::string_view text) {
  std::string encoded = percentEncode(text, URLCharacterSet::queryAllowed().adding("#%"));
  if (encoded == text) return std::nullopt;
  return encoded;
}

bool parsesWithoutScheme(std::string_view text) {
  if (isHostAndPort(text)) return true;
  if (auto parsed = parseURL(text); parsed && parsed->scheme.empty()) return true;
  if (auto encoded = encodedOnce(text))
    if (auto parsed = parseURL(*encoded); parsed && parsed->scheme.empty()) return true;
  return false;
}

std::string schemeOf(std::string_view url) {
  auto parsed = parseURL(url);
  return parsed ? parsed->scheme : std::string();
}

std::string withAppSuffix(std::string path) {
  if (path.size() < 4 || !equalsIgnoringCase(std::string_view(path).substr(path.size() - 4), ".app")) path += ".app";
  return path;
}

}  // namespace

URLPlugin::URLPlugin() : URLPlugin(Platform::current()) {}
URLPlugin::URLPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t URLPlugin::commandNumber(const ActionData& data) { return resolveCommandNumber(data, commandNames); }

std::optional<URLPlugin::Command> URLPlugin::command(const ActionData& data) {
  switch (commandNumber(data)) {
    case 1: return Command::openURL;
    case 2: return Command::mailto;
    default: return std::nullopt;
  }
}

std::string URLPlugin::url(const ActionData& data) { return readStringOr(data, {"url", "URL"}); }

std::string URLPlugin::recipient(const ActionData& data) {
  if (auto address = readString(data, {"address", "Address", "to"})) return *address;
  const std::string link = url(data);
  if (startsWithMailto(link)) return std::string(trimWhitespaceAndNewlines(std::string_view(link).substr(kMailtoPrefix.size())));
  return {};
}

std::string URLPlugin::subject(const ActionData& data) { return readStringOr(data, {"subject", "Subject"}); }
std::string URLPlugin::body(const ActionData& data) { return readStringOr(data, {"message", "Message", "body"}); }
std::string URLPlugin::application(const ActionData& data) {
  return readStringOr(data, {"applicationPath", "AppPath", "appPath", "application", "Application"});
}

std::optional<std::string> URLPlugin::resolvedURL(std::string_view text) {
  text = trimWhitespaceAndNewlines(text);
  if (text.empty() || isHostAndPort(text)) return std::nullopt;
  if (auto parsed = parseURL(text); parsed && !parsed->scheme.empty()) return parsed->text;
  if (auto encoded = encodedOnce(text))
    if (auto parsed = parseURL(*encoded); parsed && !parsed->scheme.empty()) return parsed->text;
  return std::nullopt;
}

std::optional<std::string> URLPlugin::mailURL(std::string_view recipient, std::string_view subject,
                                              std::string_view body) {
  const URLCharacterSet allowed = URLCharacterSet::queryAllowed().removing("&+?=#");
  std::string link(kMailtoPrefix);
  link += percentEncode(recipient, allowed);
  // Appended in steps: GCC 12 at -O3 warns falsely on "literal" + string.
  std::string query;
  if (!subject.empty()) {
    query += "subject=";
    query += percentEncode(subject, allowed);
  }
  if (!body.empty()) {
    if (!query.empty()) query += '&';
    query += "body=";
    query += percentEncode(body, allowed);
  }
  if (!query.empty()) {
    link += '?';
    link += query;
  }
  if (!parseURL(link)) return std::nullopt;
  return link;
}

std::optional<std::string> URLPlugin::resolvedApplicationURL(std::string_view application) const {
  const std::string text(trimWhitespaceAndNewlines(application));
  if (text.empty()) return std::nullopt;
  const std::string expanded = platform_->environment().expandTilde(text);
  Workspace& workspace = platform_->workspace();
  FileWorkspace& files = platform_->fileWorkspace();
  // As given first: on desktops whose applications are not ".app" bundles
  // the path names the application as it is.
  for (const std::string& path : {expanded, withAppSuffix(expanded)})
    if (workspace.itemExists(path) && files.bundleIdentifier(path)) return path;
  if (text.find('.') != std::string::npos)
    if (auto path = workspace.applicationPath(text)) return path;
  const std::string name = std::filesystem::path(withAppSuffix(expanded)).filename().string();
  for (std::string_view folder : kApplicationFolders) {
    std::string candidate(folder);
    candidate += '/';
    candidate += name;
    if (workspace.itemExists(candidate)) return candidate;
  }
  return std::nullopt;
}

std::optional<std::string> URLPlugin::validate(const ActionData& data) const {
  const auto cmd = command(data);
  if (!cmd)
    return "Unknown URL command " + std::to_string(commandNumber(data)) +
           ". Choose Open URL or Create Mail from the menu.";
  if (*cmd == Command::mailto) {
    const std::string to = recipient(data);
    if (to.empty()) return "Enter the recipient's email address in the To field.";
    if (!mailURL(to, subject(data), body(data))) return "The address \"" + to + "\" isn't a valid email address.";
  } else {
    const std::string text = url(data);
    if (text.empty()) return "Enter the URL to open, for example https://www.example.com";
    if (!resolvedURL(text)) {
      if (parsesWithoutScheme(text))
        return "The address \"" + text + "\" has no scheme. Type the full address, for example https://" + text;
      return "The address \"" + text + "\" isn't correct.";
    }
  }
  const std::string app = application(data);
  if (!app.empty() && !resolvedApplicationURL(app)) {
    std::string message = "The application \"" + app + "\" can't be found. Choose it again with Browse…, ";
    message += "or leave the Open with field empty to use the ";
    message += *cmd == Command::mailto ? "default mail app" : "default browser";
    return message;
  }
  return std::nullopt;
}

PluginResult URLPlugin::execute(const ActionData& data) {
  const auto cmd = command(data);
  if (!cmd) return PluginResult::failure("Unknown URL action: " + std::to_string(commandNumber(data)));
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  if (*cmd == Command::mailto) {
    const std::string to = recipient(data);
    return open(*mailURL(to, subject(data), body(data)), application(data), "Created an email to " + to);
  }
  const std::string link = *resolvedURL(url(data));
  return open(link, application(data), "Opened " + link);
}

PluginResult URLPlugin::open(const std::string& link, const std::string& application, const std::string& done) {
  if (application.empty()) {
    const auto handler = platform_->fileWorkspace().applicationForURL(link);
    if (!handler)
      return PluginResult::failure("No application on this Mac can open " + schemeOf(link) +
                                   ": addresses. Check the URL, or choose the application to open it with.");
    Checked<void> opened = fail("");
    platform_->mainThread().runSync([&] { opened = platform_->workspace().openURL(link); });
    if (!opened) return PluginResult::failure("Could not open " + link);
    return PluginResult::success(done + " in " + applicationDisplayName(*platform_, *handler) + ".");
  }
  const std::string app = *resolvedApplicationURL(application);
  const std::string name = applicationDisplayName(*platform_, app);
  const OpenAnswer answer = openWithApplication(*platform_, {link}, app, true);
  switch (answer.kind) {
    case OpenAnswer::Kind::opened: return PluginResult::success(done + " in " + name + ".");
    case OpenAnswer::Kind::failed: return PluginResult::failure(name + " could not open " + link);
    case OpenAnswer::Kind::unanswered:
      return PluginResult::failure("Asked " + name + " to open " + link + ", but it did not answer within " +
                                   std::to_string(kOpenWithApplicationLimit.count()) + " seconds");
  }
  return PluginResult::failure("Could not open " + link);
}

}  // namespace orla
