#include <orla/platform/pasteboard.h>

namespace orla {

const std::string* PasteboardItem::bytes(std::string_view type) const {
  for (const PasteboardRepresentation& r : representations)
    if (r.type == type) return &r.bytes;
  return nullptr;
}

}  // namespace orla
