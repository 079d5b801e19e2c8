#include "platform/linux/atspi_accessibility.h"

#include <atspi/atspi-constants.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <deque>
#include <map>

#include "platform/linux/atspi_bus.h"
#include "platform/linux/x11_accessibility.h"

namespace orla::linux_desktop {
namespace {

constexpr const char* kAccessible = "org.a11y.atspi.Accessible";

// One object on the bus. `asMenu` is the menu a menu element holds, which
// the bus shows as the same object. Its role never changes, so it is kept
// once read.
struct Element : AXElement::Handle {
  Element(AtspiRef r, bool menu, int barParent = -1) : ref(std::move(r)), asMenu(menu), inMenuBar(barParent) {}
  // What a search reads of an element besides its name, all in one request.
  struct Details {
    std::string description;
    std::string identifier;
    std::string placeholder;
  };
  Element(AtspiRef r, int barParent, int knownRole, std::string knownName,
          std::optional<Details> knownDetails = std::nullopt)
      : ref(std::move(r)), asMenu(false), inMenuBar(barParent), role(knownRole), name(std::move(knownName)),
        details(std::move(knownDetails)), nameRead(std::chrono::steady_clock::now()) {}
  bool sameElement(const Handle& other) const override {
    const auto* o = dynamic_cast<const Element*>(&other);
    return o && o->ref == ref && o->asMenu == asMenu;
  }
  AtspiRef ref;
  bool asMenu;
  mutable std::atomic<int> inMenuBar;  // -1 not known yet
  mutable std::atomic<int> role{-1};
  // The name as read with the list it came in, good for the length of one
  // action (a walk, a search, the sentence that lists what is there).
  std::optional<std::string> name;
  std::optional<Details> details;  // read with the name by a search
  std::chrono::steady_clock::time_point nameRead{};
  static constexpr auto kNameFresh = std::chrono::seconds(10);
  const std::string* freshName() const {
    return name && std::chrono::steady_clock::now() - nameRead < kNameFresh ? &*name : nullptr;
  }
  const Details* freshDetails() const { return details && freshName() ? &*details : nullptr; }
};

AXElement make(AtspiRef ref, bool asMenu = false, int inMenuBar = -1) {
  return AXElement(std::make_shared<const Element>(std::move(ref), asMenu, inMenuBar));
}

bool isWindowRole(int role) {
  return role == ATSPI_ROLE_FRAME || role == ATSPI_ROLE_DIALOG || role == ATSPI_ROLE_WINDOW ||
         role == ATSPI_ROLE_ALERT || role == ATSPI_ROLE_FILE_CHOOSER;
}
bool isTextRole(int role) {
  return role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_PASSWORD_TEXT ||
         role == ATSPI_ROLE_SPIN_BUTTON;
}
// Roles whose name is what they show (their label or text): a label
// pointing at one of them would only repeat it, so it is not asked for.
bool namesItself(int role) {
  switch (role) {
    case ATSPI_ROLE_PUSH_BUTTON:
    case ATSPI_ROLE_TOGGLE_BUTTON:
    case ATSPI_ROLE_CHECK_BOX:
    case ATSPI_ROLE_RADIO_BUTTON:
    case ATSPI_ROLE_LINK:
    case ATSPI_ROLE_LABEL:
    case ATSPI_ROLE_STATIC:
    case ATSPI_ROLE_MENU_ITEM:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
    case ATSPI_ROLE_PAGE_TAB:
    case ATSPI_ROLE_HEADING: return true;
    default: return false;
  }
}
bool isMenuRole(int role) {
  return role == ATSPI_ROLE_MENU_BAR || role == ATSPI_ROLE_MENU || role == ATSPI_ROLE_MENU_ITEM ||
         role == ATSPI_ROLE_CHECK_MENU_ITEM || role == ATSPI_ROLE_RADIO_MENU_ITEM || role == ATSPI_ROLE_TEAROFF_MENU_ITEM;
}
bool isCheckRole(int role) {
  return role == ATSPI_ROLE_CHECK_BOX || role == ATSPI_ROLE_TOGGLE_BUTTON || role == ATSPI_ROLE_RADIO_BUTTON ||
         role == ATSPI_ROLE_CHECK_MENU_ITEM || role == ATSPI_ROLE_RADIO_MENU_ITEM;
}

// The interface's name for a role.
std::string axRole(int role, bool asMenu, bool inMenuBar) {
  switch (role) {
    case ATSPI_ROLE_MENU: return asMenu ? "AXMenu" : inMenuBar ? "AXMenuBarItem" : "AXMenuItem";
    case ATSPI_ROLE_MENU_BAR: return "AXMenuBar";
    case ATSPI_ROLE_MENU_ITEM:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
    case ATSPI_ROLE_TEAROFF_MENU_ITEM: return "AXMenuItem";
    case ATSPI_ROLE_SEPARATOR: return "AXSeparator";
    case ATSPI_ROLE_PUSH_BUTTON:
    case ATSPI_ROLE_PUSH_BUTTON_MENU: return "AXButton";
    case ATSPI_ROLE_CHECK_BOX:
    case ATSPI_ROLE_TOGGLE_BUTTON: return "AXCheckBox";
    case ATSPI_ROLE_RADIO_BUTTON: return "AXRadioButton";
    case ATSPI_ROLE_COMBO_BOX: return "AXPopUpButton";
    case ATSPI_ROLE_ENTRY:
    case ATSPI_ROLE_PASSWORD_TEXT:
    case ATSPI_ROLE_SPIN_BUTTON: return "AXTextField";
    case ATSPI_ROLE_TEXT: return "AXTextArea";
    case ATSPI_ROLE_LINK: return "AXLink";
    case ATSPI_ROLE_LABEL:
    case ATSPI_ROLE_STATIC: return "AXStaticText";
    case ATSPI_ROLE_SCROLL_PANE: return "AXScrollArea";
    case ATSPI_ROLE_SCROLL_BAR: return "AXScrollBar";
    case ATSPI_ROLE_TOOL_BAR: return "AXToolbar";
    case ATSPI_ROLE_APPLICATION: return "AXApplication";
    case ATSPI_ROLE_SLIDER: return "AXSlider";
    case ATSPI_ROLE_PANEL:
    case ATSPI_ROLE_FILLER: return "AXGroup";
    default: return isWindowRole(role) ? "AXWindow" : "AXUnknown";
  }
}

bool hasState(const std::array<guint32, 2>& states, int state) {
  return state >= 0 && state < 64 && (states[static_cast<std::size_t>(state / 32)] >> (state % 32)) & 1u;
}

class AtspiAccessibility : public Accessibility {
 public:
  AtspiAccessibility(std::unique_ptr<Accessibility> windows, X11ElementDescriber describe,
                     std::shared_ptr<AtspiBus> bus)
      : windows_(std::move(windows)), describe_(describe), bus_(std::move(bus)) {}

  std::uint64_t roundTrips() const { return bus_->roundTrips(); }

  bool isProcessTrusted() const override { return windows_->isProcessTrusted(); }
  AXElement applicationElement(ProcessId pid) override { return windows_->applicationElement(pid); }

  AXResult<AXValue> copyAttributeValue(const AXElement& element, std::string_view attribute) override {
    if (const auto* e = dynamic_cast<const Element*>(element.handle())) return attributeOf(*e, attribute);
    const auto x11 = describe_(element);
    if (x11 && !x11->isButton && x11->window == 0) {
      if (attribute == "AXMenuBar") return menuBarOf(x11->pid);
      if (attribute == "AXFocusedUIElement") return focusedIn(x11->pid);
    }
    auto value = windows_->copyAttributeValue(element, attribute);
    // A window's own controls follow its title-bar buttons.
    if (x11 && !x11->isButton && x11->window != 0 && attribute == "AXChildren" && value && value->asList()) {
      AXValue::List list = *value->asList();
      if (const auto frame = frameOf(x11->pid, element))
        for (AXElement& child : childrenOf(Element(*frame, false))) list.emplace_back(std::move(child));
      return AXValue(std::move(list));
    }
    return value;
  }

  AXError setAttributeValue(const AXElement& element, std::string_view attribute, const AXValue& value) override {
    const auto* e = dynamic_cast<const Element*>(element.handle());
    if (!e) return windows_->setAttributeValue(element, attribute, value);
    const auto role = roleOf(*e);
    if (!role) return role.error();
    if (attribute == "AXFocused") {
      const bool* on = value.asBool();
      if (!on) return AXError::illegalArgument;
      if (!*on) return AXError::success;  // the focus moves away when another element takes it
      return booleanCall(e->ref, "org.a11y.atspi.Component", "GrabFocus", nullptr);
    }
    if (attribute != "AXValue") return AXError::attributeUnsupported;
    if (isTextRole(*role)) {
      const std::string* text = value.asString();
      if (!text) return AXError::illegalArgument;
      return booleanCall(e->ref, "org.a11y.atspi.EditableText", "SetTextContents",
                         g_variant_new("(s)", text->c_str()));
    }
    const double* number = value.asNumber();
    if (!number) return AXError::illegalArgument;
    double wanted = *number;
    if (*role == ATSPI_ROLE_SCROLL_BAR) {
      const auto range = rangeOf(e->ref);
      if (!range) return range.error();
      wanted = range->first + std::clamp(*number, 0.0, 1.0) * (range->second - range->first);
    }
    return bus_->setProperty(e->ref, "org.a11y.atspi.Value", "CurrentValue", g_variant_new_double(wanted));
  }

  AXResult<Descendants> descendants(const AXElement& root, const std::vector<std::string>& roles,
                                    std::size_t limit) override {
    Descendants out;
    AtspiRef frame;
    if (const auto* e = dynamic_cast<const Element*>(root.handle())) {
      frame = e->ref;
    } else {
      const auto x11 = describe_(root);
      if (!x11 || x11->isButton || x11->window == 0) return AXError::notImplemented;
      // The title-bar buttons come first, as among the window's children.
      auto buttons = windows_->copyAttributeValue(root, "AXChildren");
      if (buttons && buttons->asList())
        for (const AXValue& value : *buttons->asList()) {
          const AXElement* button = value.asElement();
          if (!button || ++out.counted > limit) continue;
          auto role = windows_->copyAttributeValue(*button, "AXRole");
          const std::string* name = role ? role->asString() : nullptr;
          if (roles.empty() || (name && std::find(roles.begin(), roles.end(), *name) != roles.end()))
            out.elements.push_back(*button);
        }
      const auto app = applicationOf(x11->pid);
      if (!app) return AXError::apiDisabled;  // it shows windows but publishes nothing of them
      const auto found = frameOf(x11->pid, root);
      if (!found) {
        // No window on the bus: the application is busy (or hung), or it
        // has not published this one.
        auto count = bus_->property(*app, kAccessible, "ChildCount");
        if (!count && count.error() == AXError::cannotComplete) return AXError::cannotComplete;
        return out;
      }
      frame = *found;
    }
    if (out.counted > limit) return out;
    return descendantsOf(frame, roles, limit - out.counted, std::move(out));
  }

  AXError performAction(const AXElement& element, std::string_view action) override {
    const auto* e = dynamic_cast<const Element*>(element.handle());
    if (!e) return windows_->performAction(element, action);
    if (action == "AXPress" || action == "AXPick") return press(e->ref);
    if (action == "AXCancel") return cancel(*e);
    return AXError::actionUnsupported;
  }

 private:
  // --- reading the bus -----------------------------------------------------

  AXResult<int> roleOf(const Element& e) {
    if (const int known = e.role.load(); known >= 0) return known;
    auto reply = bus_->call(e.ref, kAccessible, "GetRole", nullptr, "(u)");
    if (!reply) return reply.error();
    guint32 role = 0;
    g_variant_get(reply->get(), "(u)", &role);
    e.role = static_cast<int>(role);
    return static_cast<int>(role);
  }

  AXResult<std::array<guint32, 2>> statesOf(const AtspiRef& ref) {
    auto reply = bus_->call(ref, kAccessible, "GetState", nullptr, "(au)");
    if (!reply) return reply.error();
    std::array<guint32, 2> states{0, 0};
    GVariant* array = g_variant_get_child_value(reply->get(), 0);
    for (gsize i = 0; i < std::min<gsize>(2, g_variant_n_children(array)); ++i) {
      GVariant* word = g_variant_get_child_value(array, i);
      states[i] = g_variant_get_uint32(word);
      g_variant_unref(word);
    }
    g_variant_unref(array);
    return states;
  }

  AXResult<std::string> stringProperty(const AtspiRef& ref, const char* interface, const char* name) {
    auto value = bus_->property(ref, interface, name);
    if (!value) return value.error();
    if (!g_variant_is_of_type(value->get(), G_VARIANT_TYPE_STRING)) return AXError::failure;
    return std::string(g_variant_get_string(value->get(), nullptr));
  }

  // The children of a large menu or list take the application a while to
  // hand over (GTK 3: about 0.3 ms each), so the deadline of that call
  // grows with their count, which is asked first under the plain deadline:
  // an application that does not answer at all still fails after one.
  std::vector<AtspiRef> childRefs(const AtspiRef& ref) {
    auto count = bus_->property(ref, kAccessible, "ChildCount");
    if (!count) return {};
    const gint32 n = g_variant_is_of_type(count->get(), G_VARIANT_TYPE_INT32) ? g_variant_get_int32(count->get()) : 0;
    if (n <= 0) return {};
    const auto deadline = AtspiBus::kDeadline + std::chrono::microseconds(600) * n;
    auto reply = bus_->call(ref, kAccessible, "GetChildren", nullptr, "(a(so))",
                            std::chrono::duration_cast<std::chrono::milliseconds>(deadline));
    if (!reply) return {};
    GVariant* array = g_variant_get_child_value(reply->get(), 0);
    auto refs = refsFrom(array);
    g_variant_unref(array);
    return refs;
  }

  std::vector<AXElement> childrenOf(const Element& e) {
    const auto role = roleOf(e);
    if (!role) return {};
    // A menu holds one menu, which holds the items.
    if (*role == ATSPI_ROLE_MENU && !e.asMenu) return {make(e.ref, true)};
    const int barParent = *role == ATSPI_ROLE_MENU_BAR ? 1 : 0;
    std::vector<AtspiRef> refs = childRefs(e.ref);
    // Whoever lists children reads their roles and names next (to match a
    // title, to find a kind): all of them are asked for at once.
    std::vector<AtspiBus::Request> requests;
    requests.reserve(refs.size() * 2);
    for (const AtspiRef& ref : refs) {
      requests.push_back({ref, kAccessible, "GetRole", nullptr, "(u)"});
      requests.push_back({ref, "org.freedesktop.DBus.Properties", "Get", g_variant_new("(ss)", kAccessible, "Name"),
                          "(v)"});
    }
    const auto replies = bus_->callMany(requests);
    std::vector<AXElement> out;
    out.reserve(refs.size());
    for (std::size_t i = 0; i < refs.size(); ++i) {
      const auto& roleReply = replies[2 * i];
      const auto& nameReply = replies[2 * i + 1];
      if (!roleReply || !nameReply) {
        out.push_back(make(std::move(refs[i]), false, barParent));
        continue;
      }
      guint32 childRole = 0;
      g_variant_get(roleReply->get(), "(u)", &childRole);
      GVariant* boxed = nullptr;
      g_variant_get(nameReply->get(), "(v)", &boxed);
      std::string childName =
          boxed && g_variant_is_of_type(boxed, G_VARIANT_TYPE_STRING) ? g_variant_get_string(boxed, nullptr) : "";
      if (boxed) g_variant_unref(boxed);
      out.emplace_back(std::make_shared<const Element>(std::move(refs[i]), barParent, static_cast<int>(childRole),
                                                       std::move(childName)));
    }
    return out;
  }

  AXResult<std::string> nameOf(const Element& e) {
    if (const std::string* known = e.freshName()) return *known;
    return stringProperty(e.ref, kAccessible, "Name");
  }

  AXResult<std::pair<double, double>> rangeOf(const AtspiRef& ref) {
    auto low = bus_->property(ref, "org.a11y.atspi.Value", "MinimumValue");
    if (!low) return low.error();
    auto high = bus_->property(ref, "org.a11y.atspi.Value", "MaximumValue");
    if (!high) return high.error();
    return std::pair{g_variant_get_double(low->get()), g_variant_get_double(high->get())};
  }

  AXError booleanCall(const AtspiRef& ref, const char* interface, const char* method, GVariant* parameters) {
    auto reply = bus_->call(ref, interface, method, parameters, "(b)");
    if (!reply) return reply.error();
    gboolean done = FALSE;
    g_variant_get(reply->get(), "(b)", &done);
    return done ? AXError::success : AXError::cannotComplete;
  }

  bool isInMenuBar(const Element& e) {
    if (const int known = e.inMenuBar.load(); known >= 0) return known == 1;
    bool inBar = false;
    if (auto parent = bus_->property(e.ref, kAccessible, "Parent")) {
      const Element p(refFrom(parent->get()), false);
      const auto role = roleOf(p);
      inBar = role && *role == ATSPI_ROLE_MENU_BAR;
    }
    e.inMenuBar = inBar ? 1 : 0;
    return inBar;
  }

  // --- attributes ----------------------------------------------------------

  AXResult<AXValue> attributeOf(const Element& e, std::string_view attribute) {
    const auto role = roleOf(e);
    if (!role) return role.error();
    if (attribute == "AXRole")
      return AXValue(axRole(*role, e.asMenu, *role == ATSPI_ROLE_MENU && !e.asMenu && isInMenuBar(e)));
    if (attribute == "AXChildren") {
      AXValue::List list;
      for (AXElement& child : childrenOf(e)) list.emplace_back(std::move(child));
      return AXValue(std::move(list));
    }
    if (attribute == "AXTitle") {
      // What a label or a link says is its value, not its title.
      if (*role == ATSPI_ROLE_LABEL || *role == ATSPI_ROLE_STATIC) return AXError::noValue;
      return nonEmpty(nameOf(e));
    }
    if (attribute == "AXDescription") {
      if (const auto* known = e.freshDetails()) return nonEmpty(known->description);
      return nonEmpty(stringProperty(e.ref, kAccessible, "Description"));
    }
    if (attribute == "AXIdentifier") {
      if (const auto* known = e.freshDetails()) return nonEmpty(known->identifier);
      return nonEmpty(stringProperty(e.ref, kAccessible, "AccessibleId"));
    }
    if (attribute == "AXSubrole") {
      if (*role == ATSPI_ROLE_PASSWORD_TEXT) return AXValue("AXSecureTextField");
      if (*role == ATSPI_ROLE_TOGGLE_BUTTON) return AXValue("AXSwitch");
      if (isWindowRole(*role)) return AXValue(*role == ATSPI_ROLE_DIALOG ? "AXDialog" : "AXStandardWindow");
      return AXError::noValue;
    }
    if (attribute == "AXParent") {
      if (e.asMenu) return AXValue(make(e.ref));
      auto parent = bus_->property(e.ref, kAccessible, "Parent");
      if (!parent) return parent.error();
      return AXValue(make(refFrom(parent->get())));
    }
    if (attribute == "AXEnabled" || attribute == "AXFocused" || attribute == "AXMenuItemMarkChar" ||
        attribute == "AXOrientation" || attribute == "AXSelected" || attribute == "AXExpanded")
      return stateAttribute(e, *role, attribute);
    if (attribute == "AXPosition" || attribute == "AXSize") {
      auto reply = bus_->call(e.ref, "org.a11y.atspi.Component", "GetExtents", g_variant_new("(u)", 0u), "((iiii))");
      if (!reply) return reply.error();
      gint32 x = 0, y = 0, w = 0, h = 0;
      g_variant_get(reply->get(), "((iiii))", &x, &y, &w, &h);
      if (attribute == "AXPosition") return AXValue(Point{double(x), double(y)});
      return AXValue(Size{double(w), double(h)});
    }
    if (attribute == "AXValue") return valueOf(e, *role);
    if (attribute == "AXSelectedText") return selectedTextOf(e, *role);
    // Only fields show a placeholder.
    if (attribute == "AXPlaceholderValue") {
      if (!isTextRole(*role)) return AXError::noValue;
      if (const auto* known = e.freshDetails()) return nonEmpty(known->placeholder);
      return placeholderOf(e.ref);
    }
    if (attribute == "AXTitleUIElement") return namesItself(*role) ? AXError::noValue : labelOf(e.ref);
    return AXError::attributeUnsupported;
  }

  // Names come trimmed: some toolkits pad a menu item's name with the
  // spaces that stand between its label and its shortcut.
  static AXResult<AXValue> nonEmpty(const AXResult<std::string>& text) {
    if (!text) return text.error();
    const auto begin = text->find_first_not_of(" \t\n");
    if (begin == std::string::npos) return AXError::noValue;
    const auto end = text->find_last_not_of(" \t\n");
    return AXValue(text->substr(begin, end - begin + 1));
  }

  AXResult<AXValue> stateAttribute(const Element& e, int role, std::string_view attribute) {
    const auto states = statesOf(e.ref);
    if (!states) return states.error();
    if (attribute == "AXEnabled")
      return AXValue(hasState(*states, ATSPI_STATE_ENABLED) || hasState(*states, ATSPI_STATE_SENSITIVE));
    if (attribute == "AXFocused") return AXValue(hasState(*states, ATSPI_STATE_FOCUSED));
    if (attribute == "AXSelected") return AXValue(hasState(*states, ATSPI_STATE_SELECTED));
    if (attribute == "AXExpanded") return AXValue(hasState(*states, ATSPI_STATE_EXPANDED));
    if (attribute == "AXMenuItemMarkChar") {
      const bool checkable = role == ATSPI_ROLE_CHECK_MENU_ITEM || role == ATSPI_ROLE_RADIO_MENU_ITEM;
      if (checkable && hasState(*states, ATSPI_STATE_CHECKED)) return AXValue("✓");
      return AXError::noValue;
    }
    if (hasState(*states, ATSPI_STATE_HORIZONTAL)) return AXValue("AXHorizontalOrientation");
    if (hasState(*states, ATSPI_STATE_VERTICAL)) return AXValue("AXVerticalOrientation");
    return AXError::noValue;
  }

  // The first selected range of a text element, as the Text interface
  // gives it; an element with nothing selected has no value.
  AXResult<AXValue> selectedTextOf(const Element& e, int role) {
    if (!isTextRole(role)) return AXError::attributeUnsupported;
    auto range = bus_->call(e.ref, "org.a11y.atspi.Text", "GetSelection", g_variant_new("(i)", 0), "(ii)");
    if (!range) return range.error();
    gint32 start = 0, end = 0;
    g_variant_get(range->get(), "(ii)", &start, &end);
    if (end <= start) return AXError::noValue;
    auto reply = bus_->call(e.ref, "org.a11y.atspi.Text", "GetText", g_variant_new("(ii)", start, end), "(s)");
    if (!reply) return reply.error();
    const gchar* text = nullptr;
    g_variant_get(reply->get(), "(&s)", &text);
    return AXValue(std::string(text ? text : ""));
  }

  AXResult<AXValue> valueOf(const Element& e, int role) {
    if (isCheckRole(role)) {
      const auto states = statesOf(e.ref);
      if (!states) return states.error();
      if (hasState(*states, ATSPI_STATE_INDETERMINATE)) return AXValue(2.0);
      return AXValue(hasState(*states, ATSPI_STATE_CHECKED) ? 1.0 : 0.0);
    }
    if (isTextRole(role)) {
      auto reply = bus_->call(e.ref, "org.a11y.atspi.Text", "GetText", g_variant_new("(ii)", 0, -1), "(s)");
      if (!reply) return reply.error();
      const gchar* text = nullptr;
      g_variant_get(reply->get(), "(&s)", &text);
      return AXValue(std::string(text ? text : ""));
    }
    if (role == ATSPI_ROLE_LABEL || role == ATSPI_ROLE_STATIC || role == ATSPI_ROLE_LINK) return nonEmpty(nameOf(e));
    if (role == ATSPI_ROLE_SCROLL_BAR || role == ATSPI_ROLE_SLIDER || role == ATSPI_ROLE_PROGRESS_BAR) {
      auto current = bus_->property(e.ref, "org.a11y.atspi.Value", "CurrentValue");
      if (!current) return current.error();
      const double value = g_variant_get_double(current->get());
      if (role != ATSPI_ROLE_SCROLL_BAR) return AXValue(value);
      // A scroll bar runs from 0 at the top (or left) to 1 at the other end.
      const auto range = rangeOf(e.ref);
      if (!range) return range.error();
      const double span = range->second - range->first;
      return AXValue(span > 0 ? std::clamp((value - range->first) / span, 0.0, 1.0) : 0.0);
    }
    return AXError::noValue;
  }

  AXResult<AXValue> placeholderOf(const AtspiRef& ref) {
    auto reply = bus_->call(ref, kAccessible, "GetAttributes", nullptr, "(a{ss})");
    if (!reply) return reply.error();
    GVariant* map = g_variant_get_child_value(reply->get(), 0);
    const gchar* text = nullptr;
    std::string found;
    if (g_variant_lookup(map, "placeholder-text", "&s", &text) && text) found = text;
    g_variant_unref(map);
    if (found.empty()) return AXError::noValue;
    return AXValue(found);
  }

  AXResult<AXValue> labelOf(const AtspiRef& ref) {
    auto reply = bus_->call(ref, kAccessible, "GetRelationSet", nullptr, "(a(ua(so)))");
    if (!reply) return reply.error();
    GVariant* relations = g_variant_get_child_value(reply->get(), 0);
    std::optional<AtspiRef> label;
    for (gsize i = 0; i < g_variant_n_children(relations) && !label; ++i) {
      GVariant* relation = g_variant_get_child_value(relations, i);
      guint32 type = 0;
      GVariant* targets = nullptr;
      g_variant_get(relation, "(u@a(so))", &type, &targets);
      if (type == ATSPI_RELATION_LABELLED_BY && g_variant_n_children(targets) > 0) {
        auto refs = refsFrom(targets);
        label = refs.front();
      }
      g_variant_unref(targets);
      g_variant_unref(relation);
    }
    g_variant_unref(relations);
    if (!label) return AXError::noValue;
    return AXValue(make(*label));
  }

  // --- actions -------------------------------------------------------------

  // The action that presses: "click", "press", "activate" or "toggle" by
  // name, else the first one.
  AXError press(const AtspiRef& ref) {
    auto reply = bus_->call(ref, "org.a11y.atspi.Action", "GetActions", nullptr, "(a(sss))");
    if (!reply) return reply.error() == AXError::attributeUnsupported ? AXError::actionUnsupported : reply.error();
    GVariant* actions = g_variant_get_child_value(reply->get(), 0);
    const gsize count = g_variant_n_children(actions);
    int chosen = count > 0 ? 0 : -1;
    for (gsize i = 0; i < count; ++i) {
      const gchar* name = nullptr;
      g_variant_get_child(actions, i, "(&s&s&s)", &name, nullptr, nullptr);
      const std::string_view n = name ? name : "";
      if (n == "click" || n == "press" || n == "activate" || n == "toggle") {
        chosen = static_cast<int>(i);
        break;
      }
    }
    g_variant_unref(actions);
    if (chosen < 0) return AXError::actionUnsupported;
    return booleanCall(ref, "org.a11y.atspi.Action", "DoAction", g_variant_new("(i)", chosen));
  }

  // An open menu closes when the menu that shows it (the menu bar, or the
  // menu above) lets go of its selection.
  AXError cancel(const Element& e) {
    auto parent = bus_->property(e.ref, kAccessible, "Parent");
    if (!parent) return parent.error();
    return booleanCall(refFrom(parent->get()), "org.a11y.atspi.Selection", "ClearSelection", nullptr);
  }

  // --- searching a subtree in one request ---------------------------------

  // The elements below `root` whose role is (or with `none`, is not) one of
  // `atspiRoles` (any when empty), in pre-order, at most `count`: the
  // Collection interface walks the subtree inside the application.
  AXResult<std::vector<AtspiRef>> matches(const AtspiRef& root, const std::vector<int>& atspiRoles, bool none,
                                          std::size_t count) {
    GVariantBuilder states, attributes, roleBits, interfaces;
    g_variant_builder_init(&states, G_VARIANT_TYPE("ai"));
    g_variant_builder_init(&attributes, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_init(&roleBits, G_VARIANT_TYPE("ai"));
    g_variant_builder_init(&interfaces, G_VARIANT_TYPE("as"));
    std::array<guint32, (ATSPI_ROLE_COUNT + 31) / 32> bits{};
    for (int role : atspiRoles) bits[static_cast<std::size_t>(role / 32)] |= 1u << (role % 32);
    if (!atspiRoles.empty())
      for (guint32 word : bits) g_variant_builder_add(&roleBits, "i", static_cast<gint32>(word));
    const gint32 roleMatch = atspiRoles.empty() ? ATSPI_Collection_MATCH_ALL
                             : none             ? ATSPI_Collection_MATCH_NONE
                                                : ATSPI_Collection_MATCH_ANY;
    GVariant* rule = g_variant_new("(aiia{ss}iaiiasib)", &states, ATSPI_Collection_MATCH_ALL, &attributes,
                                   ATSPI_Collection_MATCH_ALL, &roleBits, roleMatch, &interfaces,
                                   ATSPI_Collection_MATCH_ALL, FALSE);
    const auto deadline = AtspiBus::kDeadline + std::chrono::microseconds(600) * count;
    auto reply = bus_->call(root, "org.a11y.atspi.Collection", "GetMatches",
                            g_variant_new("(@(aiia{ss}iaiiasib)uib)", rule, ATSPI_Collection_SORT_ORDER_CANONICAL,
                                          static_cast<gint32>(std::min<std::size_t>(count, G_MAXINT32)), TRUE),
                            "(a(so))", std::chrono::duration_cast<std::chrono::milliseconds>(deadline));
    if (!reply) return reply.error();
    GVariant* array = g_variant_get_child_value(reply->get(), 0);
    auto refs = refsFrom(array);
    g_variant_unref(array);
    return refs;
  }

  // The requests come in a handful whatever the size of the window: one
  // for the order of everything, one per role asked for, and the names and
  // descriptions of the elements of those roles all in flight together.
  AXResult<Descendants> descendantsOf(const AtspiRef& frame, const std::vector<std::string>& roles,
                                      std::size_t limit, Descendants out) {
    std::vector<int> menuRoles;
    std::vector<int> wanted;
    for (int role = 0; role < ATSPI_ROLE_LAST_DEFINED; ++role) {
      if (isMenuRole(role)) menuRoles.push_back(role);
      else if (std::find(roles.begin(), roles.end(), axRole(role, false, false)) != roles.end()) wanted.push_back(role);
    }
    auto found = matches(frame, menuRoles, true, limit + 1);
    if (!found) {
      // No Collection here: the caller walks the children.
      if (found.error() == AXError::cannotComplete || found.error() == AXError::invalidUIElement) return found.error();
      return AXError::notImplemented;
    }
    std::vector<AtspiRef> all = *found;
    out.counted += all.size();
    if (all.size() > limit) all.resize(limit);
    std::map<std::string, std::size_t> position;
    for (std::size_t i = 0; i < all.size(); ++i) position.emplace(all[i].path, i);

    std::vector<std::pair<std::size_t, int>> picked;  // position, role
    if (roles.empty()) {
      std::vector<AtspiBus::Request> requests;
      for (const AtspiRef& ref : all) requests.push_back({ref, kAccessible, "GetRole", nullptr, "(u)"});
      const auto replies = bus_->callMany(requests);
      for (std::size_t i = 0; i < replies.size(); ++i) {
        guint32 role = 0;
        if (replies[i]) g_variant_get(replies[i]->get(), "(u)", &role);
        picked.emplace_back(i, replies[i] ? static_cast<int>(role) : -1);
      }
    } else {
      for (int role : wanted) {
        const auto some = matches(frame, {role}, false, limit + 1);
        if (!some) return some.error();
        for (const AtspiRef& ref : *some)
          if (auto at = position.find(ref.path); at != position.end()) picked.emplace_back(at->second, role);
      }
      std::sort(picked.begin(), picked.end());
    }

    // All the element's properties come in one reply: its name, its
    // description, its identifier and its attributes (a field's placeholder).
    std::vector<AtspiBus::Request> requests;
    for (const auto& [at, role] : picked)
      requests.push_back({all[at], "org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", kAccessible),
                          "(a{sv})"});
    const auto replies = bus_->callMany(requests);
    for (std::size_t i = 0; i < picked.size(); ++i) {
      const auto& [at, role] = picked[i];
      if (role < 0 || !replies[i]) {
        out.elements.push_back(make(all[at], false, 0));
        continue;
      }
      GVariant* map = g_variant_get_child_value(replies[i]->get(), 0);
      const auto text = [&](const char* key) {
        const gchar* value = nullptr;
        return g_variant_lookup(map, key, "&s", &value) && value ? std::string(value) : std::string();
      };
      Element::Details details{text("Description"), text("AccessibleId"), {}};
      if (GVariant* attributes = g_variant_lookup_value(map, "Attributes", G_VARIANT_TYPE("a{ss}"))) {
        const gchar* placeholder = nullptr;
        if (g_variant_lookup(attributes, "placeholder-text", "&s", &placeholder) && placeholder)
          details.placeholder = placeholder;
        g_variant_unref(attributes);
      }
      std::string name = text("Name");
      g_variant_unref(map);
      out.elements.emplace_back(
          std::make_shared<const Element>(all[at], 0, role, std::move(name), std::move(details)));
    }
    return out;
  }

  // --- applications and windows ------------------------------------------

  std::optional<AtspiRef> applicationOf(ProcessId pid) {
    for (const AtspiRef& app : bus_->applications())
      if (bus_->processOf(app.bus) == pid) return app;
    return std::nullopt;
  }

  // The application's AT-SPI windows, the active one first.
  std::vector<AtspiRef> windowRefsOf(ProcessId pid) {
    const auto app = applicationOf(pid);
    if (!app) return {};
    std::vector<AtspiRef> windows;
    for (AtspiRef& ref : childRefs(*app)) {
      const Element w(ref, false);
      const auto role = roleOf(w);
      if (!role || !isWindowRole(*role)) continue;
      const auto states = statesOf(ref);
      if (states && hasState(*states, ATSPI_STATE_ACTIVE)) windows.insert(windows.begin(), std::move(ref));
      else windows.push_back(std::move(ref));
    }
    return windows;
  }

  // The AT-SPI window of an X11 window: by title, else the only (or the
  // active) one.
  std::optional<AtspiRef> frameOf(ProcessId pid, const AXElement& x11Window) {
    const auto windows = windowRefsOf(pid);
    if (windows.empty()) return std::nullopt;
    auto title = windows_->copyAttributeValue(x11Window, "AXTitle");
    if (title && title->asString())
      for (const AtspiRef& ref : windows)
        if (auto name = stringProperty(ref, kAccessible, "Name"); name && *name == *title->asString())
          return ref;
    return windows.front();
  }

  // Breadth-first through the windows, active first, for the menu bar; a
  // menu bar sits near the top of its window.
  AXResult<AXValue> menuBarOf(ProcessId pid) {
    constexpr int kDepth = 6;
    constexpr std::size_t kVisits = 400;
    const auto windows = windowRefsOf(pid);
    if (windows.empty()) return AXError::noValue;
    std::size_t visits = 0;
    for (const AtspiRef& window : windows) {
      std::deque<std::pair<AtspiRef, int>> queue{{window, 0}};
      while (!queue.empty() && visits < kVisits) {
        auto [ref, depth] = queue.front();
        queue.pop_front();
        ++visits;
        const Element e(ref, false);
        const auto role = roleOf(e);
        if (!role) continue;
        if (*role == ATSPI_ROLE_MENU_BAR) return AXValue(make(ref));
        // What lies inside these holds no menu bar.
        if (*role == ATSPI_ROLE_MENU || *role == ATSPI_ROLE_TOOL_BAR || isTextRole(*role) ||
            *role == ATSPI_ROLE_SCROLL_PANE || *role == ATSPI_ROLE_TABLE || *role == ATSPI_ROLE_TREE_TABLE)
          continue;
        if (depth < kDepth)
          for (AtspiRef& child : childRefs(ref)) queue.emplace_back(std::move(child), depth + 1);
      }
    }
    return AXError::noValue;
  }

  AXResult<AXValue> focusedIn(ProcessId pid) {
    constexpr std::size_t kVisits = 5000;
    const auto windows = windowRefsOf(pid);
    if (windows.empty()) return AXError::noValue;
    std::size_t visits = 0;
    std::deque<AtspiRef> pending{windows.front()};
    while (!pending.empty() && visits++ < kVisits) {
      AtspiRef ref = std::move(pending.front());
      pending.pop_front();
      const auto states = statesOf(ref);
      if (!states) continue;
      if (hasState(*states, ATSPI_STATE_FOCUSED)) return AXValue(make(ref));
      if (!hasState(*states, ATSPI_STATE_SHOWING) && visits > 1) continue;
      for (AtspiRef& child : childRefs(ref)) pending.push_back(std::move(child));
    }
    return AXError::noValue;
  }

  std::unique_ptr<Accessibility> windows_;
  X11ElementDescriber describe_;
  std::shared_ptr<AtspiBus> bus_;
};

}  // namespace

std::unique_ptr<Accessibility> makeAtspiAccessibility(std::unique_ptr<Accessibility> windows,
                                                      X11ElementDescriber describe, std::shared_ptr<AtspiBus> bus) {
  return std::make_unique<AtspiAccessibility>(std::move(windows), describe, std::move(bus));
}

std::uint64_t atspiRoundTrips(const Accessibility& accessibility) {
  const auto* a = dynamic_cast<const AtspiAccessibility*>(&accessibility);
  return a ? a->roundTrips() : 0;
}

}  // namespace orla::linux_desktop
