// FileWorkspace: what the desktop knows about documents, addresses and the
// applications that open them: which application opens an address, opening
// documents with their own application or a chosen one, what an application
// bundle is, how the file manager names an item and shows a folder, and what
// is selected in the file manager's front window.
//
// On macOS these are the workspace's document calls and Launch Services; on
// Linux the desktop's MIME associations and desktop entries (an
// "application" there is the path of a desktop entry, its desktop-file id
// standing in for the bundle identifier).
//
// Thread safety: every method may be called from any thread; a backend that
// needs the main thread hops there itself. Completions may run on any thread.
#pragma once

#include <orla/export.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>
#include <orla/platform/workspace.h>

namespace orla ORLA_EXPORT {

class FileWorkspace {
 public:
  // Called once when an open request has been carried out: none on success,
  // else the system's sentence saying why not. A request the application
  // never answers never calls it.
  using OpenCompletion = std::function<void(std::optional<std::string> error)>;

  virtual ~FileWorkspace() = default;

  // The application (its bundle path) that would open `url`; none when no
  // application takes addresses of its scheme.
  virtual std::optional<std::string> applicationForURL(std::string_view url) const = 0;

  // Opens the document at `path` with the application the system has for its
  // kind. Fails with a sentence when no application takes it or it cannot be
  // opened.
  virtual Checked<void> openDocument(std::string_view path) = 0;

  // Asks the application at `applicationPath` to open `urls` (addresses, or
  // documents as "file://" URLs), launching it when needed. Returns at once;
  // `completion` reports the outcome later, possibly on another thread.
  virtual void openURLs(std::vector<std::string> urls, std::string applicationPath,
                        const OpenConfiguration& configuration, OpenCompletion completion) = 0;

  // The bundle identifier of the application bundle at `path`; none when the
  // item does not load as a bundle or the bundle has no identifier.
  virtual std::optional<std::string> bundleIdentifier(std::string_view path) const = 0;

  // Whether the folder at `path` is a package: a folder the file manager
  // shows as one item (an application, an "rtfd" document).
  virtual bool isPackage(std::string_view path) const = 0;

  // The name the file manager shows for the item (the file name, possibly
  // localized or without its extension).
  virtual std::string displayName(std::string_view path) const = 0;

  // Shows the item in a file-manager window (the folder itself for a
  // folder). Fails with a sentence when no file manager could show it.
  virtual Checked<void> reveal(std::string_view path) = 0;

  // The "file://" URLs of the items selected in the focused window (or
  // focused element) of the running application with this bundle
  // identifier, read through the accessibility interface: each element in
  // "AXSelectedChildren" by its "AXURL". Fails with a sentence when the
  // accessibility interface is not available or not trusted.
  virtual Checked<std::vector<std::string>> selectedItemURLs(std::string_view bundleIdentifier) const = 0;
};

}  // namespace orla
