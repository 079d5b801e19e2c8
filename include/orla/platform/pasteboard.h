// Pasteboard: the general clipboard.
// Thread safety: every method may be called from any thread; the plugins
// still hop to the main thread for each access, as the macOS pasteboard
// expects.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

// Type identifiers as the macOS pasteboard names them; other backends map
// them to their own (MIME types on X11).
namespace pasteboard_types {
inline constexpr std::string_view plainText = "public.utf8-plain-text";
inline constexpr std::string_view rtf = "public.rtf";
inline constexpr std::string_view html = "public.html";
inline constexpr std::string_view png = "public.png";
inline constexpr std::string_view fileURL = "public.file-url";
}  // namespace pasteboard_types

// One type an item carries, with its bytes exactly as the owner put them.
struct PasteboardRepresentation {
  std::string type;
  std::string bytes;
  friend bool operator==(const PasteboardRepresentation&, const PasteboardRepresentation&) = default;
};

// One item on the clipboard: several representations of the same thing
// (rich text and plain text of one selection, say), in the owner's order.
struct PasteboardItem {
  std::vector<PasteboardRepresentation> representations;
  // The bytes of `type`, or none when the item does not carry it.
  const std::string* bytes(std::string_view type) const;
  friend bool operator==(const PasteboardItem&, const PasteboardItem&) = default;
};

// Everything on the clipboard at one moment, item by item.
using PasteboardSnapshot = std::vector<PasteboardItem>;

class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  // The plain text of the first item; none when it carries no text or its
  // bytes are not valid UTF-8.
  virtual std::optional<std::string> text() const = 0;
  // Clears the clipboard and puts `text` on it as plain text.
  virtual Checked<void> setText(std::string_view text) = 0;
  // The same, handing the text over: a clipboard that keeps its own copy
  // takes this one instead of copying it, which matters for a large text.
  virtual Checked<void> takeText(std::string text) { return setText(text); }
  // Moves on every change of the clipboard's content, by anyone.
  virtual std::int64_t changeCount() const = 0;
  // Every item with every type and its bytes.
  virtual PasteboardSnapshot snapshot() const = 0;
  // Clears the clipboard and writes one new item per saved item, with all
  // its types; an empty snapshot leaves the clipboard empty.
  virtual Checked<void> restore(const PasteboardSnapshot& snapshot) = 0;
};

}  // namespace orla
