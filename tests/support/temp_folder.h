// A fresh folder for one test, removed with everything in it afterwards.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace orla::testing {

class TempFolder {
 public:
  explicit TempFolder(std::string_view prefix = "orla-test") {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            (std::string(prefix) + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    // A canonical path, so that what the code under test reports compares equal.
    path_ = std::filesystem::canonical(path_);
  }
  ~TempFolder() {
    std::error_code ec;
    // Let the removal into folders a test left unwritable.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
      if (!it->is_symlink(ec)) std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                                             std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // The absolute path of `relative` inside the folder.
  std::string operator/(std::string_view relative) const { return (path_ / relative).string(); }

  std::string write(std::string_view relative, std::string_view content) const {
    const auto file = path_ / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    return file.string();
  }
  std::string read(std::string_view relative) const {
    std::ifstream file(path_ / relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  bool has(std::string_view relative) const {
    std::error_code ec;
    return std::filesystem::exists(std::filesystem::symlink_status(path_ / relative, ec));
  }

 private:
  std::filesystem::path path_;
};

}  // namespace orla::testing
