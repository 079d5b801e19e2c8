// A real HTTP server on 127.0.0.1 for the tests and benchmarks, on a free
// port. It plays the language-model services and plain web APIs: each path
// answers with a reply the test chose, every request is recorded, and a
// reply can misbehave (answer late, stall or close in the middle of the
// body, stream a body of any size).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

namespace httplib {
class Server;
}

namespace orla::testing {

struct RecordedRequest {
  std::string method;
  std::string path;    // without the query
  std::string target;  // with the query
  std::vector<std::pair<std::string, std::string>> headers;  // as received
  std::string body;

  // The first header of that name, compared without regard to case.
  std::optional<std::string> header(std::string_view name) const;
  // The body parsed as JSON, which must succeed.
  nlohmann::json json() const;
};

struct Reply {
  enum class Behaviour {
    whole,         // the body at once
    stallMidBody,  // half the body, then silence until the server stops
    closeMidBody,  // half the body, then the connection is closed
    streamed,      // `streamedBytes` bytes of "x", never held in memory
    trickle,       // one byte of the body every 100 ms: never idle, never done
  };

  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::chrono::milliseconds delay{0};  // before anything is sent
  Behaviour behaviour = Behaviour::whole;
  std::size_t streamedBytes = 0;
  std::string location;  // sent as the Location header when not empty

  // The services' answer shapes with `text` as the answer.
  static Reply openAI(std::string_view text);
  static Reply anthropic(std::string_view text);
  static Reply ollamaChat(std::string_view text);
  static Reply ollamaGenerate(std::string_view text);
  static Reply json(int status, const nlohmann::json& body);
  static Reply text(int status, std::string body, std::string contentType = "text/plain; charset=utf-8");
};

class TestHttpServer {
 public:
  TestHttpServer();
  ~TestHttpServer();
  TestHttpServer(const TestHttpServer&) = delete;
  TestHttpServer& operator=(const TestHttpServer&) = delete;

  int port() const { return port_; }
  // "http://127.0.0.1:PORT" + path.
  std::string url(std::string_view path) const;

  // What `path` answers from now on, for every method. Unknown paths answer
  // 404 with a short text.
  void reply(std::string path, Reply reply);

  std::vector<RecordedRequest> requests() const;
  // The last request; the test fails if there was none.
  RecordedRequest lastRequest() const;
  // Connections the server accepted: fewer than requests when they are
  // reused.
  std::size_t connections() const;

  // A loopback port where nothing listens.
  static int closedPort();

 private:
  void handle(const void* request, void* response);
  void closeServerConnections();

  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable stopping_cv_;
  bool stopping_ = false;
  std::map<std::string, Reply, std::less<>> replies_;
  std::vector<RecordedRequest> requests_;
  std::vector<std::string> peers_;
};

}  // namespace orla::testing
