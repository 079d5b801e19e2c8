// HTTP through libcurl, real on every Unix. Every CurlHttp hands its requests
// to one process-wide session: a thread that drives a single curl multi
// handle, so connections (and DNS answers) are kept and reused between
// requests, and a caller never blocks on the network itself, only on its own
// wait with its own deadline.
//
// libcurl is loaded with the first request: the session and libcurl live in
// the module orla_curl.so (see service_module.h); without it every request
// ends at once with the sentence that the module is missing.
#pragma once

#include <orla/platform/http.h>

namespace orla::posix {

class CurlHttp : public Http {
 public:
  std::shared_ptr<HttpTask> start(HttpRequest request) override;
};

}  // namespace orla::posix
