// The Linux desktop's documents side through GIO: the freedesktop Trash, the
// recently-used list, attributes and names, and the application look-ups,
// in a private data folder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include <orla/platform/platform.h>
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;

// GLib reads the user's data folder once per process, so it is pointed at a
// private one before anything can ask.
struct PrivateDataHome {
  PrivateDataHome() { ::setenv("XDG_DATA_HOME", folder.path().c_str(), 1); }
  testing::TempFolder folder{"orla-xdg"};
};
const PrivateDataHome& dataHome() {
  static PrivateDataHome home;
  return home;
}
const bool kDataHomeReady = !dataHome().folder.path().empty();

class GioServicesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(kDataHomeReady);
    if (std::getenv("XDG_DATA_HOME") != dataHome().folder.path().string())
      GTEST_SKIP() << "XDG_DATA_HOME was changed by another test in this process.";
  }
  std::shared_ptr<Platform> platform = makeNativePlatform();
  testing::TempFolder tmp{"orla-gio"};
};

TEST_F(GioServicesTest, TheTrashTakesTheItemAndRemembersWhereItWas) {
  // On the data folder's own volume, so the item goes to the user's Trash.
  const std::string item = dataHome().folder.write("work/Report 1.txt", "kept");
  ASSERT_TRUE(platform->supports(Capability::trash));
  auto trashed = platform->fileManager().moveToTrash(item);
  ASSERT_TRUE(trashed) << trashed.error();
  EXPECT_FALSE(fs::exists(item));
  EXPECT_EQ(dataHome().folder.read("Trash/files/Report 1.txt"), "kept");
  const std::string info = dataHome().folder.read("Trash/info/Report 1.txt.trashinfo");
  EXPECT_NE(info.find("Path=" + dataHome().folder.path().string() + "/work/Report%201.txt"), std::string::npos) << info;

  auto missing = platform->fileManager().moveToTrash(dataHome().folder / "work/none.txt");
  ASSERT_FALSE(missing);
  EXPECT_TRUE(missing.error().ends_with(".")) << missing.error();
}

TEST_F(GioServicesTest, RecentDocumentsComeFromTheRecentlyUsedListNewestFirst) {
  const auto bookmark = [](const std::string& uri, const std::string& when, const std::string& title) {
    std::string entry = "  <bookmark href=\"" + uri + "\" added=\"" + when + "\" modified=\"" + when + "\" visited=\"" +
                        when + "\">\n";
    if (!title.empty()) entry += "    <title>" + title + "</title>\n";
    entry +=
        "    <info><metadata owner=\"http://freedesktop.org\"><mime:mime-type type=\"text/plain\"/>"
        "<bookmark:applications><bookmark:application name=\"editor\" exec=\"editor %u\" modified=\"" +
        when + "\" count=\"1\"/></bookmark:applications></metadata></info>\n  </bookmark>\n";
    return entry;
  };
  dataHome().folder.write(
      "recently-used.xbel",
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xbel version=\"1.0\" "
      "xmlns:bookmark=\"http://www.freedesktop.org/standards/desktop-bookmarks\" "
      "xmlns:mime=\"http://www.freedesktop.org/standards/shared-mime-info\">\n" +
          bookmark("file:///home/ada/old.txt", "2024-01-01T10:00:00Z", "") +
          bookmark("file:///home/ada/My%20Notes.txt", "2025-06-01T10:00:00Z", "Notes") +
          bookmark("https://example.com/page", "2025-07-01T10:00:00Z", "") + "</xbel>\n");
  const std::vector<RecentDocument> expected{{"/home/ada/My Notes.txt", "Notes"}, {"/home/ada/old.txt", ""}};
  EXPECT_EQ(platform->fileManager().recentDocuments(), expected);
  fs::remove(dataHome().folder / "recently-used.xbel");
  EXPECT_TRUE(platform->fileManager().recentDocuments().empty());
}

TEST_F(GioServicesTest, AttributesNamesAndApplicationsOfTheFileSystem) {
  const std::string file = tmp.write("data.bin", std::string(2048, 'x'));
  fs::create_symlink(file, tmp / "link");
  FileManager& files = platform->fileManager();
  auto attributes = files.attributes(file);
  ASSERT_TRUE(attributes) << attributes.error();
  EXPECT_EQ(attributes->type, FileAttributes::Type::regular);
  EXPECT_EQ(attributes->size, 2048u);
  EXPECT_TRUE(attributes->modificationDate);
  EXPECT_EQ(files.attributes(tmp / "link")->type, FileAttributes::Type::symbolicLink);
  EXPECT_EQ(files.attributes(tmp.path().string())->type, FileAttributes::Type::directory);
  EXPECT_FALSE(files.attributes(tmp / "none"));
  EXPECT_FALSE(files.formatByteCount(2048).empty());

  FileWorkspace& workspace = platform->fileWorkspace();
  EXPECT_EQ(workspace.displayName(file), "data.bin");
  EXPECT_FALSE(workspace.isPackage(tmp.path().string()));
  const std::string entry = tmp.write("orla-test-viewer.desktop",
                                      "[Desktop Entry]\nType=Application\nName=Orla Test Viewer\nExec=/bin/true %u\n");
  EXPECT_TRUE(workspace.bundleIdentifier(entry));
  EXPECT_FALSE(workspace.bundleIdentifier(file));
  EXPECT_EQ(workspace.applicationForURL("x-orla-unhandled-scheme:thing"), std::nullopt);
  EXPECT_FALSE(workspace.selectedItemURLs("com.apple.finder"));

  std::optional<std::optional<std::string>> answer;
  workspace.openURLs({"https://example.com"}, tmp / "none.desktop", {}, [&](auto error) { answer = error; });
  ASSERT_TRUE(answer);
  EXPECT_TRUE(*answer);
}

TEST_F(GioServicesTest, AFileAddressOpensWithTheApplicationOfTheFilesType) {
  // No application claims the scheme "file"; the file's type decides.
  dataHome().folder.write("applications/orla-file-viewer.desktop",
                          "[Desktop Entry]\nType=Application\nName=Orla File Viewer\nExec=/bin/true %u\n"
                          "MimeType=text/plain;\n");
  dataHome().folder.write("applications/mimeapps.list", "[Default Applications]\ntext/plain=orla-file-viewer.desktop\n");
  const std::string file = tmp.write("notes.txt", "some words\n");
  FileWorkspace& workspace = platform->fileWorkspace();
  const auto app = workspace.applicationForURL("file://" + file);
  ASSERT_TRUE(app);
  EXPECT_TRUE(app->ends_with("/orla-file-viewer.desktop")) << *app;
  EXPECT_EQ(workspace.applicationForURL("file://" + tmp.path().string() + "/absent.txt"), std::nullopt);
}

}  // namespace
}  // namespace orla
