#include "platform/linux/x11_selection.h"

#include <X11/Xatom.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace orla::linux_desktop {
namespace {

using SteadyClock = std::chrono::steady_clock;

// The clipboard's types and the X targets they travel as. A type missing
// here travels under its own name.
struct TypeTarget {
  std::string_view type;
  std::string_view target;
};
constexpr std::array<TypeTarget, 7> kTypeTargets{{
    {pasteboard_types::plainText, "UTF8_STRING"},
    {pasteboard_types::html, "text/html"},
    {pasteboard_types::rtf, "text/rtf"},
    {pasteboard_types::png, "image/png"},
    {pasteboard_types::fileURL, "text/uri-list"},
    {"public.jpeg", "image/jpeg"},
    {"public.tiff", "image/tiff"},
}};

// Other names under which the plain text is served.
constexpr std::array<std::string_view, 2> kPlainTextAliases{"text/plain;charset=utf-8", "TEXT"};

// Targets that say something about the selection rather than carry its
// content, and the older or duplicate names of the plain text.
constexpr std::array<std::string_view, 12> kNotContent{
    "TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS", "DELETE", "INSERT_SELECTION", "INSERT_PROPERTY",
    "STRING",  "TEXT",      "COMPOUND_TEXT", "text/plain", "text/plain;charset=utf-8"};

// Pieces of an INCR send: as large as the server takes in one request
// (with the big-requests extension, megabytes), so that a large clipboard
// goes in few round trips; bounded so that the server and the requestor
// never hold more than this of it at once.
constexpr std::size_t kLargestPiece = std::size_t{4} << 20;
constexpr auto kAnswerTimeout = std::chrono::seconds(3);
// A requestor that has not asked for the next piece for this long has gone
// (or hung): its send is given up.
constexpr auto kStalledSend = std::chrono::seconds(30);

std::string targetOfType(std::string_view type) {
  for (const auto& t : kTypeTargets)
    if (t.type == type) return std::string(t.target);
  return std::string(type);
}

std::string typeOfTarget(std::string_view target) {
  for (const auto& t : kTypeTargets)
    if (t.target == target) return std::string(t.type);
  return std::string(target);
}

}  // namespace

// The bytes move into the targets: a clipboard of tens of megabytes is not
// copied again on its way to the requestors.
std::vector<SelectionTarget> targetsForItem(PasteboardItem item) {
  std::vector<SelectionTarget> out;
  for (PasteboardRepresentation& r : item.representations) {
    if (r.type == pasteboard_types::plainText) {
      for (SelectionTarget& target : targetsForText(std::make_shared<const std::string>(std::move(r.bytes))))
        out.push_back(std::move(target));
      continue;
    }
    out.push_back({targetOfType(r.type), std::make_shared<const std::string>(std::move(r.bytes))});
  }
  return out;
}

std::vector<SelectionTarget> targetsForText(std::shared_ptr<const std::string> text) {
  std::vector<SelectionTarget> out{{targetOfType(pasteboard_types::plainText), text}};
  for (std::string_view alias : kPlainTextAliases) out.push_back({std::string(alias), text});
  return out;
}

bool isContentTarget(const std::string& name) {
  return std::find(kNotContent.begin(), kNotContent.end(), name) == kNotContent.end();
}

PasteboardItem itemForTargets(const std::vector<std::pair<std::string, std::string>>& targets) {
  PasteboardItem item;
  for (const auto& [target, bytes] : targets)
    if (isContentTarget(target)) item.representations.push_back({typeOfTarget(target), bytes});
  return item;
}

SelectionPeer::SelectionPeer(Display* display, Window window)
    : display_(display),
      window_(window),
      clipboard_(XInternAtom(display, "CLIPBOARD", False)),
      targetsAtom_(XInternAtom(display, "TARGETS", False)),
      timestampAtom_(XInternAtom(display, "TIMESTAMP", False)),
      incr_(XInternAtom(display, "INCR", False)),
      property_(XInternAtom(display, "ORLA_SELECTION", False)),
      timeProperty_(XInternAtom(display, "ORLA_TIME", False)) {
  const long maxRequest = XExtendedMaxRequestSize(display) ? XExtendedMaxRequestSize(display) : XMaxRequestSize(display);
  chunk_ = std::min<std::size_t>(kLargestPiece, static_cast<std::size_t>(maxRequest) * 4 - 1024);
}

Time SelectionPeer::serverTime() {
  XChangeProperty(display_, window_, timeProperty_, XA_INTEGER, 8, PropModeAppend, nullptr, 0);
  XEvent event{};
  const bool seen = waitFor(
      [&](const XEvent& e) {
        return e.type == PropertyNotify && e.xproperty.window == window_ && e.xproperty.atom == timeProperty_;
      },
      kAnswerTimeout, &event);
  return seen ? event.xproperty.time : CurrentTime;
}

bool SelectionPeer::own(std::vector<SelectionTarget> targets, Time time) {
  targets_ = std::move(targets);
  ownedSince_ = time;
  XSetSelectionOwner(display_, clipboard_, window_, time);
  owning_ = XGetSelectionOwner(display_, clipboard_) == window_;
  if (!owning_) targets_.clear();
  return owning_;
}

void SelectionPeer::handle(XEvent& event) {
  switch (event.type) {
    case SelectionRequest:
      answer(event.xselectionrequest);
      break;
    case SelectionClear:
      if (event.xselectionclear.selection == clipboard_ && event.xselectionclear.window == window_) disown();
      break;
    case PropertyNotify:
      if (event.xproperty.window != window_) continueSend(event.xproperty);
      break;
    default:
      if (other) other(event);
  }
}

bool SelectionPeer::waitFor(const std::function<bool(const XEvent&)>& match, std::chrono::milliseconds timeout,
                            XEvent* matched) {
  const auto end = SteadyClock::now() + timeout;
  XFlush(display_);
  while (true) {
    while (XPending(display_)) {
      XEvent event;
      XNextEvent(display_, &event);
      handle(event);
      if (match(event)) {
        if (matched) *matched = event;
        return true;
      }
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now()).count();
    if (left <= 0) return false;
    pollfd fd{ConnectionNumber(display_), POLLIN, 0};
    ::poll(&fd, 1, static_cast<int>(left));
  }
}

void SelectionPeer::answer(const XSelectionRequestEvent& request) {
  XSelectionEvent reply{};
  reply.type = SelectionNotify;
  reply.display = display_;
  reply.requestor = request.requestor;
  reply.selection = request.selection;
  reply.target = request.target;
  reply.time = request.time;
  reply.property = None;
  // Clients from before ICCCM 2 name no property: the target stands in.
  const Atom property = request.property == None ? request.target : request.property;
  const bool current = request.time == CurrentTime || ownedSince_ == CurrentTime || request.time >= ownedSince_;
  if (owning_ && request.selection == clipboard_ && current) {
    if (request.target == targetsAtom_) {
      std::vector<long> atoms{static_cast<long>(targetsAtom_), static_cast<long>(timestampAtom_)};
      for (const SelectionTarget& target : targets_)
        atoms.push_back(static_cast<long>(XInternAtom(display_, target.name.c_str(), False)));
      XChangeProperty(display_, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(atoms.data()), static_cast<int>(atoms.size()));
      reply.property = property;
    } else if (request.target == timestampAtom_) {
      const long time = static_cast<long>(ownedSince_);
      XChangeProperty(display_, request.requestor, property, XA_INTEGER, 32, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(&time), 1);
      reply.property = property;
    } else if (sendTarget(request, property)) {
      reply.property = property;
    }
  }
  XSendEvent(display_, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
  XFlush(display_);
}

bool SelectionPeer::sendTarget(const XSelectionRequestEvent& request, Atom property) {
  char* name = XGetAtomName(display_, request.target);
  if (!name) return false;
  const std::string wanted = name;
  XFree(name);
  auto found = std::find_if(targets_.begin(), targets_.end(), [&](const auto& t) { return t.name == wanted; });
  if (found == targets_.end()) return false;
  // TEXT asks for whatever text the owner likes best: UTF-8 here.
  const Atom type = wanted == "TEXT" ? XInternAtom(display_, "UTF8_STRING", False) : request.target;
  const std::string& bytes = *found->bytes;
  if (bytes.size() > chunk_) {
    // In pieces: announce the size, then write the next piece each time the
    // requestor deletes the property, and an empty one at the end.
    XSelectInput(display_, request.requestor, PropertyChangeMask);
    const long size = static_cast<long>(bytes.size());
    XChangeProperty(display_, request.requestor, property, incr_, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&size), 1);
    sends_[{request.requestor, property}] = Send{type, found->bytes, 0, SteadyClock::now()};
    return true;
  }
  XChangeProperty(display_, request.requestor, property, type, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  return true;
}

void SelectionPeer::continueSend(const XPropertyEvent& event) {
  if (event.state != PropertyDelete) return;
  auto it = sends_.find({event.window, event.atom});
  if (it == sends_.end()) return;
  Send& send = it->second;
  const std::size_t piece = std::min(chunk_, send.bytes->size() - send.offset);
  XChangeProperty(display_, event.window, event.atom, send.type, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(send.bytes->data() + send.offset), static_cast<int>(piece));
  send.offset += piece;
  send.lastPiece = SteadyClock::now();
  if (piece == 0) {
    sends_.erase(it);
    // The same requestor may be reading another target meanwhile.
    const bool more = std::any_of(sends_.begin(), sends_.end(), [&](const auto& s) { return s.first.first == event.window; });
    if (!more) XSelectInput(display_, event.window, NoEventMask);
  }
  XFlush(display_);
}

void SelectionPeer::dropStalledSends() {
  const auto now = SteadyClock::now();
  std::erase_if(sends_, [&](const auto& entry) { return now - entry.second.lastPiece > kStalledSend; });
}

std::optional<std::string> SelectionPeer::readProperty(Atom property, Atom* type) {
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  // The whole value in one reply, deleted once read (which, in an INCR
  // transfer, asks the owner for the next piece).
  if (XGetWindowProperty(display_, window_, property, 0, 0x1FFFFFFF, True, AnyPropertyType, type, &format, &count,
                         &after, &data) != Success)
    return std::nullopt;
  std::string bytes;
  if (data) {
    if (format == 32) {
      // Xlib hands 32-bit items over as longs; keep four bytes of each.
      const auto* items = reinterpret_cast<const unsigned long*>(data);
      for (unsigned long i = 0; i < count; ++i) {
        const std::uint32_t item = static_cast<std::uint32_t>(items[i]);
        bytes.append(reinterpret_cast<const char*>(&item), 4);
      }
    } else {
      bytes.assign(reinterpret_cast<const char*>(data), count * static_cast<unsigned long>(format / 8));
    }
    XFree(data);
  }
  return bytes;
}

std::optional<std::string> SelectionPeer::read(const std::string& target) {
  XDeleteProperty(display_, window_, property_);
  XConvertSelection(display_, clipboard_, XInternAtom(display_, target.c_str(), False), property_, window_,
                    CurrentTime);
  XEvent event{};
  if (!waitFor(
          [&](const XEvent& e) {
            return e.type == SelectionNotify && e.xselection.requestor == window_ &&
                   e.xselection.selection == clipboard_;
          },
          kAnswerTimeout, &event) ||
      event.xselection.property == None)
    return std::nullopt;
  Atom type = None;
  auto bytes = readProperty(property_, &type);
  if (!bytes || type != incr_) return bytes;
  // In pieces: each new value is one piece, an empty one ends the transfer.
  std::string whole;
  while (true) {
    if (!waitFor(
            [&](const XEvent& e) {
              return e.type == PropertyNotify && e.xproperty.window == window_ && e.xproperty.atom == property_ &&
                     e.xproperty.state == PropertyNewValue;
            },
            kAnswerTimeout))
      return std::nullopt;
    auto piece = readProperty(property_, &type);
    if (!piece) return std::nullopt;
    if (piece->empty()) return whole;
    whole += *piece;
  }
}

std::vector<std::string> SelectionPeer::readTargets() {
  std::vector<std::string> names;
  auto bytes = read("TARGETS");
  if (!bytes) return names;
  std::vector<Atom> atoms;
  for (std::size_t i = 0; i + 4 <= bytes->size(); i += 4) {
    std::uint32_t atom = 0;
    std::copy_n(bytes->data() + i, 4, reinterpret_cast<char*>(&atom));
    atoms.push_back(atom);
  }
  for (Atom atom : atoms) {
    char* name = atom ? XGetAtomName(display_, atom) : nullptr;
    if (!name) continue;
    if (std::find(names.begin(), names.end(), name) == names.end()) names.emplace_back(name);
    XFree(name);
  }
  return names;
}

}  // namespace orla::linux_desktop
