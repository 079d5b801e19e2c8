// The file operations against inputs made to hurt: archives that lie about
// their entries or aim through links already on disk, extractions that fail
// half-way, and replacements that would remove what the operation needs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>
#include <unistd.h>

#include "plugins/apps/file_operation_plugin.h"
#include "plugins/apps/zip_archive.h"
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"
#include "tests/support/zip_writer.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;
using testing::ZipEntry;
using Kind = ZipEntry::Kind;

class HostileFileOperationTest : public testing::SimTest {
 protected:
  HostileFileOperationTest() {
    desktop->setEnvironment({{"HOME", tmp / "home"}, {"PATH", "/usr/bin:/bin"}});
    fs::create_directories(tmp / "home");
    fs::create_directories(tmp / "elsewhere");
  }

  PluginResult unzip(const std::string& archive, const std::string& target) {
    return plugin.execute({{"subAction", "unzip"}, {"source", archive}, {"destination", target}});
  }

  TempFolder tmp{"orla-hostile"};
  FileOperationPlugin plugin{platform};
};

TEST_F(HostileFileOperationTest, ArchivesWhoseListingCouldLieAreRefusedWhole) {
  const struct {
    std::string name;
    std::vector<ZipEntry> entries;
    std::string blocked;
  } cases[] = {
      // Two links of one name: read by name, the target would be both contents.
      {"twin links", {{"up", "sub", Kind::symlink}, {"up", "/../../../tmp", Kind::symlink}}, "up"},
      {"twin files", {{"a.txt", "one"}, {"a.txt", "two"}}, "a.txt"},
      {"a folder and a file of one name", {{"a/", "", Kind::folder}, {"a", "x"}}, "a"},
      {"one place spelled twice", {{"d/x.txt", "one"}, {"d//./x.txt", "two"}}, "d//./x.txt"},
  };
  for (const auto& c : cases) {
    const std::string archive = tmp / (c.name + ".zip");
    testing::writeZip(archive, c.entries);
    EXPECT_EQ(unzip(archive, tmp / ("t " + c.name)),
              PluginResult::failure("Decompression blocked: unsafe path in archive (" + c.blocked + ")"))
        << c.name;
    EXPECT_FALSE(tmp.has("t " + c.name)) << c.name;
  }
  EXPECT_TRUE(fs::is_empty(tmp / "elsewhere"));
}

TEST_F(HostileFileOperationTest, AnArchivePathWithALineBreakIsStillReadEntryByEntry) {
  const std::string archive = tmp / "two\nlines.zip";
  testing::writeZip(archive, {{"ok.txt", "fine"}, {"door", "../elsewhere", Kind::symlink}});
  EXPECT_EQ(unzip(archive, tmp / "t"),
            PluginResult::failure("Decompression blocked: unsafe path in archive (door)"));
  testing::writeZip(archive, {{"ok.txt", "fine"}});
  EXPECT_EQ(unzip(archive, tmp / "t").kind(), PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("t/ok.txt"), "fine");
}

TEST_F(HostileFileOperationTest, ALinkAlreadyAtAFilesPlaceIsReplacedNotFollowed) {
  const std::string victim = tmp.write("elsewhere/victim.txt", "keep me");
  fs::create_directories(tmp / "t");
  fs::create_symlink(victim, tmp / "t/out.txt");
  testing::writeZip(tmp / "a.zip", {{"out.txt", "from the archive"}});
  EXPECT_EQ(unzip(tmp / "a.zip", tmp / "t").kind(), PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("elsewhere/victim.txt"), "keep me");
  EXPECT_FALSE(fs::is_symlink(tmp / "t/out.txt"));
  EXPECT_EQ(tmp.read("t/out.txt"), "from the archive");
}

TEST_F(HostileFileOperationTest, ALinkInsideThatAFolderWouldBeWrittenThroughIsNotFollowed) {
  // The link stays inside, yet writing through it is writing somewhere the
  // archive did not name.
  fs::create_directories(tmp / "t/real");
  fs::create_directory_symlink("real", tmp / "t/alias");
  testing::writeZip(tmp / "a.zip", {{"alias/", "", Kind::folder}, {"alias/x.txt", "x"}});
  EXPECT_EQ(unzip(tmp / "a.zip", tmp / "t"),
            PluginResult::failure("Decompression blocked: unsafe path in archive (alias)"));
  EXPECT_TRUE(fs::is_empty(tmp / "t/real"));
}

TEST_F(HostileFileOperationTest, AFailedExtractionLeavesEveryFileTheTargetHad) {
  // A damaged entry (its bytes no longer match its checksum) makes unzip
  // fail after it has written the file: the old one must stay whole.
  const std::string archive = tmp / "damaged.zip";
  testing::writeZip(archive, {{"new.txt", "fresh"}, {"notes.txt", "AAAAAAAAAAAAAAAA"}});
  {
    std::fstream file(archive, std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto at = bytes.find("AAAAAAAAAAAAAAAA");
    ASSERT_NE(at, std::string::npos);
    file.seekp(static_cast<std::streamoff>(at));
    file << "BBBBBBBBBBBBBBBB";
  }
  tmp.write("t/notes.txt", "the user's notes");
  const auto result = unzip(archive, tmp / "t");
  ASSERT_TRUE(result.isFailure());
  EXPECT_TRUE(result.message().starts_with("Decompression failed: ")) << result.message();
  EXPECT_EQ(result.message().find("(y/n"), std::string::npos) << result.message();
  EXPECT_EQ(result.message().find(".orla-unzip"), std::string::npos) << result.message();
  EXPECT_EQ(tmp.read("t/notes.txt"), "the user's notes");
  EXPECT_FALSE(tmp.has("t/new.txt"));
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp / "t"), fs::directory_iterator()), 1);
}

TEST_F(HostileFileOperationTest, ExtractingOntoAFullDiskKeepsTheOldFile) {
  // A small file system of its own; without the right to mount one, skip.
  const std::string small = tmp / "small";
  fs::create_directories(small);
  if (std::system(("mount -t tmpfs -o size=64k tmpfs '" + small + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "cannot mount a small file system here";
  struct Unmount {
    std::string path;
    ~Unmount() { (void)std::system(("umount '" + path + "'").c_str()); }
  } unmount{small};
  std::string noise(200000, '\0');
  std::uint32_t state = 12345;
  for (char& c : noise) c = static_cast<char>((state = state * 1103515245 + 12345) >> 24);
  testing::writeZip(tmp / "big.zip", {{"notes.txt", noise}});
  tmp.write("small/t/notes.txt", "the user's notes");
  const auto result = unzip(tmp / "big.zip", small + "/t");
  EXPECT_EQ(result, PluginResult::failure("Decompression failed: " + small + "/t/notes.txt: write error (disk full?)."));
  EXPECT_EQ(tmp.read("small/t/notes.txt"), "the user's notes");
  EXPECT_EQ(std::distance(fs::directory_iterator(small + "/t"), fs::directory_iterator()), 1);
}

TEST_F(HostileFileOperationTest, ExtractionMergesIntoFoldersAndReplacesFilesWhole) {
  tmp.write("t/docs/old.txt", "kept");
  tmp.write("t/docs/a.txt", "old a");
  testing::writeZip(tmp / "a.zip", {{"docs/", "", Kind::folder}, {"docs/a.txt", "new a"}, {"docs/b/c.txt", "c"}});
  EXPECT_EQ(unzip(tmp / "a.zip", tmp / "t").kind(), PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("t/docs/old.txt"), "kept");
  EXPECT_EQ(tmp.read("t/docs/a.txt"), "new a");
  EXPECT_EQ(tmp.read("t/docs/b/c.txt"), "c");
  // A file where the archive has a folder: nothing is placed at all.
  tmp.write("u/docs", "a file");
  tmp.write("u/a.txt", "old");
  testing::writeZip(tmp / "b.zip", {{"a.txt", "new"}, {"docs/x.txt", "x"}});
  EXPECT_TRUE(unzip(tmp / "b.zip", tmp / "u").isFailure());
  EXPECT_EQ(tmp.read("u/a.txt"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp / "u"), fs::directory_iterator()), 2);
}

TEST_F(HostileFileOperationTest, NothingTheOperationNeedsIsRemovedToMakeRoom) {
  tmp.write("project/src/main.c", "int main;");
  tmp.write("data/a.txt", "a");
  tmp.write("archive.zip/inside.txt", "a folder named like the archive");
  const struct {
    std::string name;
    ActionData data;
    std::string kept;
  } cases[] = {
      {"a link in place of the folder holding the original",
       {{"subAction", "symlink"}, {"source", tmp / "project/src/main.c"}, {"destination", tmp / "project"}},
       "project/src/main.c"},
      {"a relative link in place of its own folder",
       {{"subAction", "symlink"}, {"source", "project/src/main.c"}, {"destination", tmp / "project"}},
       "project/src/main.c"},
      {"an archive in place of a folder that holds files",
       {{"subAction", "compress"}, {"source", tmp / "data"}, {"destination", tmp / "archive"}},
       "archive.zip/inside.txt"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(plugin.execute(c.data).isFailure()) << c.name;
    EXPECT_TRUE(fs::is_regular_file(tmp / c.kept)) << c.name;
  }
  EXPECT_EQ(tmp.read("project/src/main.c"), "int main;");
}

TEST_F(HostileFileOperationTest, ReplacingIsOneRenameWhereTheFileSystemAllows) {
  const struct {
    std::string name;
    std::string operation;
  } cases[] = {{"copy over a file", "copy"}, {"move over a file", "move"}};
  for (const auto& c : cases) {
    const std::string source = tmp.write(c.name + "/new.txt", "new");
    tmp.write(c.name + "/old", "old");
    ASSERT_EQ(plugin.execute({{"subAction", c.operation}, {"source", source}, {"destination", tmp / (c.name + "/old")}})
                  .kind(),
              PluginResult::Kind::success)
        << c.name;
    EXPECT_EQ(tmp.read(c.name + "/old"), "new") << c.name;
    // Nothing set aside is left behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp / c.name), fs::directory_iterator()),
              c.operation == "copy" ? 2 : 1)
        << c.name;
  }
  // Two names of one file: moving one over the other keeps the file.
  const std::string a = tmp.write("links/a", "shared");
  fs::create_hard_link(a, tmp / "links/b");
  EXPECT_EQ(plugin.execute({{"subAction", "move"}, {"source", a}, {"destination", tmp / "links/b"}}).kind(),
            PluginResult::Kind::success);
  EXPECT_FALSE(tmp.has("links/a"));
  EXPECT_EQ(tmp.read("links/b"), "shared");
}

TEST_F(HostileFileOperationTest, AMoveBetweenVolumesThatCannotLetGoOfTheSourceLeavesTheTarget) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
  TempFolder other{"orla-hostile-volume"};
  if (fs::path("/dev/shm").empty() || !fs::is_directory("/dev/shm")) GTEST_SKIP() << "no second volume";
  const fs::path shm = fs::path("/dev/shm") / ("orla-hostile-" + std::to_string(::getpid()));
  fs::create_directories(shm / "locked");
  std::ofstream(shm / "locked/item.txt") << "source";
  fs::permissions(shm / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  const std::string target = tmp.write("target.txt", "the user's target");
  const auto result =
      plugin.execute({{"subAction", "move"}, {"source", (shm / "locked/item.txt").string()}, {"destination", target}});
  fs::permissions(shm / "locked", fs::perms::owner_all);
  EXPECT_TRUE(result.isFailure());
  EXPECT_EQ(tmp.read("target.txt"), "the user's target");
  std::error_code ec;
  fs::remove_all(shm, ec);
}

TEST_F(HostileFileOperationTest, AMoveBetweenVolumesMovesWhole) {
  if (!fs::is_directory("/dev/shm")) GTEST_SKIP() << "no second volume";
  const fs::path shm = fs::path("/dev/shm") / ("orla-hostile-move-" + std::to_string(::getpid()));
  fs::create_directories(shm / "tree/sub");
  std::ofstream(shm / "tree/sub/f.txt") << "moved";
  tmp.write("tree", "a file the folder replaces");
  EXPECT_EQ(plugin.execute({{"subAction", "move"}, {"source", (shm / "tree").string()}, {"destination", tmp / "tree"}})
                .kind(),
            PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("tree/sub/f.txt"), "moved");
  EXPECT_FALSE(fs::exists(shm / "tree"));
  std::error_code ec;
  fs::remove_all(shm, ec);
}

TEST_F(HostileFileOperationTest, ConcurrentDeletesOfOneNameEachKeepTheirOwnPlaceInTheTrash) {
  desktop->documents().setTrashFolder(tmp / "Trash");
  constexpr int kThreads = 4, kEach = 60;
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kEach; ++i)
      tmp.write("src" + std::to_string(t) + "-" + std::to_string(i) + "/Notes.txt", std::to_string(t * kEach + i));
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i)
        if (!platform->fileManager().moveToTrash(tmp / ("src" + std::to_string(t) + "-" + std::to_string(i) + "/Notes.txt")))
          ++failures;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  std::set<std::string> contents;
  for (const auto& item : fs::directory_iterator(tmp / "Trash")) contents.insert(tmp.read(fs::relative(item.path(), tmp.path()).string()));
  EXPECT_EQ(contents.size(), std::size_t{kThreads * kEach});
}

TEST_F(HostileFileOperationTest, APathWithANulNeverReachesTheSystemCutShort) {
  const std::string victim = tmp.write("victim.txt", "keep me");
  const std::string source = tmp.write("source.txt", "new");
  const std::string withNul = victim + std::string(1, '\0') + "/x";
  const ActionData cases[] = {
      {{"subAction", "copy"}, {"source", source}, {"destination", withNul}},
      {{"subAction", "move"}, {"source", source}, {"destination", withNul}},
      {{"subAction", "symlink"}, {"source", source}, {"destination", withNul}},
      {{"subAction", "delete"}, {"source", withNul}},
      {{"subAction", "compress"}, {"source", source}, {"destination", withNul}},
  };
  for (const ActionData& data : cases) EXPECT_TRUE(plugin.execute(data).isFailure());
  EXPECT_EQ(tmp.read("victim.txt"), "keep me");
  EXPECT_EQ(tmp.read("source.txt"), "new");
  // Nor does a command: the system would run only what comes before the NUL.
  CapturedOutput out, err;
  auto ran = platform->processes().run({"/bin/echo", {std::string("a\0b", 3)}, {}}, out, err);
  ASSERT_FALSE(ran);
  EXPECT_EQ(ran.error(), "The command holds a NUL character, which cannot be passed on.");
}

TEST(ZipCentralDirectoryTest, ManyLinksAreReadInOnePass) {
  TempFolder tmp{"orla-zip-links"};
  std::vector<ZipEntry> entries;
  for (int i = 0; i < 3000; ++i) {
    // Built in steps: GCC 12 at -O3 warns falsely on "l" + std::to_string(i).
    std::string name = "l", target = "t";
    name += std::to_string(i);
    target += std::to_string(i);
    entries.push_back({name, target, Kind::symlink});
  }
  testing::writeZip(tmp / "links.zip", entries);
  auto read = readArchiveEntries(tmp / "links.zip");
  ASSERT_TRUE(read);
  ASSERT_EQ(read->size(), 3000u);
  EXPECT_EQ(read->at(2999).linkTarget, "t2999");
  EXPECT_EQ(firstDuplicateEntry(*read), std::nullopt);
  EXPECT_EQ(firstUnsafeEntry(*read, tmp.path(), {}), std::nullopt);
}

}  // namespace
}  // namespace orla
