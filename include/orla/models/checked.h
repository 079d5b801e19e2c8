// Checked<T>: a value or the one sentence that says why there is none. Used
// across module lines instead of exceptions; the plugin turns the sentence
// into its failure.
#pragma once

#include <orla/export.h>

#include <string>
#include <utility>
#include <variant>

namespace orla ORLA_EXPORT {

struct Failure {
  std::string message;
};

inline Failure fail(std::string message) { return Failure{std::move(message)}; }

template <class T>
class [[nodiscard]] Checked {
 public:
  Checked(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Checked(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }
  const T& value() const& { return std::get<0>(state_); }
  T& value() & { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  const T& operator*() const& { return value(); }
  // So that std::move(*checked) moves the value out instead of copying it.
  T& operator*() & { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  const T* operator->() const { return &value(); }
  const std::string& error() const { return std::get<1>(state_).message; }

 private:
  std::variant<T, Failure> state_;
};

template <>
class [[nodiscard]] Checked<void> {
 public:
  Checked() = default;
  Checked(Failure failure) : error_(std::move(failure.message)), ok_(false) {}

  bool ok() const { return ok_; }
  explicit operator bool() const { return ok_; }
  const std::string& error() const { return error_; }

 private:
  std::string error_;
  bool ok_ = true;
};

}  // namespace orla
