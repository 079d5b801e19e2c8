// Owning handles for GLib and GObject values, shared by the GIO-backed
// services: a GObject released with g_object_unref, memory with g_free, and
// a GError collected for one call and freed after.
#pragma once

#include <glib-object.h>

#include <memory>
#include <string>

namespace orla::linux_desktop {

struct GObjectDeleter {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, GObjectDeleter>;

struct GFreeDeleter {
  void operator()(gpointer memory) const { g_free(memory); }
};
using GString = std::unique_ptr<gchar, GFreeDeleter>;

// Collects a GError for the call it is passed to, and frees it after.
class ErrorOut {
 public:
  ErrorOut() = default;
  ErrorOut(const ErrorOut&) = delete;
  ErrorOut& operator=(const ErrorOut&) = delete;
  ~ErrorOut() {
    if (error_) g_error_free(error_);
  }
  GError** operator&() { return &error_; }
  explicit operator bool() const { return error_ != nullptr; }
  // `fallback` stands in for an error that came without a message.
  std::string message(const char* fallback = "Unknown error.") const {
    return error_ && error_->message ? error_->message : fallback;
  }

 private:
  GError* error_ = nullptr;
};

}  // namespace orla::linux_desktop
