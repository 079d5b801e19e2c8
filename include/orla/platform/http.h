// Http: one request and its answer over HTTP or HTTPS, the way a shared
// system session runs it: a request starts at once and runs on the session's
// own thread; the caller waits for it with a deadline of its own and may
// cancel it. Connections are kept and reused between requests.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orla ORLA_EXPORT {

struct HttpHeader {
  std::string name;
  std::string value;
  friend bool operator==(const HttpHeader&, const HttpHeader&) = default;
};

struct HttpRequest {
  std::string url;
  std::string method = "GET";
  std::vector<HttpHeader> headers;  // sent in this order
  std::optional<std::string> body;  // none: no body at all
  // The longest the request may stay idle (no byte sent or received, the
  // connection attempt included) before it fails as timed out. Values beyond
  // a few months are treated as "no limit".
  std::chrono::duration<double> timeout{60.0};
  // At most this many bytes of the answer are kept; the rest is not read and
  // the response says it was cut.
  std::size_t maxResponseBytes = std::size_t{1} << 20;
  bool followRedirects = true;
};

struct HttpResponse {
  int statusCode = 0;  // 0 when no HTTP response arrived
  std::string body;
  bool bodyCut = false;  // the answer was longer than `maxResponseBytes`
  // A transport failure (no connection, time-out, cancellation, a broken
  // answer), as one readable sentence. It never contains header values.
  std::optional<std::string> error;
};

class HttpTask {
 public:
  virtual ~HttpTask() = default;
  // Blocks until the request has finished or `limit` has passed; true when
  // it has finished.
  virtual bool wait(std::chrono::duration<double> limit) = 0;
  // Stops the request; a request that has not finished then ends with an
  // error. Harmless after the end.
  virtual void cancel() = 0;
  // The outcome; meaningful once `wait` answered true.
  virtual HttpResponse response() const = 0;
};

class Http {
 public:
  virtual ~Http() = default;
  // Starts `request` and returns at once. A request the session cannot send
  // (a header with a line break, a scheme other than http or https) finishes
  // at once with an error.
  virtual std::shared_ptr<HttpTask> start(HttpRequest request) = 0;
};

// The parts of an address that the plugins check before they send anything.
struct UrlParts {
  std::string scheme;  // lowercased
  std::string host;
  bool hasCredentials = false;  // a user name or password before the host
};

// None when `text` is not an absolute address with a scheme.
std::optional<UrlParts> parseUrl(std::string_view text);

// Whether `name` may be sent as a header name: a token of letters, digits
// and !#$%&'*+-.^_`|~.
bool isValidHeaderName(std::string_view name);
// Whether `value` may be sent as a header value: no line break and no NUL,
// which would end the header early or start a new one.
bool isValidHeaderValue(std::string_view value);

}  // namespace orla
