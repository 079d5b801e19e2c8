// HostDesktop: what a host that lives in the background asks of the desktop
// on its own behalf, apart from what the actions do: a notice the user sees
// without a window (a failed run, the activity report), and opening its
// files and folder for the user to edit.
//
// On Linux the notices go to the desktop's notification server
// (org.freedesktop.Notifications on the session bus), the files to the
// default handler of plain text, the folder to the file manager.
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <filesystem>
#include <memory>
#include <string>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

class HostDesktop {
 public:
  virtual ~HostDesktop() = default;
  // Fails with a sentence when no notification server answers.
  virtual Checked<void> showNotice(const std::string& summary, const std::string& body) = 0;
  // Opens `file` in the user's text editor.
  virtual Checked<void> openInTextEditor(const std::filesystem::path& file) = 0;
  // Shows `folder` in the file manager.
  virtual Checked<void> openFolder(const std::filesystem::path& folder) = 0;
};

std::unique_ptr<HostDesktop> makeNativeHostDesktop();

}  // namespace orla
