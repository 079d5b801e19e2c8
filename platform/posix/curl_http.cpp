#include "platform/posix/curl_http.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <mutex>
#include <thread>

#include <orla/models/text.h>

namespace orla {

namespace {

std::string asciiLowercase(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

}  // namespace

// libcurl's reading of an address, which the program's parseUrl asks for
// (curl_http_loader.cpp), so that what is checked is what would be sent.
std::optional<UrlParts> parseUrlWithCurl(std::string_view text) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), &curl_url_cleanup);
  if (!url) return std::nullopt;
  const std::string source(text);
  // Any scheme parses here; which ones are acceptable is the caller's rule.
  if (curl_url_set(url.get(), CURLUPART_URL, source.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return std::nullopt;
  auto part = [&](CURLUPart which) -> std::optional<std::string> {
    char* value = nullptr;
    if (curl_url_get(url.get(), which, &value, 0) != CURLUE_OK || !value) return std::nullopt;
    std::string copy(value);
    curl_free(value);
    return copy;
  };
  UrlParts parts;
  parts.scheme = asciiLowercase(part(CURLUPART_SCHEME).value_or(""));
  if (parts.scheme.empty()) return std::nullopt;
  // libcurl forgives "http:/host" and "http:///host"; an address has a host
  // only when exactly two slashes follow the scheme.
  const std::string_view rest = text.substr(std::min(text.size(), text.find(':') + 1));
  const bool hasAuthority = rest.starts_with("//") && !rest.starts_with("///");
  parts.host = hasAuthority ? part(CURLUPART_HOST).value_or("") : "";
  parts.hasCredentials = part(CURLUPART_USER).has_value() || part(CURLUPART_PASSWORD).has_value();
  return parts;
}

namespace posix {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Longer waits than this (about four months) count as "no limit"; it keeps
// the deadline arithmetic of a time-out such as 1e308 seconds finite.
constexpr double kLongestWaitSeconds = 1e7;

SteadyClock::duration bounded(std::chrono::duration<double> limit) {
  double seconds = limit.count();
  if (!(seconds > 0)) seconds = 0;  // NaN and negatives: no wait
  seconds = std::min(seconds, kLongestWaitSeconds);
  return std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds));
}

// The transport failures a user can act on, in plain words; the rest keep
// libcurl's own description.
std::string describe(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return "A server with the specified host name could not be found.";
    case CURLE_COULDNT_CONNECT: return "Could not connect to the server.";
    case CURLE_OPERATION_TIMEDOUT: return "The request timed out.";
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CACERT_BADFILE:
      return "A secure connection to the server could not be made.";
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
      return "The network connection was lost.";
    case CURLE_TOO_MANY_REDIRECTS: return "The server redirected the request too many times.";
    case CURLE_UNSUPPORTED_PROTOCOL: return "The address must start with http:// or https://.";
    case CURLE_URL_MALFORMAT: return "The address is not a valid URL.";
    case CURLE_BAD_CONTENT_ENCODING: return "The server's answer could not be decompressed.";
    case CURLE_WEIRD_SERVER_REPLY: return "The server's answer was not valid HTTP.";
    default: {
      std::string text = curl_easy_strerror(code);
      if (!text.empty() && text.back() != '.') text += '.';
      return text;
    }
  }
}

class Transfer : public HttpTask {
 public:
  explicit Transfer(HttpRequest r) : request(std::move(r)), idleLimit(bounded(request.timeout)) {}

  bool wait(std::chrono::duration<double> limit) override {
    std::unique_lock lock(mutex_);
    return finished_cv_.wait_for(lock, bounded(limit), [&] { return finished_; });
  }

  void cancel() override;

  HttpResponse response() const override {
    std::lock_guard lock(mutex_);
    return response_;
  }

  void finish(int status, std::optional<std::string> error) {
    std::lock_guard lock(mutex_);
    if (finished_) return;
    response_.statusCode = status;
    response_.body = std::move(body);
    response_.bodyCut = cut;
    response_.error = std::move(error);
    finished_ = true;
    finished_cv_.notify_all();
  }

  // Owned by the session's thread while the transfer runs.
  HttpRequest request;
  SteadyClock::duration idleLimit;
  SteadyClock::time_point lastActivity = SteadyClock::now();
  curl_slist* headerList = nullptr;
  CURL* easy = nullptr;
  std::string location;  // of the answer whose head is being read
  std::optional<std::string> refusedRedirect;  // the other origin, when one was refused
  std::string body;
  bool cut = false;
  curl_off_t seenSent = 0;
  curl_off_t seenReceived = 0;
  std::atomic<bool> cancelRequested{false};

 private:
  mutable std::mutex mutex_;
  std::condition_variable finished_cv_;
  bool finished_ = false;
  HttpResponse response_;
};

size_t onBody(char* data, size_t size, size_t count, void* user) {
  auto* t = static_cast<Transfer*>(user);
  const size_t n = size * count;
  t->lastActivity = SteadyClock::now();
  const size_t room = t->request.maxResponseBytes - std::min(t->body.size(), t->request.maxResponseBytes);
  if (n <= room) {
    t->body.append(data, n);
    return n;
  }
  // Keep what fits and stop reading: the caller shows only the beginning,
  // and memory stays bounded whatever the server sends.
  t->body.append(data, room);
  t->cut = true;
  return 0;
}

// "https://host:443" of a URL (relative ones resolved against `base`), or
// nothing when it cannot be read.
std::optional<std::string> originOf(const std::string& url, const std::string& base = {}) {
  std::unique_ptr<CURLU, void (*)(CURLU*)> handle(curl_url(), curl_url_cleanup);
  if (!handle) return std::nullopt;
  if (!base.empty() && curl_url_set(handle.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK) return std::nullopt;
  if (curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return std::nullopt;
  std::string origin;
  for (CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
    char* text = nullptr;
    if (curl_url_get(handle.get(), part, &text, part == CURLUPART_PORT ? CURLU_DEFAULT_PORT : 0) != CURLUE_OK)
      return std::nullopt;
    origin += toLowercase(text);
    origin += part == CURLUPART_SCHEME ? "://" : part == CURLUPART_HOST ? ":" : "";
    curl_free(text);
  }
  return origin;
}

bool isRedirect(long status) { return status == 301 || status == 302 || status == 303 || status == 307 || status == 308; }

// Watches each answer's head while libcurl follows redirects: one that
// leads to another scheme, host or port is not followed when the request
// carries headers or a body, since libcurl would send them along (it keeps
// back only Authorization and Cookie) to a server they were not written for.
size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* t = static_cast<Transfer*>(user);
  t->lastActivity = SteadyClock::now();
  const std::string_view line(data, size * count);
  if (line.starts_with("HTTP/")) {
    t->location.clear();
  } else if (line.size() > 9 && toLowercase(line.substr(0, 9)) == "location:") {
    t->location = std::string(trimWhitespaceAndNewlines(line.substr(9)));
  } else if (trimWhitespaceAndNewlines(line).empty() && !t->location.empty() && t->request.followRedirects &&
             (!t->request.headers.empty() || t->request.body)) {
    long status = 0;
    char* current = nullptr;
    curl_easy_getinfo(t->easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(t->easy, CURLINFO_EFFECTIVE_URL, &current);
    if (isRedirect(status)) {
      const auto from = originOf(t->request.url);
      const auto to = originOf(t->location, current ? current : t->request.url);
      if (!from || !to || *from != *to) {
        t->refusedRedirect = to.value_or("an address that could not be read");
        return 0;
      }
    }
  }
  return size * count;
}

int onProgress(void* user, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
  auto* t = static_cast<Transfer*>(user);
  if (received != t->seenReceived || sent != t->seenSent) {
    t->seenReceived = received;
    t->seenSent = sent;
    t->lastActivity = SteadyClock::now();
  }
  return t->cancelRequested.load() ? 1 : 0;
}

void setMethodAndBody(CURL* easy, const HttpRequest& r) {
  // POST, PUT and PATCH always carry a body, if only an empty one, so the
  // server is told its length rather than left waiting for it.
  const bool expectsBody = r.method == "POST" || r.method == "PUT" || r.method == "PATCH";
  if (r.method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else if (r.body || expectsBody) {
    // libcurl reads the body in place; the transfer owns it until the end.
    const std::string_view body = r.body ? std::string_view(*r.body) : std::string_view("");
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    if (r.method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
  } else if (r.method != "GET") {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
  }
}

// The request's headers as libcurl takes them, with two of its own
// defaults taken away.
curl_slist* headerList(const HttpRequest& r) {
  curl_slist* list = nullptr;
  bool hasExpect = false;
  bool hasContentType = false;
  for (const HttpHeader& header : r.headers) {
    // "Name:" alone would remove the header; "Name;" sends it empty.
    std::string line = header.value.empty() ? header.name + ";" : header.name + ": ";
    if (!header.value.empty()) line += header.value;
    list = curl_slist_append(list, line.c_str());
    hasExpect = hasExpect || asciiLowercase(header.name) == "expect";
    hasContentType = hasContentType || asciiLowercase(header.name) == "content-type";
  }
  // No "Expect: 100-continue" pause before large bodies.
  if (!hasExpect) list = curl_slist_append(list, "Expect:");
  // An empty body has no type.
  if (!r.body && !hasContentType) list = curl_slist_append(list, "Content-Type:");
  return list;
}

class Session {
 public:
  static Session& shared() {
    static Session session;
    return session;
  }

  void add(std::shared_ptr<Transfer> transfer) {
    {
      std::lock_guard lock(mutex_);
      incoming_.push_back(std::move(transfer));
    }
    wake();
  }

  // Breaks the session's wait, so that a new request or a cancel is seen at
  // once.
  void wake() {
    work_.notify_one();
    curl_multi_wakeup(multi_);
  }

 private:
  Session() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = curl_multi_init();
    thread_ = std::thread([this] { run(); });
  }

  ~Session() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    work_.notify_one();
    curl_multi_wakeup(multi_);
    thread_.join();
    curl_multi_cleanup(multi_);
  }

  void run() {
    for (;;) {
      std::vector<std::shared_ptr<Transfer>> arrived;
      {
        std::unique_lock lock(mutex_);
        // With nothing running, sleep until a request or a cancel arrives;
        // otherwise curl_multi_poll below is the wait.
        if (active_.empty()) work_.wait(lock, [&] { return stopping_ || !incoming_.empty(); });
        if (stopping_) break;
        arrived.swap(incoming_);
      }
      for (auto& transfer : arrived) attach(std::move(transfer));
      int running = 0;
      curl_multi_perform(multi_, &running);
      collectFinished();
      sweep();
      if (!active_.empty()) curl_multi_poll(multi_, nullptr, 0, kPollMilliseconds, nullptr);
    }
    while (!active_.empty()) detach(active_.begin()->first, 0, "The request was cancelled.");
    std::lock_guard lock(mutex_);
    for (auto& transfer : incoming_) transfer->finish(0, "The request was cancelled.");
  }

  void attach(std::shared_ptr<Transfer> t) {
    const HttpRequest& r = t->request;
    for (const HttpHeader& header : r.headers) {
      if (!isValidHeaderName(header.name) || !isValidHeaderValue(header.value))
        return t->finish(0, "A request header contains a line break or an invalid name.");
    }
    CURL* easy = curl_easy_init();
    if (!easy) return t->finish(0, "The request could not be created.");
    t->easy = easy;
    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, r.followRedirects ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 16L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");  // every encoding libcurl decodes
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "Orla");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, t.get());
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, t.get());
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &onProgress);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, t.get());
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    const auto connectLimit = std::chrono::duration_cast<std::chrono::milliseconds>(t->idleLimit);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::max<std::int64_t>(1, connectLimit.count())));

    setMethodAndBody(easy, r);
    t->headerList = headerList(r);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, t->headerList);

    t->lastActivity = SteadyClock::now();
    curl_multi_add_handle(multi_, easy);
    active_.emplace(easy, std::move(t));
  }

  void detach(CURL* easy, int status, std::optional<std::string> error) {
    auto it = active_.find(easy);
    if (it == active_.end()) return;
    std::shared_ptr<Transfer> t = std::move(it->second);
    active_.erase(it);
    curl_multi_remove_handle(multi_, easy);
    curl_easy_cleanup(easy);
    curl_slist_free_all(t->headerList);
    t->headerList = nullptr;
    t->finish(status, std::move(error));
  }

  void collectFinished() {
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      const CURLcode code = message->data.result;
      auto it = active_.find(easy);
      if (it == active_.end()) continue;
      long status = 0;
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      const bool cutShort = code == CURLE_WRITE_ERROR && it->second->cut;
      if (auto other = it->second->refusedRedirect)
        detach(easy, static_cast<int>(status),
               "The server redirected the request to " + *other +
                   "; it was not followed, so that the request's headers and body reach only the server they were "
                   "written for.");
      else if (code == CURLE_OK || cutShort) detach(easy, static_cast<int>(status), std::nullopt);
      else if (code == CURLE_ABORTED_BY_CALLBACK) detach(easy, 0, "The request was cancelled.");
      else detach(easy, static_cast<int>(status), describe(code));
    }
  }

  // Cancelled transfers end now; idle ones end as timed out, whatever phase
  // they are in (connecting, waiting for the answer, or in its middle).
  void sweep() {
    const auto now = SteadyClock::now();
    std::vector<std::pair<CURL*, std::string>> ending;
    for (const auto& [easy, t] : active_) {
      if (t->cancelRequested.load()) ending.emplace_back(easy, "The request was cancelled.");
      else if (now - t->lastActivity > t->idleLimit) ending.emplace_back(easy, "The request timed out.");
    }
    for (auto& [easy, error] : ending) detach(easy, 0, std::move(error));
  }

  static constexpr int kPollMilliseconds = 100;

  std::mutex mutex_;
  std::condition_variable work_;
  std::vector<std::shared_ptr<Transfer>> incoming_;
  bool stopping_ = false;
  CURLM* multi_ = nullptr;
  std::map<CURL*, std::shared_ptr<Transfer>> active_;  // the session's thread only
  std::thread thread_;
};

void Transfer::cancel() {
  cancelRequested.store(true);
  Session::shared().wake();
}

}  // namespace

// What the module hands to CurlHttp in the program (curl_http_loader.cpp).
class SessionHttp : public Http {
 public:
  std::shared_ptr<HttpTask> start(HttpRequest request) override {
    auto transfer = std::make_shared<Transfer>(std::move(request));
    Session::shared().add(transfer);
    return transfer;
  }
};

}  // namespace posix
}  // namespace orla

extern "C" __attribute__((visibility("default"))) orla::Http* orla_curl_http_create() {
  return new orla::posix::SessionHttp();
}

extern "C" __attribute__((visibility("default"))) bool orla_curl_parse_url(const char* text, std::size_t size,
                                                                         orla::UrlParts* parts) {
  auto parsed = orla::parseUrlWithCurl(std::string_view(text, size));
  if (parsed) *parts = std::move(*parsed);
  return parsed.has_value();
}
