// Clock: the wall clock with the user's time zone and locale, a monotonic
// clock for deadlines, and the one way plugins wait. Every sleep and poll goes
// through here so the simulated desktop can record it and return at once.
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <string>

#include <orla/models/calendar.h>

namespace orla ORLA_EXPORT {

class Clock {
 public:
  using Monotonic = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;
  virtual TimePoint now() const = 0;
  // IANA name of the user's time zone ("Europe/Paris").
  virtual std::string timeZone() const = 0;
  // ICU name of the user's locale ("en_US").
  virtual std::string locale() const = 0;
  virtual Monotonic monotonicNow() const = 0;
  virtual void sleep(std::chrono::microseconds duration) = 0;
};

}  // namespace orla
