// Keys, typed text and the mouse, proven from the receiving window: the
// simulated desktop's text field and recorder, and a real X client.
#include <gtest/gtest.h>

#include <cstdlib>
#include <type_traits>

#include <orla/models/text.h>
#include "plugins/input/key_shortcut_plugin.h"
#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

template <class Backend>
class EventsConformance : public DesktopTest<Backend> {
 protected:
  std::unique_ptr<EventSource> source() {
    auto created = this->platform().keyboard().createEventSource(EventSourceState::privateState);
    EXPECT_TRUE(created) << created.error();
    if (!created) return nullptr;
    return std::move(created.value());
  }
  void stroke(EventSource& source, KeyCode key, EventFlags flags) {
    ASSERT_TRUE(source.post({key, true, flags, {}}));
    ASSERT_TRUE(source.post({key, false, flags, {}}));
  }
};

TYPED_TEST_SUITE(EventsConformance, DesktopBackends, DesktopBackendNames);

namespace flags = event_flags;

TYPED_TEST(EventsConformance, KeysArriveWithTheModifiersOfTheirFlags) {
  auto receiver = this->backend->receiver();
  auto source = this->source();
  ASSERT_TRUE(source);
  struct Row {
    KeyCode key;
    EventFlags flags;
    const char* chord;
  };
  const Row rows[] = {
      {0, 0, "A"},
      {8, flags::command, "⌘C"},
      {9, flags::command, "⌘V"},
      {7, flags::command, "⌘X"},
      {0, flags::shift, "⇧A"},
      {40, flags::option | flags::command, "⌥⌘K"},
      {17, flags::shift | flags::command, "⇧⌘T"},
      {36, 0, "↩"},
      {48, 0, "⇥"},
      {53, 0, "⎋"},
      {51, 0, "⌫"},
      {117, 0, "⌦"},
      {123, flags::option, "⌥←"},
      {126, 0, "↑"},
      {116, 0, "⇞"},
      {96, 0, "F5"},
      {122, flags::function, "F1"},  // fn has no key of its own and changes nothing
      {83, 0, "Keypad 1"},
      {18, flags::command, "⌘1"},
      {27, 0, "-"},
      {44, flags::command, "⌘/"},
      {49, flags::shift, "⇧Space"},
  };
  std::vector<std::string> expected;
  for (const Row& row : rows) {
    this->stroke(*source, row.key, row.flags);
    expected.push_back(row.chord);
  }
  EXPECT_EQ(receiver->chords(expected.size()), expected);
}

TYPED_TEST(EventsConformance, ModifierKeysHeldBeforeAKeyApplyToIt) {
  auto receiver = this->backend->receiver();
  auto source = this->source();
  ASSERT_TRUE(source);
  // As the key shortcut plugin presses a chord: each modifier key down in
  // turn, the key, then everything up in reverse.
  ASSERT_TRUE(source->post({55, true, flags::command, {}}));
  ASSERT_TRUE(source->post({56, true, flags::command | flags::shift, {}}));
  this->stroke(*source, 0, flags::command | flags::shift);
  ASSERT_TRUE(source->post({56, false, flags::command, {}}));
  ASSERT_TRUE(source->post({55, false, 0, {}}));
  this->stroke(*source, 0, 0);
  EXPECT_EQ(receiver->chords(2), (std::vector<std::string>{"⇧⌘A", "A"})) << "nothing stays held afterwards";
}

TYPED_TEST(EventsConformance, KeyShortcutPluginPressesItsChord) {
  auto receiver = this->backend->receiver();
  KeyShortcutPlugin plugin(this->backend->platform);
  const ActionData data{{"keycode", std::int64_t{8}}, {"modifiers", std::int64_t{flags::command | flags::option}}};
  const PluginResult result = plugin.execute(data);
  EXPECT_NE(result.kind(), PluginResult::Kind::failure) << result.message();
  EXPECT_EQ(receiver->chords(1), (std::vector<std::string>{"⌥⌘C"}));
}

TYPED_TEST(EventsConformance, TextArrivesUnchangedWhateverTheLayout) {
  auto receiver = this->backend->receiver();
  auto source = this->source();
  ASSERT_TRUE(source);
  // ASCII on the keyboard map (some shifted), Latin-1 and other accented
  // letters, CJK, an emoji with a skin tone, a family joined by ZWJ, a
  // combining accent, a flag, a line break and a tab: everything but the
  // first kind goes through spare keycodes.
  const std::string pieces[] = {"Hello, World! ~{}|", "café Ünïcødé ő ł", "日本語のテキスト", "👍🏽",
                                "👨‍👩‍👧‍👦",           "e\u0301",           "🇫🇷",            "\n\t",
                                "日本語 again: 日本"};
  std::string expected;
  for (const std::string& piece : pieces) {
    const std::u16string units = toUtf16(piece);
    ASSERT_TRUE(source->post({0, true, 0, units}));
    ASSERT_TRUE(source->post({0, false, 0, units}));
    expected += piece;
  }
  std::size_t characters = 0;
  for (unsigned char c : expected) characters += (c & 0xC0) != 0x80;
  EXPECT_EQ(receiver->text(characters), expected);
}

// A text announced ahead and typed one character at a time, with more
// distinct characters the keyboard lacks than there are keys to lend (200
// ideographs, twice over, and every fifth one again soon after), arrives
// as written: places are given up and lent again as it goes. Then a text
// that differs from the one announced, which is typed all the same.
TYPED_TEST(EventsConformance, TextWithMoreCharactersThanSpareKeysArrivesAsWritten) {
  int emptyBefore = 0;
  if constexpr (!std::is_same_v<TypeParam, SimDesktopBackend>) emptyBefore = TypeParam::emptyKeycodes();
  auto receiver = this->backend->receiver();
  auto source = this->source();
  ASSERT_TRUE(source);
  std::u32string characters;
  for (int round = 0; round < 2; ++round)
    for (char32_t c = 0x4E00; c < 0x4E00 + 200; ++c) {
      characters.push_back(c);
      if (c % 5 == 0) characters.push_back(c - 3);
      if (c % 7 == 0) characters += U"aÉ";
    }
  std::u16string text;
  for (char32_t c : characters) text.push_back(static_cast<char16_t>(c));
  source->willType(text);
  for (char16_t unit : text) {
    const std::u16string one(1, unit);
    ASSERT_TRUE(source->post({0, true, 0, one}));
    ASSERT_TRUE(source->post({0, false, 0, one}));
  }
  const std::u16string unexpected = u"ж and ß, not announced";
  ASSERT_TRUE(source->post({0, true, 0, unexpected}));
  ASSERT_TRUE(source->post({0, false, 0, unexpected}));
  EXPECT_EQ(receiver->text(characters.size() + unexpected.size()), toUtf8(text + unexpected));
  if constexpr (!std::is_same_v<TypeParam, SimDesktopBackend>) {
    // The keyboard is left as the user had it: in its own group, and, once
    // the platform goes, with every lent keycode empty again.
    EXPECT_EQ(TypeParam::lockedGroup(), 0);
    EXPECT_LT(TypeParam::emptyKeycodes(), emptyBefore);
    source.reset();
    this->backend->platform.reset();
    EXPECT_EQ(TypeParam::emptyKeycodes(), emptyBefore);
  }
}

// With Caps Lock on, text still arrives as written, and the lock is on
// again afterwards.
TYPED_TEST(EventsConformance, TextArrivesAsWrittenWithCapsLockOn) {
  if constexpr (std::is_same_v<TypeParam, SimDesktopBackend>) {
    GTEST_SKIP() << "the simulated desktop has no lock keys";
  } else {
    auto receiver = this->backend->receiver();
    auto source = this->source();
    ASSERT_TRUE(source);
    TypeParam::setCapsLock(true);
    ASSERT_TRUE(TypeParam::capsLockIsOn());
    const std::string text = "Hello, World! caps ÉTÉ été";
    const std::u16string units = toUtf16(text);
    const bool posted = source->post({0, true, 0, units}) && source->post({0, false, 0, units});
    const std::string received = receiver->text(26);
    const bool stillLocked = TypeParam::capsLockIsOn();
    TypeParam::setCapsLock(false);
    EXPECT_TRUE(posted);
    EXPECT_EQ(received, text);
    EXPECT_TRUE(stillLocked);
  }
}

TYPED_TEST(EventsConformance, TheCommandKeyCanBeSuper) {
  if (std::string(TypeParam::name) == "sim") GTEST_SKIP() << "the simulated desktop has a Command key of its own";
  ::setenv("ORLA_COMMAND_KEY", "super", 1);
  auto receiver = this->backend->receiver();
  auto source = this->source();
  ::unsetenv("ORLA_COMMAND_KEY");
  ASSERT_TRUE(source);
  this->stroke(*source, 8, flags::command);
  ::setenv("ORLA_COMMAND_KEY", "super", 1);
  const auto chords = receiver->chords(1);
  ::unsetenv("ORLA_COMMAND_KEY");
  EXPECT_EQ(chords, (std::vector<std::string>{"⌘C"})) << "read as Super";
}

TYPED_TEST(EventsConformance, ClicksAndWheelReachTheWindowUnderThePointer) {
  auto receiver = this->backend->receiver();
  MouseEvents& mouse = this->platform().mouse();
  const Point at = receiver->inside();
  const Point right{at.x + 10, at.y + 5};
  ASSERT_TRUE(mouse.post({MouseEventType::mouseMoved, at, 0, 0}));
  auto pointer = mouse.pointerLocation();
  ASSERT_TRUE(pointer) << pointer.error();
  EXPECT_EQ(*pointer, at);
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseDown, at, 1, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseUp, at, 1, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseDown, at, 2, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseDragged, right, 2, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::leftMouseUp, right, 2, 0}));
  ASSERT_TRUE(mouse.post({MouseEventType::rightMouseDown, at, 1, 1}));
  ASSERT_TRUE(mouse.post({MouseEventType::rightMouseUp, at, 1, 1}));
  ASSERT_TRUE(mouse.postScrollWheel(2));
  ASSERT_TRUE(mouse.postScrollWheel(-1));
  ASSERT_TRUE(mouse.postScrollWheel(0));
  const std::string a = std::to_string(long(at.x)) + "," + std::to_string(long(at.y));
  const std::string b = std::to_string(long(right.x)) + "," + std::to_string(long(right.y));
  const std::vector<std::string> expected = {"left down " + a, "left up " + a,    "left down " + a,
                                             "left up " + b,   "right down " + a, "right up " + a,
                                             "wheel up",       "wheel up",        "wheel down"};
  EXPECT_EQ(receiver->clicks(expected.size()), expected);
}

}  // namespace
}  // namespace orla::desktop_testing
