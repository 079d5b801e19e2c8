// PluginResult: the outcome of one `execute`, with at most one user-facing
// sentence.
#pragma once

#include <orla/export.h>

#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

class PluginResult {
 public:
  enum class Kind { success, conditionResult, failure, silentSuccess, stopSequence };

  static PluginResult success(std::string message) {
    return PluginResult(Kind::success, std::move(message), false);
  }
  static PluginResult conditionResult(bool value) {
    return PluginResult(Kind::conditionResult, {}, value);
  }
  static PluginResult failure(std::string message) {
    return PluginResult(Kind::failure, std::move(message), false);
  }
  static PluginResult silentSuccess() { return PluginResult(Kind::silentSuccess, {}, false); }
  static PluginResult stopSequence() { return PluginResult(Kind::stopSequence, {}, false); }

  Kind kind() const { return kind_; }
  bool isFailure() const { return kind_ == Kind::failure; }
  // The sentence of `success` and `failure`; empty for the other cases.
  const std::string& message() const { return message_; }
  bool hasMessage() const { return kind_ == Kind::success || kind_ == Kind::failure; }
  // The Boolean of `conditionResult`; false for the other cases.
  bool conditionValue() const { return condition_; }

  friend bool operator==(const PluginResult&, const PluginResult&) = default;

 private:
  PluginResult(Kind kind, std::string message, bool condition)
      : kind_(kind), message_(std::move(message)), condition_(condition) {}

  Kind kind_;
  std::string message_;
  bool condition_;
};

// "success", "conditionResult", ... as the host's JSON output names them.
std::string_view kindName(PluginResult::Kind kind);

}  // namespace orla
