// The front of CurlHttp in the program: libcurl and the session live in the
// module orla_curl.so, loaded with the first request (see service_module.h).

#include "platform/posix/curl_http.h"
#include "platform/posix/service_module.h"

namespace orla::posix {

namespace {

// A request that could not start: it has finished, with the sentence.
class FailedTask : public HttpTask {
 public:
  explicit FailedTask(std::string error) { response_.error = std::move(error); }
  bool wait(std::chrono::duration<double>) override { return true; }
  void cancel() override {}
  HttpResponse response() const override { return response_; }

 private:
  HttpResponse response_;
};

struct CurlModule {
  Http* http = nullptr;  // one for the process: its session is one anyway
  bool (*parseUrl)(const char*, std::size_t, UrlParts*) = nullptr;
  std::string problem;   // why there is none
};

const CurlModule& curlModule() {
  static const CurlModule loaded = [] {
    CurlModule m;
    auto module = loadServiceModule("orla_curl.so", "web requests");
    if (!module) {
      m.problem = module.error();
      return m;
    }
    using Create = Http* (*)();
    auto create = reinterpret_cast<Create>(moduleSymbol(*module, "orla_curl_http_create"));
    m.parseUrl = reinterpret_cast<decltype(m.parseUrl)>(moduleSymbol(*module, "orla_curl_parse_url"));
    if (create && m.parseUrl) m.http = create();
    else m.problem = "Orla's module orla_curl.so is not the one this program was built with; reinstall Orla.";
    return m;
  }();
  return loaded;
}

}  // namespace

}  // namespace orla::posix

namespace orla {

// Read as libcurl reads it, so that what is checked is what would be sent.
// Without the module no address can be checked, so none passes.
std::optional<UrlParts> parseUrl(std::string_view text) {
  const auto& module = posix::curlModule();
  if (!module.http) return std::nullopt;
  UrlParts parts;
  if (!module.parseUrl(text.data(), text.size(), &parts)) return std::nullopt;
  return parts;
}

}  // namespace orla

namespace orla::posix {

std::shared_ptr<HttpTask> CurlHttp::start(HttpRequest request) {
  const auto& module = curlModule();
  if (!module.http) return std::make_shared<FailedTask>(module.problem);
  return module.http->start(std::move(request));
}

}  // namespace orla::posix
