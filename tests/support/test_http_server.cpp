#include "tests/support/test_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

#include <httplib.h>

namespace orla::testing {

namespace {

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers)
    if (equalsIgnoringAsciiCase(key, name)) return value;
  return std::nullopt;
}

nlohmann::json RecordedRequest::json() const { return nlohmann::json::parse(body); }

Reply Reply::json(int status, const nlohmann::json& body) {
  Reply r;
  r.status = status;
  r.body = body.dump();
  return r;
}

Reply Reply::text(int status, std::string body, std::string contentType) {
  Reply r;
  r.status = status;
  r.body = std::move(body);
  r.contentType = std::move(contentType);
  return r;
}

Reply Reply::openAI(std::string_view text) {
  return json(200, {{"id", "chatcmpl-1"},
                    {"object", "chat.completion"},
                    {"choices", {{{"index", 0}, {"message", {{"role", "assistant"}, {"content", text}}},
                                  {"finish_reason", "stop"}}}}});
}

Reply Reply::anthropic(std::string_view text) {
  return json(200, {{"id", "msg_1"}, {"type", "message"}, {"role", "assistant"},
                    {"content", {{{"type", "text"}, {"text", text}}}}, {"stop_reason", "end_turn"}});
}

Reply Reply::ollamaChat(std::string_view text) {
  return json(200, {{"model", "gemma3:4b"}, {"message", {{"role", "assistant"}, {"content", text}}}, {"done", true}});
}

Reply Reply::ollamaGenerate(std::string_view text) {
  return json(200, {{"model", "gemma3:4b"}, {"response", text}, {"done", true}});
}

TestHttpServer::TestHttpServer() : server_(std::make_unique<httplib::Server>()) {
  // Enough workers for stalled replies and the client's idle connections.
  server_->new_task_queue = [] { return new httplib::ThreadPool(16); };
  server_->set_keep_alive_max_count(1000000);
  server_->set_tcp_nodelay(true);
  auto handler = [this](const httplib::Request& req, httplib::Response& res) { handle(&req, &res); };
  server_->Get(".*", handler);
  server_->Post(".*", handler);
  server_->Put(".*", handler);
  server_->Patch(".*", handler);
  server_->Delete(".*", handler);
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) throw std::runtime_error("the test HTTP server could not bind to 127.0.0.1");
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TestHttpServer::~TestHttpServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopping_cv_.notify_all();
  server_->stop();
  closeServerConnections();
  thread_.join();
}

// The server's workers wait up to their keep-alive time on idle connections
// before they see the stop; ending those connections from our side lets the
// server stop at once. They are the sockets of this process whose own port
// is the server's and which have a peer (the listening socket has none).
void TestHttpServer::closeServerConnections() {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
    int fd = -1;
    try {
      fd = std::stoi(entry.path().filename().string());
    } catch (...) {
      continue;
    }
    sockaddr_in local{}, peer{};
    socklen_t localLength = sizeof local, peerLength = sizeof peer;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0 || local.sin_family != AF_INET)
      continue;
    if (ntohs(local.sin_port) != port_) continue;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) continue;
    ::shutdown(fd, SHUT_RDWR);
  }
}

std::string TestHttpServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

void TestHttpServer::reply(std::string path, Reply reply) {
  std::lock_guard lock(mutex_);
  replies_.insert_or_assign(std::move(path), std::move(reply));
}

std::vector<RecordedRequest> TestHttpServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

RecordedRequest TestHttpServer::lastRequest() const {
  std::lock_guard lock(mutex_);
  if (requests_.empty()) throw std::logic_error("the test HTTP server received no request");
  return requests_.back();
}

std::size_t TestHttpServer::connections() const {
  std::lock_guard lock(mutex_);
  return std::set<std::string>(peers_.begin(), peers_.end()).size();
}

int TestHttpServer::closedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

void TestHttpServer::handle(const void* request, void* response) {
  const auto& req = *static_cast<const httplib::Request*>(request);
  auto& res = *static_cast<httplib::Response*>(response);
  RecordedRequest recorded{req.method, req.path, req.target, {}, req.body};
  for (const auto& [name, value] : req.headers) {
    // The server adds these itself; they were not sent.
    if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT") continue;
    recorded.headers.emplace_back(name, value);
  }
  Reply reply = Reply::text(404, "not found");
  {
    std::unique_lock lock(mutex_);
    requests_.push_back(std::move(recorded));
    peers_.push_back(req.remote_addr + ":" + std::to_string(req.remote_port));
    if (auto it = replies_.find(req.path); it != replies_.end()) reply = it->second;
    if (reply.delay.count() > 0) stopping_cv_.wait_for(lock, reply.delay, [this] { return stopping_; });
  }

  res.status = reply.status;
  if (!reply.location.empty()) res.set_header("Location", reply.location);
  using Behaviour = Reply::Behaviour;
  switch (reply.behaviour) {
    case Behaviour::whole:
      if (!reply.body.empty() || reply.status != 204) res.set_content(reply.body, reply.contentType.c_str());
      break;
    case Behaviour::stallMidBody:
    case Behaviour::closeMidBody: {
      const std::string body = reply.body;
      const bool stall = reply.behaviour == Behaviour::stallMidBody;
      res.set_content_provider(body.size(), reply.contentType.c_str(),
                               [this, body, stall](size_t offset, size_t, httplib::DataSink& sink) {
                                 if (offset == 0) return sink.write(body.data(), body.size() / 2);
                                 if (!stall) return false;
                                 std::unique_lock lock(mutex_);
                                 stopping_cv_.wait(lock, [this] { return stopping_; });
                                 return false;
                               });
      break;
    }
    case Behaviour::trickle: {
      const std::string body = reply.body;
      res.set_content_provider(body.size(), reply.contentType.c_str(),
                               [this, body](size_t offset, size_t, httplib::DataSink& sink) {
                                 std::unique_lock lock(mutex_);
                                 if (stopping_cv_.wait_for(lock, std::chrono::milliseconds(100),
                                                           [this] { return stopping_; }))
                                   return false;
                                 lock.unlock();
                                 return sink.write(body.data() + offset, 1);
                               });
      break;
    }
    case Behaviour::streamed: {
      res.set_content_provider(reply.streamedBytes, reply.contentType.c_str(),
                               [](size_t offset, size_t length, httplib::DataSink& sink) {
                                 static const std::string chunk(64 * 1024, 'x');
                                 (void)offset;
                                 return sink.write(chunk.data(), std::min(length, chunk.size()));
                               });
      break;
    }
  }
}

}  // namespace orla::testing
