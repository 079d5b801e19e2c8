// Folder changes on Linux, through inotify.
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <orla/platform/folder_watch.h>

namespace orla::linux_desktop {
namespace {

class InotifyFolderWatch final : public FolderWatch {
 public:
  explicit InotifyFolderWatch(int fd) : fd_(fd) {}
  ~InotifyFolderWatch() override { ::close(fd_); }

  int descriptor() const override { return fd_; }

  bool takeChanges() override {
    bool changed = false;
    alignas(struct inotify_event) char buffer[16384];
    for (;;) {
      const ssize_t size = ::read(fd_, buffer, sizeof buffer);
      if (size <= 0) return changed;
      changed = true;
    }
  }

 private:
  int fd_;
};

}  // namespace
}  // namespace orla::linux_desktop

namespace orla {

Checked<std::unique_ptr<FolderWatch>> watchFolder(const std::filesystem::path& folder) {
  const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return fail("The folder cannot be watched (" + std::string(std::strerror(errno)) + ").");
  // A file written in place counts once it is closed, not at every write,
  // so a file half written is not read; an editor that saves by renaming a
  // new file over the old one shows as a move.
  const uint32_t events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF |
                          IN_MOVE_SELF;
  if (::inotify_add_watch(fd, folder.c_str(), events) < 0) {
    const std::string reason = std::strerror(errno);
    ::close(fd);
    return fail(folder.string() + " cannot be watched (" + reason + ").");
  }
  return std::unique_ptr<FolderWatch>(std::make_unique<linux_desktop::InotifyFolderWatch>(fd));
}

}  // namespace orla
