// The clipboard as another program on the same desktop sees it: what is
// written here is pasted there byte for byte, what is copied there is read
// here and counted as a change, snapshots keep every type, and large
// contents travel whole.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

template <class Backend>
class ClipboardConformance : public DesktopTest<Backend> {
 protected:
  void SetUp() override {
    DesktopTest<Backend>::SetUp();
    if (this->IsSkipped()) return;
    other = this->backend->otherProgram();
    ASSERT_TRUE(other);
  }
  Pasteboard& pasteboard() { return this->platform().pasteboard(); }
  // Another program's change reaches the count a moment later.
  bool waitForChange(std::int64_t before) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (pasteboard().changeCount() == before) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }
  std::unique_ptr<OtherProgram> other;
};

TYPED_TEST_SUITE(ClipboardConformance, DesktopBackends, DesktopBackendNames);

const std::string kPng("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0\x1f\x15\xc4\x89", 33);

TYPED_TEST(ClipboardConformance, TextWrittenHereIsPastedElsewhere) {
  ASSERT_TRUE(this->platform().supports(Capability::pasteboard));
  const auto before = this->pasteboard().changeCount();
  ASSERT_TRUE(this->pasteboard().setText("Grüße 👋\nline two"));
  EXPECT_GT(this->pasteboard().changeCount(), before) << "counted before setText returns";
  EXPECT_EQ(this->pasteboard().text(), "Grüße 👋\nline two");
  EXPECT_EQ(this->other->paste(pasteboard_types::plainText), "Grüße 👋\nline two");
  EXPECT_EQ(this->other->paste(pasteboard_types::png), std::nullopt);
}

TYPED_TEST(ClipboardConformance, WhatAnotherProgramCopiesIsReadHereWithEveryType) {
  struct Row {
    std::string_view type;
    std::string bytes;
  };
  const Row rows[] = {
      {pasteboard_types::plainText, "naïve ✓ text"},
      {pasteboard_types::png, kPng},
      {pasteboard_types::html, "<b>bold</b> &amp; <i>ünïcode</i>"},
  };
  for (const Row& row : rows) {
    const auto before = this->pasteboard().changeCount();
    this->other->copy(row.type, row.bytes);
    ASSERT_TRUE(this->waitForChange(before)) << row.type;
    const PasteboardSnapshot snapshot = this->pasteboard().snapshot();
    ASSERT_EQ(snapshot.size(), 1u) << row.type;
    ASSERT_TRUE(snapshot.front().bytes(row.type)) << row.type;
    EXPECT_EQ(*snapshot.front().bytes(row.type), row.bytes) << row.type;
    // Copy, transform, paste: the clipboard is replaced for a moment, then
    // the other program's contents come back byte for byte.
    ASSERT_TRUE(this->pasteboard().setText("transformed"));
    EXPECT_EQ(this->other->paste(pasteboard_types::plainText), "transformed");
    ASSERT_TRUE(this->pasteboard().restore(snapshot));
    EXPECT_EQ(this->other->paste(row.type), row.bytes) << row.type;
    EXPECT_EQ(this->pasteboard().snapshot(), snapshot) << row.type;
  }
}

TYPED_TEST(ClipboardConformance, ARestoreWritesEveryItemItCan) {
  const PasteboardSnapshot items = {
      {{{std::string(pasteboard_types::rtf), "{\\rtf1 caf\\'e9}"}, {std::string(pasteboard_types::plainText), "café"}}},
      {{{std::string(pasteboard_types::png), kPng}, {std::string(pasteboard_types::plainText), "second"}}},
  };
  const auto before = this->pasteboard().changeCount();
  ASSERT_TRUE(this->pasteboard().restore(items));
  EXPECT_GT(this->pasteboard().changeCount(), before);
  // One item only: the first one's types, then the types it lacks from the
  // next ones.
  const PasteboardSnapshot merged = {{{{std::string(pasteboard_types::rtf), "{\\rtf1 caf\\'e9}"},
                                       {std::string(pasteboard_types::plainText), "café"},
                                       {std::string(pasteboard_types::png), kPng}}}};
  EXPECT_EQ(this->pasteboard().snapshot(), TypeParam::clipboardHoldsOneItem ? merged : items);
  EXPECT_EQ(this->pasteboard().text(), "café") << "the first item carries the plain text";
  EXPECT_EQ(this->other->paste(pasteboard_types::rtf), "{\\rtf1 caf\\'e9}");

  ASSERT_TRUE(this->pasteboard().restore({}));
  EXPECT_TRUE(this->pasteboard().snapshot().empty());
  EXPECT_EQ(this->pasteboard().text(), std::nullopt);
  EXPECT_EQ(this->other->paste(pasteboard_types::plainText), std::nullopt);
}

TYPED_TEST(ClipboardConformance, LargeContentsTravelWholeBothWays) {
  std::string large;
  // Over 4 MiB: more than one piece on X11.
  for (int i = 0; large.size() < 9 * 1024 * 1024; ++i) large += "line " + std::to_string(i) + " — ünïcode ✓\n";
  ASSERT_TRUE(this->pasteboard().setText(large));
  EXPECT_EQ(this->other->paste(pasteboard_types::plainText), large);
  const auto before = this->pasteboard().changeCount();
  large += "and one more line\n";
  this->other->copy(pasteboard_types::plainText, large);
  ASSERT_TRUE(this->waitForChange(before));
  EXPECT_EQ(this->pasteboard().text(), large);
}

// Several programs paste a large text at once, in pieces, each getting all
// of it; from this process and, after it ends, from the owner it leaves.
TYPED_TEST(ClipboardConformance, ManyProgramsPasteLargeContentsAtOnce) {
  if (!TypeParam::clipboardHoldsOneItem) GTEST_SKIP() << "the simulated clipboard has no transfers";
  std::string large;
  for (int i = 0; large.size() < 9 * 1024 * 1024; ++i) large += "row " + std::to_string(i) + " ✓ ü\n";
  ASSERT_TRUE(this->pasteboard().setText(large));
  const auto folder = std::filesystem::temp_directory_path() / ("orla-paste-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  auto pasteAtOnce = [&](int count) {
    std::string command;
    for (int i = 0; i < count; ++i)
      command += "xclip -selection clipboard -o -t UTF8_STRING > '" + (folder / std::to_string(i)).string() + "' & ";
    command += "wait";
    EXPECT_EQ(std::system(command.c_str()), 0);
    for (int i = 0; i < count; ++i) {
      std::ifstream in(folder / std::to_string(i), std::ios::binary);
      EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(in), {}) == large) << "paste " << i;
    }
  };
  pasteAtOnce(3);
  this->backend->platform.reset();
  pasteAtOnce(3);
  std::filesystem::remove_all(folder);
}

TYPED_TEST(ClipboardConformance, TheContentsStayWhenThisProgramEnds) {
  if (!TypeParam::clipboardHoldsOneItem) GTEST_SKIP() << "the simulated clipboard belongs to no process";
  ASSERT_TRUE(this->pasteboard().restore({{{{std::string(pasteboard_types::plainText), "kept ✓"},
                                             {std::string(pasteboard_types::png), kPng}}}}));
  this->backend->platform.reset();
  EXPECT_EQ(this->other->paste(pasteboard_types::plainText), "kept ✓");
  EXPECT_EQ(this->other->paste(pasteboard_types::png), kPng);
  // Until another program takes the clipboard.
  this->other->copy(pasteboard_types::plainText, "taken");
  EXPECT_EQ(this->other->paste(pasteboard_types::plainText), "taken");
}

}  // namespace
}  // namespace orla::desktop_testing
