#include "platform/linux/x11_spare_keycodes.h"

#include <X11/XKBlib.h>

#include <algorithm>
#include <thread>

namespace orla::linux_desktop {

bool TypingPlan::expects(const std::vector<KeySym>& coming) const {
  return cursor_ + coming.size() <= keysyms_.size() &&
         std::equal(coming.begin(), coming.end(), keysyms_.begin() + static_cast<std::ptrdiff_t>(cursor_));
}

std::size_t TypingPlan::nextUse(KeySym keysym, std::size_t from) const {
  if (positions_.empty())
    for (std::size_t i = 0; i < keysyms_.size(); ++i) positions_[keysyms_[i]].push_back(i);
  const auto found = positions_.find(keysym);
  if (found == positions_.end()) return kNever;
  const auto next = std::lower_bound(found->second.begin(), found->second.end(), from);
  return next == found->second.end() ? kNever : *next;
}

bool SpareKeycodes::isSpareLocked(::KeyCode keycode) const {
  return std::any_of(slots_.begin(), slots_.end(), [&](const Slot& s) { return s.keycode == keycode; });
}

std::size_t SpareKeycodes::capacityLocked(Display* display) {
  if (!scanned_) scanLocked(display);
  return slots_.size();
}

std::optional<std::size_t> SpareKeycodes::slotOf(KeySym keysym) const {
  for (std::size_t i = 0; i < slots_.size(); ++i)
    if (slots_[i].keysym == keysym) return i;
  return std::nullopt;
}

std::optional<SpareKeycodes::Place> SpareKeycodes::findLocked(KeySym keysym) const {
  const auto slot = slotOf(keysym);
  if (!slot) return std::nullopt;
  return Place{slots_[*slot].keycode, slots_[*slot].level};
}

std::optional<SpareKeycodes::Place> SpareKeycodes::lendKeyLocked(Display* display, KeySym keysym) {
  if (!scanned_) scanLocked(display);
  Slot* chosen = nullptr;
  for (Slot& slot : slots_) {
    if (slot.level != 0) continue;
    if (slot.keysym == keysym) return Place{slot.keycode, 0};
    if (!chosen || slot.lastUse < chosen->lastUse) chosen = &slot;
  }
  if (!chosen) return std::nullopt;
  std::this_thread::sleep_until(chosen->lastUse + kReuseGap);
  chosen->keysym = keysym;
  chosen->dirty = true;
  writeDirtyLocked(display);
  return Place{chosen->keycode, 0};
}

void SpareKeycodes::lendAheadLocked(Display* display, const TypingPlan& plan, std::size_t from,
                                    const std::function<bool(KeySym)>& typedWithoutLending) {
  if (!scanned_) scanLocked(display);
  std::vector<bool> pinned(slots_.size(), false);  // needed between `from` and the text read so far
  SteadyClock::time_point ready = SteadyClock::now();
  const auto& keysyms = plan.keysyms();
  for (std::size_t at = from; at < keysyms.size(); ++at) {
    const KeySym keysym = keysyms[at];
    if (typedWithoutLending(keysym)) continue;
    if (const auto slot = slotOf(keysym)) {
      pinned[*slot] = true;
      continue;
    }
    // The place whose keysym comes back last, or never; of those, the one
    // that has rested longest.
    std::optional<std::size_t> victim;
    std::size_t victimNext = 0;
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      if (pinned[i]) continue;
      const std::size_t next = slots_[i].keysym == NoSymbol ? TypingPlan::kNever : plan.nextUse(slots_[i].keysym, at);
      if (!victim || next > victimNext || (next == victimNext && slots_[i].lastUse < slots_[*victim].lastUse)) {
        victim = i;
        victimNext = next;
      }
    }
    if (!victim) break;  // every place holds a keysym needed before this one
    Slot& slot = slots_[*victim];
    ready = std::max(ready, slot.lastUse + kReuseGap);
    slot.keysym = keysym;
    slot.dirty = true;
    pinned[*victim] = true;
  }
  std::this_thread::sleep_until(ready);
  writeDirtyLocked(display);
}

void SpareKeycodes::usedLocked(const Place& place) {
  for (Slot& slot : slots_)
    if (slot.keycode == place.keycode && slot.level == place.level) slot.lastUse = SteadyClock::now();
}

void SpareKeycodes::restoreLocked(Display* display) {
  SteadyClock::time_point ready{};
  for (Slot& slot : slots_) {
    if (slot.keysym == NoSymbol) continue;
    ready = std::max(ready, slot.lastUse + kReuseGap);
    slot.keysym = NoSymbol;
    slot.dirty = true;
  }
  std::this_thread::sleep_until(ready);
  writeDirtyLocked(display);
  XSync(display, False);
}

// One request for every changed keycode: the keyboard description of the
// whole range from the first to the last of them goes back to the server,
// the keycodes between them unchanged, so that clients hear of one change.
// A lent keycode has two groups of two levels each; an empty one goes back
// to a single level with no keysym.
void SpareKeycodes::writeDirtyLocked(Display* display) {
  int first = -1, last = -1;
  for (const Slot& slot : slots_) {
    if (!slot.dirty) continue;
    if (first < 0) first = slot.keycode;
    last = slot.keycode;
  }
  if (first < 0) return;
  XkbDescPtr xkb = XkbGetMap(display, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
  if (!xkb) return;
  XkbMapChangesRec changes{};
  for (std::size_t key = 0; key < slots_.size(); key += kLevels) {
    const ::KeyCode keycode = slots_[key].keycode;
    bool dirty = false, any = false;
    for (int level = 0; level < kLevels; ++level) {
      dirty = dirty || slots_[key + level].dirty;
      any = any || slots_[key + level].keysym != NoSymbol;
      slots_[key + level].dirty = false;
    }
    if (!dirty) continue;
    // Set here rather than through XkbChangeTypesOfKey, which reaches for
    // the key actions this description was fetched without.
    XkbSymMapPtr map = &xkb->map->key_sym_map[keycode];
    const int groups = any ? 2 : 0;
    KeySym* syms = XkbResizeKeySyms(xkb, keycode, groups * 2);
    if (groups > 0 && !syms) continue;
    for (int g = 0; g < XkbNumKbdGroups; ++g) map->kt_index[g] = any ? XkbTwoLevelIndex : XkbOneLevelIndex;
    map->group_info = static_cast<unsigned char>(XkbSetNumGroups(map->group_info, groups));
    map->width = static_cast<unsigned char>(any ? 2 : 1);
    for (int level = 0; level < groups * 2; ++level) syms[level] = slots_[key + level].keysym;
  }
  changes.changed |= XkbKeySymsMask;
  changes.first_key_sym = static_cast<KeyCode>(first);
  changes.num_key_syms = static_cast<unsigned char>(last - first + 1);
  XkbChangeMap(display, xkb, &changes);
  XkbFreeKeyboard(xkb, 0, True);
}

void SpareKeycodes::scanLocked(Display* display) {
  scanned_ = true;
  int min = 0, max = 0, perKeycode = 0;
  XDisplayKeycodes(display, &min, &max);
  KeySym* map = XGetKeyboardMapping(display, static_cast<::KeyCode>(min), max - min + 1, &perKeycode);
  if (!map) return;
  for (int code = min; code <= max; ++code) {
    bool empty = true;
    for (int j = 0; j < perKeycode && empty; ++j) empty = map[(code - min) * perKeycode + j] == NoSymbol;
    if (!empty) continue;
    for (int level = 0; level < kLevels; ++level) slots_.push_back({static_cast<::KeyCode>(code), level});
  }
  XFree(map);
}

}  // namespace orla::linux_desktop
