// AtspiBus: a client of the accessibility bus (AT-SPI 2), spoken to straight
// through GDBus. Every call carries a deadline; an application that lets one
// pass is taken as stalled for a while, so that a walk over a hung
// application gives up after one deadline rather than one per element.
// Errors come back as the accessibility interface's numbers: an object or
// application that went away is an invalid element, a stalled application
// cannot complete, an interface the object lacks is unsupported.
//
// An object is named by the bus name of its application and its path; the
// pair is its identity. Process ids of bus names are kept, since a unique
// bus name never passes to another process.
// Thread safety: every method may be called from any thread.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <orla/platform/accessibility.h>

namespace orla::linux_desktop {

struct AtspiRef {
  std::string bus;
  std::string path;
  friend bool operator==(const AtspiRef&, const AtspiRef&) = default;
};

// An owned GVariant.
using Variant = std::shared_ptr<GVariant>;

class AtspiBus {
 public:
  // How long one call may take.
  static constexpr auto kDeadline = std::chrono::milliseconds(1000);
  // How long an application that missed a deadline is not asked again.
  static constexpr auto kStallMemory = std::chrono::seconds(5);

  // The accessibility bus of this session (AT_SPI_BUS_ADDRESS, else the
  // address the session bus hands out); none when there is none or it does
  // not answer in time.
  static std::shared_ptr<AtspiBus> connect();
  ~AtspiBus();
  AtspiBus(const AtspiBus&) = delete;
  AtspiBus& operator=(const AtspiBus&) = delete;

  // A method call; `replyType` checks the reply's shape.
  AXResult<Variant> call(const AtspiRef& ref, const char* interface, const char* method, GVariant* parameters,
                         const char* replyType, std::chrono::milliseconds deadline = kDeadline);
  // Many calls at once, their replies awaited together: a list of n
  // elements costs about one round trip rather than n. Replies come in the
  // order of the requests.
  struct Request {
    AtspiRef ref;
    const char* interface;
    const char* method;
    GVariant* parameters;  // floating; taken
    const char* replyType;
  };
  std::vector<AXResult<Variant>> callMany(const std::vector<Request>& requests);
  // One property, unboxed.
  AXResult<Variant> property(const AtspiRef& ref, const char* interface, const char* name);
  AXError setProperty(const AtspiRef& ref, const char* interface, const char* name, GVariant* value);

  // The applications registered on the bus (the desktop's children).
  std::vector<AtspiRef> applications();
  std::optional<ProcessId> processOf(const std::string& busName);

  // Calls made so far, for the benchmarks.
  std::uint64_t roundTrips() const { return roundTrips_.load(); }

 private:
  explicit AtspiBus(GDBusConnection* connection) : connection_(connection) {}
  bool stalled(const std::string& bus);
  AXError mapError(const std::string& bus, GError* error);

  GDBusConnection* connection_;
  std::atomic<std::uint64_t> roundTrips_{0};
  std::mutex mutex_;
  std::map<std::string, std::chrono::steady_clock::time_point> stalledSince_;
  std::map<std::string, ProcessId> processes_;
};

// Unpacks "(so)" / "a(so)" replies.
AtspiRef refFrom(GVariant* so);
std::vector<AtspiRef> refsFrom(GVariant* array);

}  // namespace orla::linux_desktop
