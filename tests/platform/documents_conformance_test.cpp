// What every backend's documents side must do: the same answers from the
// simulated desktop and from the native one, for what both can offer here.
#include <gtest/gtest.h>

#include <filesystem>

#include <orla/platform/platform.h>
#include "platform/sim/sim_desktop.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;

struct SimDocumentsBackend {
  static std::shared_ptr<Platform> make() { return sim::makeSimPlatform(std::make_shared<sim::SimDesktop>()); }
};
struct NativeDocumentsBackend {
  static std::shared_ptr<Platform> make() { return makeNativePlatform(); }
};

template <class Backend>
class DocumentsConformance : public ::testing::Test {
 protected:
  std::shared_ptr<Platform> platform = Backend::make();
  testing::TempFolder tmp{"orla-docs-conf"};
};

using Backends = ::testing::Types<SimDocumentsBackend, NativeDocumentsBackend>;
class BackendNames {
 public:
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, SimDocumentsBackend> ? "sim" : "native";
  }
};
TYPED_TEST_SUITE(DocumentsConformance, Backends, BackendNames);

TYPED_TEST(DocumentsConformance, AttributesDescribeTheItemItselfAndSayWhyNot) {
  FileManager& files = this->platform->fileManager();
  const std::string file = this->tmp.write("a.txt", "12345");
  fs::create_symlink(file, this->tmp / "link");
  const auto attributes = files.attributes(file);
  ASSERT_TRUE(attributes) << attributes.error();
  EXPECT_EQ(attributes->type, FileAttributes::Type::regular);
  EXPECT_EQ(attributes->size, 5u);
  ASSERT_TRUE(attributes->modificationDate);
  EXPECT_LT(std::chrono::abs(*attributes->modificationDate - std::chrono::system_clock::now()), std::chrono::hours(1));
  EXPECT_EQ(files.attributes(this->tmp / "link")->type, FileAttributes::Type::symbolicLink);
  const auto missing = files.attributes(this->tmp / "none");
  ASSERT_FALSE(missing);
  EXPECT_TRUE(missing.error().ends_with(".")) << missing.error();
  EXPECT_NE(files.formatByteCount(1'500'000).find("1"), std::string::npos);
  EXPECT_FALSE(files.formatDate(std::chrono::system_clock::now()).empty());
}

TYPED_TEST(DocumentsConformance, NamesAndKindsOfItems) {
  FileWorkspace& workspace = this->platform->fileWorkspace();
  fs::create_directories(this->tmp / "Plain folder");
  EXPECT_EQ(workspace.displayName(this->tmp / "Plain folder"), "Plain folder");
  EXPECT_FALSE(workspace.isPackage(this->tmp / "Plain folder"));
  EXPECT_EQ(workspace.bundleIdentifier(this->tmp / "Plain folder"), std::nullopt);
  EXPECT_EQ(workspace.applicationForURL("x-orla-nobody-handles-this:thing"), std::nullopt);
  EXPECT_EQ(workspace.applicationForURL("not a url"), std::nullopt);
}

TYPED_TEST(DocumentsConformance, AnOpenRequestToNoApplicationCompletesWithASentence) {
  std::optional<std::optional<std::string>> answer;
  this->platform->fileWorkspace().openURLs({"https://example.com"}, this->tmp / "Nothing.app", {},
                                           [&](std::optional<std::string> error) { answer = std::move(error); });
  ASSERT_TRUE(answer);
  ASSERT_TRUE(*answer);
  EXPECT_TRUE((*answer)->ends_with(".")) << **answer;
}

TYPED_TEST(DocumentsConformance, ThePrinterListIsAListEvenWithoutAPrintServer) {
  // Whatever the machine has set up: the call answers, never hangs or fails.
  const auto names = this->platform->printers().printerNames();
  for (const std::string& name : names) EXPECT_FALSE(name.empty());
}

}  // namespace
}  // namespace orla
