// The file operations on the real file system of a fresh folder, with the
// real zip and unzip tools; the Trash and the clipboard are the simulated
// desktop's.
#include "plugins/apps/file_operation_plugin.h"
#include "plugins/apps/zip_archive.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"
#include "tests/support/zip_writer.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using Operation = FileOperationPlugin::Operation;
using testing::TempFolder;
using testing::ZipEntry;

class FileOperationTest : public testing::SimTest {
 protected:
  FileOperationTest() {
    desktop->setEnvironment({{"HOME", tmp / "home"}, {"PATH", "/usr/bin:/bin"}});
    fs::create_directories(tmp / "home");
  }

  PluginResult run(ActionData data) { return plugin.execute(data); }

  // The programs the simulated desktop started, as the trace shows them.
  std::vector<std::string> processes() const {
    std::vector<std::string> runs;
    for (const auto& entry : desktop->trace("process")) runs.push_back(entry.text);
    return runs;
  }

  TempFolder tmp{"orla-fileop"};
  FileOperationPlugin plugin{platform};
};

TEST_F(FileOperationTest, TheOperationComesFromItsNameThenItsCodeElseItIsCopy) {
  const struct {
    ActionData data;
    Operation expected;
  } cases[] = {
      {{}, Operation::copy},
      {{{"subAction", " ZIP \n"}}, Operation::compress},
      {{{"subAction", "Trash"}}, Operation::remove},
      {{{"operation", "mkdir"}}, Operation::createDirectory},
      {{{"subAction", "createSymlink"}}, Operation::symlink},
      {{{"subAction", "fileinfo"}}, Operation::info},
      {{{"actionType", 6}}, Operation::decompress},
      {{{"Action", 1}}, Operation::move},
      {{{"actionType", 8}, {"subAction", "rename"}}, Operation::rename},
      {{{"subAction", "shred"}, {"actionType", 3}}, Operation::remove},
      {{{"actionType", 9}}, Operation::copy},
      {{{"actionType", -1}}, Operation::copy},
      {{{"subAction", 2}}, Operation::copy},
  };
  for (const auto& c : cases)
    EXPECT_EQ(FileOperationPlugin::operation(c.data), c.expected) << ::testing::PrintToString(c.data.size());
  std::vector<std::string_view> written;
  for (Operation op : FileOperationPlugin::operations) written.push_back(FileOperationPlugin::subAction(op));
  EXPECT_EQ(written, (std::vector<std::string_view>{"copy", "move", "rename", "delete", "createDirectory", "compress",
                                                     "decompress", "symlink", "info"}));
}

TEST_F(FileOperationTest, ValidationNamesWhatEachOperationMisses) {
  const std::string file = tmp.write("a.txt", "a");
  const std::string missing = tmp / "missing.txt";
  const struct {
    ActionData data;
    std::optional<std::string> expected;
  } cases[] = {
      {{{"destination", "/tmp"}}, "Copy needs a source and a destination."},
      {{{"subAction", "move"}, {"source", file}, {"destination", "  "}}, "Move needs a source and a destination."},
      {{{"subAction", "rename"}}, "Rename needs a source path."},
      {{{"subAction", "rename"}, {"source", file}}, "Rename needs a new name."},
      {{{"subAction", "rename"}, {"source", file}, {"newName", "x/y.txt"}},
       "New name cannot contain a slash. Use Move to put the file in another folder."},
      {{{"subAction", "delete"}}, "Delete needs a source path."},
      {{{"subAction", "mkdir"}}, "Create Directory needs a folder path."},
      {{{"subAction", "mkdir"}, {"source", missing}}, std::nullopt},
      {{{"subAction", "zip"}}, "Compress needs a source path."},
      {{{"subAction", "unzip"}}, "Decompress needs a zip file path."},
      {{{"subAction", "symlink"}, {"source", file}}, "Create Symlink needs the original path and the link path."},
      {{{"subAction", "info"}}, "Get File Info needs a source path."},
      {{{"source", missing}, {"destination", tmp / "b"}}, "Copy failed: “" + missing + "” was not found."},
      {{{"subAction", "delete"}, {"source", missing}}, "Delete failed: “" + missing + "” was not found."},
      {{{"subAction", "zip"}, {"source", missing}}, "Compress failed: “" + missing + "” was not found."},
      {{{"subAction", "unzip"}, {"source", missing}}, "Decompress failed: “" + missing + "” was not found."},
      {{{"subAction", "symlink"}, {"source", missing}, {"destination", tmp / "l"}},
       "Symlink failed: “" + missing + "” was not found."},
      {{{"subAction", "info"}, {"source", missing}}, "Failed to get file info: “" + missing + "” was not found."},
      {{{"subAction", "rename"}, {"source", "~/gone.txt"}, {"newName", "b"}},
       "Rename failed: “" + (tmp / "home/gone.txt") + "” was not found."},
      {{{"source", file}, {"destination", tmp / "b.txt"}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.expected);
    if (c.expected) {
      EXPECT_EQ(run(c.data), PluginResult::failure(*c.expected));
    }
  }
}

TEST_F(FileOperationTest, CopyIntoAFolderKeepsTheNameAndReplacesWhatIsThere) {
  const std::string source = tmp.write("a.txt", "new");
  fs::create_directories(tmp / "into");
  tmp.write("into/a.txt", "old");
  const struct {
    std::string destination;
    std::string target;
  } cases[] = {
      {tmp / "into", tmp / "into/a.txt"},
      {tmp / "into/", tmp / "into/a.txt"},
      {tmp / "renamed.txt", tmp / "renamed.txt"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(run({{"source", source}, {"destination", c.destination}}),
              PluginResult::success("Copied " + source + " to " + c.target));
    EXPECT_EQ(tmp.read(fs::relative(c.target, tmp.path()).string()), "new");
  }
  EXPECT_EQ(tmp.read("a.txt"), "new");
  // Nothing is left of the fresh copies made beside the targets.
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp / "into"), fs::directory_iterator()), 1);
}

TEST_F(FileOperationTest, CopyingAFolderTakesEverythingInItAndReplacesAFolder) {
  tmp.write("tree/one.txt", "1");
  tmp.write("tree/deep/two.txt", "2");
  fs::create_symlink("one.txt", tmp / "tree/link");
  tmp.write("copy/stale.txt", "stale");
  EXPECT_EQ(run({{"source", tmp / "tree"}, {"destination", tmp / "copy"}}).kind(), PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("copy/tree/deep/two.txt"), "2");
  EXPECT_EQ(fs::read_symlink(tmp / "copy/tree/link"), "one.txt");

  EXPECT_EQ(run({{"source", tmp / "tree"}, {"destination", tmp / "copy/stale.txt"}}).kind(),
            PluginResult::Kind::success);
  EXPECT_TRUE(fs::is_directory(tmp / "copy/stale.txt"));
  EXPECT_EQ(tmp.read("copy/stale.txt/one.txt"), "1");
}

TEST_F(FileOperationTest, ACopyOrMoveOntoItselfIsRefusedAndTheSourceStays) {
  tmp.write("docs/report.txt", "keep me");
  fs::create_directory_symlink(tmp / "docs", tmp / "alias");
  fs::create_symlink(tmp / "docs/report.txt", tmp / "report-link");
  const std::string source = tmp / "docs/report.txt";
  for (std::string_view op : {"copy", "move"}) {
    const std::string word = op == "copy" ? "Copy" : "Move";
    for (const std::string& destination :
         {tmp / "docs", tmp / "docs/", tmp / "alias", tmp / "alias/report.txt", tmp / "docs/../docs/report.txt"})
      EXPECT_EQ(run({{"subAction", std::string(op)}, {"source", source}, {"destination", destination}}),
                PluginResult::failure(word + " failed: source and destination are the same."))
          << destination;
    // A link copied over the very file it points to would leave a link to itself.
    EXPECT_EQ(run({{"subAction", std::string(op)}, {"source", tmp / "report-link"}, {"destination", source}}),
              PluginResult::failure(word + " failed: source and destination are the same."));
  }
  EXPECT_EQ(tmp.read("docs/report.txt"), "keep me");
  EXPECT_EQ(run({{"source", tmp / "docs"}, {"destination", tmp / "alias/inner"}}),
            PluginResult::failure("Copy failed: a folder cannot be put inside itself."));
  EXPECT_FALSE(tmp.has("docs/inner"));
}

TEST_F(FileOperationTest, AFailedCopyOrMoveLosesNothing) {
  const std::string source = tmp.write("a.txt", "data");
  tmp.write("plain-file", "not a folder");
  // The target's folder does not exist, or is a file.
  const struct {
    std::string destination, error;
  } cases[] = {
      {tmp / "nowhere/", "No such file or directory: “" + (tmp / "nowhere") + "”."},
      {tmp / "plain-file/a.txt", "Not a directory: “" + (tmp / "plain-file") + "”."},
  };
  for (const auto& c : cases) {
    for (std::string_view op : {"copy", "move"}) {
      const std::string word = op == "copy" ? "Copy" : "Move";
      EXPECT_EQ(run({{"subAction", std::string(op)}, {"source", source}, {"destination", c.destination}}),
                PluginResult::failure(word + " failed: " + c.error));
      EXPECT_EQ(tmp.read("a.txt"), "data");
    }
  }
  EXPECT_EQ(tmp.read("plain-file"), "not a folder");
}

TEST_F(FileOperationTest, MoveAndRenameReplaceWhatIsAtTheTarget) {
  const std::string source = tmp.write("draft.txt", "draft");
  tmp.write("final.txt", "old final");
  EXPECT_EQ(run({{"subAction", "rename"}, {"source", source}, {"newName", "final.txt"}}),
            PluginResult::success("Renamed to final.txt"));
  EXPECT_EQ(tmp.read("final.txt"), "draft");
  EXPECT_FALSE(tmp.has("draft.txt"));

  tmp.write("archive/final.txt/inside", "a folder in the way");
  EXPECT_EQ(run({{"subAction", "move"}, {"source", tmp / "final.txt"}, {"destination", tmp / "archive/"}}),
            PluginResult::success("Moved " + (tmp / "final.txt") + " to " + (tmp / "archive/final.txt")));
  EXPECT_EQ(tmp.read("archive/final.txt"), "draft");

  // Renaming to its own name changes nothing; "." and ".." are not names.
  EXPECT_EQ(run({{"subAction", "rename"}, {"source", tmp / "archive/final.txt"}, {"newName", "final.txt"}}),
            PluginResult::success("Renamed to final.txt"));
  EXPECT_EQ(run({{"subAction", "rename"}, {"source", tmp / "archive/final.txt"}, {"newName", ".."}}),
            PluginResult::failure("Rename failed: “..” cannot be the name of a file."));
  EXPECT_EQ(tmp.read("archive/final.txt"), "draft");
}

TEST_F(FileOperationTest, DeleteMovesToTheTrashUnderAFreeName) {
  fs::create_directories(tmp / "home/.Trash");
  tmp.write("home/.Trash/notes.txt", "older");
  const std::string source = tmp.write("notes.txt", "newer");
  EXPECT_EQ(run({{"subAction", "delete"}, {"source", source}}), PluginResult::success("Moved “notes.txt” to the Trash."));
  EXPECT_FALSE(tmp.has("notes.txt"));
  EXPECT_EQ(tmp.read("home/.Trash/notes 2.txt"), "newer");
  EXPECT_EQ(tmp.read("home/.Trash/notes.txt"), "older");
  EXPECT_EQ(desktop->trace("trash").size(), 1u);
}

TEST_F(FileOperationTest, CreateDirectoryMakesTheFoldersAbove) {
  EXPECT_EQ(run({{"subAction", "mkdir"}, {"path", tmp / "a/b/c"}}),
            PluginResult::success("Created the folder " + (tmp / "a/b/c")));
  EXPECT_TRUE(fs::is_directory(tmp / "a/b/c"));
  EXPECT_EQ(run({{"subAction", "mkdir"}, {"destination", tmp / "a/b/c"}}).kind(), PluginResult::Kind::success);
  tmp.write("file", "x");
  const auto result = run({{"subAction", "mkdir"}, {"source", tmp / "file/sub"}});
  ASSERT_TRUE(result.isFailure());
  EXPECT_TRUE(result.message().starts_with("Create directory failed: ")) << result.message();
}

TEST_F(FileOperationTest, SymlinkReplacesWhatIsAtTheLinkButNeverTheOriginal) {
  const std::string original = tmp.write("target.txt", "t");
  tmp.write("link", "in the way");
  EXPECT_EQ(run({{"subAction", "symlink"}, {"source", original}, {"destination", tmp / "link"}}),
            PluginResult::success("Created a symlink at " + (tmp / "link")));
  EXPECT_EQ(fs::read_symlink(tmp / "link"), original);
  EXPECT_EQ(run({{"subAction", "symlink"}, {"source", original}, {"destination", tmp / "link"}}).kind(),
            PluginResult::Kind::success);
  EXPECT_EQ(run({{"subAction", "symlink"}, {"source", original}, {"destination", original}}),
            PluginResult::failure("Symlink failed: source and destination are the same."));
  EXPECT_EQ(tmp.read("target.txt"), "t");
}

TEST_F(FileOperationTest, InfoReportsSizeAndDateAndPutsThemOnTheClipboard) {
  const std::string file = tmp.write("big.bin", std::string(1'500'000, 'x'));
  const auto stamp = std::chrono::sys_days{std::chrono::year{2026} / 3 / 14} + std::chrono::hours{13} +
                     std::chrono::minutes{5};
  fs::last_write_time(file, fs::file_time_type::clock::from_sys(
                                std::chrono::time_point_cast<std::chrono::system_clock::duration>(stamp)));
  const auto result = run({{"subAction", "info"}, {"source", file}});
  // Paris is an hour ahead of UTC in March.
  const std::string expected = file + "\nSize: 1.5 MB\nModified: Mar 14, 2026, 2:05\u202fPM";
  EXPECT_EQ(result, PluginResult::success(expected));
  EXPECT_EQ(desktop->clipboardText(), expected);
}

TEST_F(FileOperationTest, TheArchivePathFollowsTheDestination) {
  const struct {
    std::string source, destination;
    bool folder;
    std::string expected;
  } cases[] = {
      {"/w/Reports", "", false, "/w/Reports.zip"},
      {"/w/Reports/", "", false, "/w/Reports.zip"},
      {"/w/notes.txt", "/out/", true, "/out/notes.txt.zip"},
      {"/w/notes.txt", "/out/backup", false, "/out/backup.zip"},
      {"/w/notes.txt", "/out/backup.ZIP", false, "/out/backup.ZIP"},
      {"/w/notes.txt", "/out/backup.tar", false, "/out/backup.tar.zip"},
  };
  for (const auto& c : cases) EXPECT_EQ(archivePathFor(c.source, c.destination, c.folder), c.expected) << c.destination;
}

TEST_F(FileOperationTest, CompressAndDecompressRoundTripThroughTheRealTools) {
  tmp.write("project/readme.txt", "hello");
  tmp.write("project/src/main.c", "int main(void) { return 0; }");
  tmp.write("project.zip", "an old archive, replaced whole");
  EXPECT_EQ(run({{"subAction", "compress"}, {"source", tmp / "project"}}),
            PluginResult::success("Compressed to " + (tmp / "project.zip")));
  const auto runs = processes();
  ASSERT_FALSE(runs.empty());
  EXPECT_TRUE(runs[0].starts_with("run /usr/bin/zip -r -q ")) << runs[0];
  EXPECT_TRUE(runs[0].ends_with(" project")) << runs[0];

  EXPECT_EQ(run({{"subAction", "unzip"}, {"source", tmp / "project.zip"}, {"destination", tmp / "out/here"}}),
            PluginResult::success("Decompressed into " + (tmp / "out/here")));
  EXPECT_EQ(tmp.read("out/here/project/src/main.c"), "int main(void) { return 0; }");
  EXPECT_EQ(tmp.read("out/here/project/readme.txt"), "hello");
  // Without a destination the archive's own folder takes the files.
  fs::remove_all(tmp / "project");
  EXPECT_EQ(run({{"subAction", "unzip"}, {"source", tmp / "project.zip"}}).kind(), PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("project/readme.txt"), "hello");
}

TEST_F(FileOperationTest, AFailedCompressionLeavesTheOldArchiveAndNoPartialFile) {
  tmp.write("data/a.txt", "a");
  const std::string archive = tmp.write("out/data.zip", "old archive");
  // The archive's folder is a file: zip cannot write there.
  tmp.write("blocked", "file");
  auto result = run({{"subAction", "zip"}, {"source", tmp / "data"}, {"destination", tmp / "blocked/x.zip"}});
  ASSERT_TRUE(result.isFailure());
  // zip's own words, naming the archive asked for rather than the hidden file
  // it writes first, and no full stop added after them.
  EXPECT_EQ(result, PluginResult::failure("Compression failed: zip I/O error: Not a directory\n"
                                          "zip error: Could not create output file (" +
                                          (tmp / "blocked/x.zip") + ")"));
  EXPECT_EQ(tmp.read("out/data.zip"), "old archive");
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp / "out"), fs::directory_iterator()), 1);
}

TEST_F(FileOperationTest, AnUnreadableArchiveSaysSo) {
  const std::string archive = tmp.write("broken.zip", "this is not a zip archive");
  const auto result = run({{"subAction", "unzip"}, {"source", archive}, {"destination", tmp / "out"}});
  ASSERT_TRUE(result.isFailure());
  EXPECT_TRUE(result.message().starts_with("Decompression failed: could not read archive. ")) << result.message();
  EXPECT_FALSE(tmp.has("out"));
}

// Archives that would write outside their folder are refused whole, before
// anything is created or extracted.
TEST_F(FileOperationTest, TheGuardBlocksEveryWayOutBeforeExtracting) {
  using Kind = ZipEntry::Kind;
  fs::create_directories(tmp / "elsewhere");
  const struct {
    std::string name;
    std::vector<ZipEntry> entries;
    std::string blocked;
  } cases[] = {
      {"parent step", {{"ok.txt", "fine"}, {"../evil.txt", "x"}}, "../evil.txt"},
      {"deeper parent steps", {{"a/", "", Kind::folder}, {"a/../../evil.txt", "x"}}, "a/../../evil.txt"},
      {"absolute name", {{"ok.txt", "fine"}, {"/tmp/evil.txt", "x"}}, "/tmp/evil.txt"},
      {"backslash steps", {{"..\\evil.txt", "x"}}, "..\\evil.txt"},
      {"link to an absolute place", {{"etc", "/etc", Kind::symlink}}, "etc"},
      {"link that climbs out", {{"sub/", "", Kind::folder}, {"sub/up", "../../elsewhere", Kind::symlink}}, "sub/up"},
      {"link to the parent, written through", {{"door", "..", Kind::symlink}, {"door/evil.txt", "x"}}, "door"},
      {"chain of links", {{"a", "b", Kind::symlink}, {"b", "..", Kind::symlink}, {"ok.txt", "fine"}}, "a"},
      {"the folder itself", {{"./", "", Kind::folder}}, "./"},
  };
  for (const auto& c : cases) {
    const std::string archive = tmp / (c.name + ".zip");
    testing::writeZip(archive, c.entries);
    desktop->clearTrace();
    const std::string target = tmp / ("target " + c.name);
    EXPECT_EQ(run({{"subAction", "unzip"}, {"source", archive}, {"destination", target}}),
              PluginResult::failure("Decompression blocked: unsafe path in archive (" + c.blocked + ")"))
        << c.name;
    EXPECT_FALSE(fs::exists(target)) << c.name;
    for (const std::string& ran : processes()) EXPECT_EQ(ran.find(" -o "), std::string::npos) << c.name;
  }
  EXPECT_FALSE(tmp.has("evil.txt"));
  EXPECT_TRUE(fs::is_empty(tmp / "elsewhere"));
}

TEST_F(FileOperationTest, TheGuardFollowsLinksAlreadyInTheTargetFolder) {
  fs::create_directories(tmp / "target");
  fs::create_directories(tmp / "elsewhere");
  fs::create_directory_symlink(tmp / "elsewhere", tmp / "target/out");
  testing::writeZip(tmp / "a.zip", {{"out/evil.txt", "x"}});
  EXPECT_EQ(run({{"subAction", "unzip"}, {"source", tmp / "a.zip"}, {"destination", tmp / "target"}}),
            PluginResult::failure("Decompression blocked: unsafe path in archive (out/evil.txt)"));
  EXPECT_TRUE(fs::is_empty(tmp / "elsewhere"));
}

TEST_F(FileOperationTest, LinksThatStayInsideAreExtracted) {
  using Kind = ZipEntry::Kind;
  testing::writeZip(tmp / "framework.zip", {{"Versions/", "", Kind::folder},
                                            {"Versions/A/", "", Kind::folder},
                                            {"Versions/A/Headers/", "", Kind::folder},
                                            {"Versions/A/Headers/api.h", "int api(void);"},
                                            {"Versions/Current", "A", Kind::symlink},
                                            {"Headers", "Versions/Current/Headers", Kind::symlink},
                                            {"odd [name]*?.txt", "wildcards"}});
  EXPECT_EQ(run({{"subAction", "unzip"}, {"source", tmp / "framework.zip"}, {"destination", tmp / "fw"}}).kind(),
            PluginResult::Kind::success);
  EXPECT_EQ(tmp.read("fw/Headers/api.h"), "int api(void);");
  EXPECT_EQ(fs::read_symlink(tmp / "fw/Versions/Current"), "A");
  EXPECT_EQ(tmp.read("fw/odd [name]*?.txt"), "wildcards");
}

}  // namespace
}  // namespace orla
