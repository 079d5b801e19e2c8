#include "platform/linux/gio_network_volumes.h"

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include <orla/models/server_address.h>
#include "platform/linux/glib_handles.h"
#include "platform/linux/gtk_services.h"

namespace orla::linux_desktop {
namespace {

using Clock = std::chrono::steady_clock;

// The GIO schemes of network volumes; "dav" and "davs" are WebDAV over
// http and https.
constexpr std::array<std::string_view, 9> kNetworkSchemes{"smb", "afp", "nfs", "sftp", "ftp", "ftps", "dav", "davs",
                                                          "ssh"};

std::string gioScheme(std::string_view scheme) {
  if (scheme == "http") return "dav";
  if (scheme == "https") return "davs";
  return std::string(scheme);
}

// A private main context made the thread's default for one call, so that
// the answers of GIO's asynchronous calls come to this call only.
class PrivateContext {
 public:
  PrivateContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
  ~PrivateContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  PrivateContext(const PrivateContext&) = delete;
  PrivateContext& operator=(const PrivateContext&) = delete;
  GMainContext* get() const { return context_; }

 private:
  GMainContext* context_;
};

// Runs `context` until `done` or the time `end`.
template <class Done>
void iterateUntil(GMainContext* context, Done done, Clock::time_point end) {
  while (!done() && Clock::now() < end)
    if (!g_main_context_iteration(context, FALSE)) g_usleep(2000);
}

std::string uriOf(GFile* file) {
  GString uri(g_file_get_uri(file));
  return uri ? uri.get() : "";
}

// The network volumes mounted now, with their GMounts (referenced).
struct Listed {
  MountedNetworkVolume volume;
  GObjectPtr<GMount> mount;
};

std::vector<Listed> listMounts() {
  std::vector<Listed> out;
  // A fresh monitor each time: one kept between calls would be updated only
  // by a context that nothing iterates.
  GObjectPtr<GVolumeMonitor> monitor(g_volume_monitor_get());
  GList* mounts = g_volume_monitor_get_mounts(monitor.get());
  for (GList* m = mounts; m; m = m->next) {
    GMount* mount = G_MOUNT(m->data);
    GObjectPtr<GFile> root(g_mount_get_root(mount));
    const std::string uri = uriOf(root.get());
    GString scheme(g_file_get_uri_scheme(root.get()));
    if (!scheme || std::find(kNetworkSchemes.begin(), kNetworkSchemes.end(), std::string_view(scheme.get())) ==
                       kNetworkSchemes.end())
      continue;
    const auto address = parseMountedAddress(uri);
    if (!address) continue;
    GString path(g_file_get_path(root.get()));
    // Without a folder on disk the volume is shown by its address, never
    // with the user the root's URI carries.
    out.push_back({{address->display(), path ? path.get() : address->display()},
                   GObjectPtr<GMount>(G_MOUNT(g_object_ref(mount)))});
  }
  g_list_free_full(mounts, g_object_unref);
  return out;
}

bool isSupportedScheme(const std::string& scheme) {
  const gchar* const* schemes = g_vfs_get_supported_uri_schemes(g_vfs_get_default());
  for (; schemes && *schemes; ++schemes)
    if (scheme == *schemes) return true;
  return false;
}

// What one mount request has seen; shared with the answers of GIO, which
// may come after the request gave up, so it lives as long as they do.
struct MountRun {
  std::string user;
  std::optional<std::string> password;
  bool allowAnonymous = false;
  int passwordsGiven = 0;
  bool refused = false;        // the server asked again after a password
  bool needsPassword = false;  // asked, and none to give
  bool questionRefused = false;
  bool done = false;
  GQuark domain = 0;
  int code = 0;
  std::string message;
};

void askPassword(GMountOperation* op, const char*, const char* defaultUser, const char* defaultDomain,
                 GAskPasswordFlags flags, gpointer data) {
  auto* run = static_cast<MountRun*>(data);
  if (!run->password) {
    // An address without a user may be served to anyone.
    if (run->user.empty() && (flags & G_ASK_PASSWORD_ANONYMOUS_SUPPORTED) && run->passwordsGiven == 0) {
      ++run->passwordsGiven;
      g_mount_operation_set_anonymous(op, TRUE);
      g_mount_operation_reply(op, G_MOUNT_OPERATION_HANDLED);
      return;
    }
    run->needsPassword = true;
    g_mount_operation_reply(op, G_MOUNT_OPERATION_ABORTED);
    return;
  }
  // Asked again after the password was given: the server refused it.
  if (run->passwordsGiven > 0) {
    run->refused = true;
    g_mount_operation_reply(op, G_MOUNT_OPERATION_ABORTED);
    return;
  }
  ++run->passwordsGiven;
  g_mount_operation_set_username(op, run->user.empty() ? defaultUser : run->user.c_str());
  if (flags & G_ASK_PASSWORD_NEED_DOMAIN) g_mount_operation_set_domain(op, defaultDomain);
  g_mount_operation_set_password(op, run->password->c_str());
  g_mount_operation_set_password_save(op, G_PASSWORD_SAVE_NEVER);
  g_mount_operation_reply(op, G_MOUNT_OPERATION_HANDLED);
}

// Questions (an unknown server key, a certificate) are the user's to
// answer: without the desktop's dialog none is answered yes.
void askQuestion(GMountOperation* op, const char*, const char**, gpointer data) {
  static_cast<MountRun*>(data)->questionRefused = true;
  g_mount_operation_reply(op, G_MOUNT_OPERATION_ABORTED);
}

void mountFinished(GObject* source, GAsyncResult* result, gpointer data) {
  auto* run = static_cast<MountRun*>(data);
  ErrorOut error;
  if (!g_file_mount_enclosing_volume_finish(G_FILE(source), result, &error) && error) {
    GError** raw = &error;
    run->domain = (*raw)->domain;
    run->code = (*raw)->code;
    run->message = error.message();
  }
  run->done = true;
}

NetworkMountOutcome outcomeOf(const MountRun& run, bool dialog) {
  if (run.domain == 0 || (run.domain == G_IO_ERROR && run.code == G_IO_ERROR_ALREADY_MOUNTED))
    return NetworkMountOutcome::mounted;
  if (run.refused) return NetworkMountOutcome::credentialsRefused;
  if (run.needsPassword) return NetworkMountOutcome::needsPassword;
  if (run.domain != G_IO_ERROR) return NetworkMountOutcome::failed;
  switch (run.code) {
    case G_IO_ERROR_FAILED_HANDLED:
      // The desktop's dialog was closed without an answer.
      return dialog && !run.questionRefused ? NetworkMountOutcome::dialogCancelled : NetworkMountOutcome::failed;
    case G_IO_ERROR_PERMISSION_DENIED:
      return run.passwordsGiven > 0 ? NetworkMountOutcome::credentialsRefused : NetworkMountOutcome::failed;
    case G_IO_ERROR_HOST_NOT_FOUND:
    case G_IO_ERROR_HOST_UNREACHABLE:
    case G_IO_ERROR_NETWORK_UNREACHABLE:
    case G_IO_ERROR_CONNECTION_REFUSED:
      return NetworkMountOutcome::unreachable;
    case G_IO_ERROR_CANCELLED:
    // GVfs gives up on a server that stays silent by itself (sftp after 40
    // seconds), before the deadline: to the user it is the same stall.
    case G_IO_ERROR_TIMED_OUT:
      return NetworkMountOutcome::timedOut;
    default:
      return NetworkMountOutcome::failed;
  }
}

// The URI GIO mounts: the address with the user put back.
std::string mountURI(const NetworkMountRequest& request, const ServerAddress& address) {
  std::string uri = gioScheme(address.scheme) + "://";
  if (!request.user.empty()) {
    GString escaped(g_uri_escape_string(request.user.c_str(), G_URI_RESERVED_CHARS_SUBCOMPONENT_DELIMITERS, FALSE));
    uri += std::string(escaped.get()) + "@";
  }
  const std::string display = address.display();
  return uri + display.substr(display.find("://") + 3);
}

class GioNetworkVolumes : public NetworkVolumes {
 public:
  Checked<std::vector<MountedNetworkVolume>> mounted() override {
    PrivateContext context;
    std::vector<MountedNetworkVolume> out;
    for (Listed& listed : listMounts()) out.push_back(std::move(listed.volume));
    return out;
  }

  NetworkMountResult mount(const NetworkMountRequest& request) override {
    const auto address = parseMountedAddress(request.address);
    if (!address) return {NetworkMountOutcome::failed, {}, "The address could not be read"};
    if (!isSupportedScheme(gioScheme(address->scheme))) return {NetworkMountOutcome::unsupportedScheme, {}, {}};
    // The desktop's own dialog only where it may be shown and nothing is
    // stored to answer with; it is served by the default main context.
    GMountOperation* dialog = nullptr;
    if (!request.password && request.allowDialog && mainThread_.isMainThread()) dialog = newGtkMountOperation();
    if (dialog) return run(request, *address, GObjectPtr<GMountOperation>(dialog), g_main_context_default(), true);
    PrivateContext context;
    return run(request, *address, GObjectPtr<GMountOperation>(g_mount_operation_new()), context.get(), false);
  }

  bool unmount(const MountedNetworkVolume& volume, std::chrono::milliseconds deadline) override;

  explicit GioNetworkVolumes(GLibMainThread& mainThread) : mainThread_(mainThread) {}

 private:
  NetworkMountResult run(const NetworkMountRequest& request, const ServerAddress& address,
                         GObjectPtr<GMountOperation> op, GMainContext* context, bool dialog);

  GLibMainThread& mainThread_;
};

NetworkMountResult GioNetworkVolumes::run(const NetworkMountRequest& request, const ServerAddress& address,
                                          GObjectPtr<GMountOperation> op, GMainContext* context, bool dialog) {
  const std::string uri = mountURI(request, address);
  GObjectPtr<GFile> file(g_file_new_for_uri(uri.c_str()));
  // On the heap: an answer that comes after the deadline must find it.
  auto* state = new MountRun;
  state->user = request.user;
  state->password = request.password;
  if (!dialog) {
    g_signal_connect(op.get(), "ask-password", G_CALLBACK(askPassword), state);
    g_signal_connect(op.get(), "ask-question", G_CALLBACK(askQuestion), state);
  }
  GObjectPtr<GCancellable> cancellable(g_cancellable_new());
  g_file_mount_enclosing_volume(file.get(), G_MOUNT_MOUNT_NONE, op.get(), cancellable.get(), mountFinished, state);
  const auto end = Clock::now() + request.deadline;
  iterateUntil(context, [&] { return state->done; }, end);
  bool late = false;
  if (!state->done) {
    // Cancelled at the deadline; a backend that does not stop at once is
    // given a moment, then left to answer no one.
    g_cancellable_cancel(cancellable.get());
    iterateUntil(context, [&] { return state->done; }, Clock::now() + std::chrono::seconds(2));
    late = !state->done;
  }
  if (!dialog) g_signal_handlers_disconnect_by_data(op.get(), state);
  NetworkMountResult result;
  result.outcome = late ? NetworkMountOutcome::timedOut : outcomeOf(*state, dialog);
  result.systemText = state->message;
  // GVfs words a refused question as a cancelled dialog, which the user
  // never saw.
  if (state->questionRefused && result.outcome == NetworkMountOutcome::failed)
    result.systemText =
        "the server asked a question only you can answer (such as whether to trust its key); connect to it once "
        "in the file manager";
  if (result.outcome == NetworkMountOutcome::mounted) {
    GString path(g_file_get_path(file.get()));
    result.mountPath = path ? path.get() : address.display();
  }
  if (!late) delete state;
  // else it stays for the answer that may still come (a few bytes, once).
  return result;
}

// Never forced: a volume in use is left mounted, and the show-processes
// question ("Unmount Anyway"?) is answered no.
bool GioNetworkVolumes::unmount(const MountedNetworkVolume& volume, std::chrono::milliseconds deadline) {
  PrivateContext context;
  struct Run {
    bool done = false;
    bool unmounted = false;
  };
  auto* state = new Run;
  GObjectPtr<GMount> target;
  for (Listed& listed : listMounts())
    if (listed.volume.address == volume.address && listed.volume.mountPath == volume.mountPath)
      target = std::move(listed.mount);
  if (!target) {
    delete state;
    return true;
  }
  GObjectPtr<GMountOperation> op(g_mount_operation_new());
  g_signal_connect(op.get(), "show-processes",
                   G_CALLBACK(+[](GMountOperation* o, const char*, GArray*, const char**, gpointer) {
                     g_mount_operation_reply(o, G_MOUNT_OPERATION_ABORTED);
                   }),
                   nullptr);
  g_signal_connect(op.get(), "ask-question", G_CALLBACK(+[](GMountOperation* o, const char*, const char**, gpointer) {
                     g_mount_operation_reply(o, G_MOUNT_OPERATION_ABORTED);
                   }),
                   nullptr);
  GObjectPtr<GCancellable> cancellable(g_cancellable_new());
  g_mount_unmount_with_operation(
      target.get(), G_MOUNT_UNMOUNT_NONE, op.get(), cancellable.get(),
      [](GObject* source, GAsyncResult* result, gpointer data) {
        ErrorOut error;
        auto* run = static_cast<Run*>(data);
        run->unmounted = g_mount_unmount_with_operation_finish(G_MOUNT(source), result, &error);
        run->done = true;
      },
      state);
  iterateUntil(context.get(), [&] { return state->done; }, Clock::now() + deadline);
  if (!state->done) {
    g_cancellable_cancel(cancellable.get());
    iterateUntil(context.get(), [&] { return state->done; }, Clock::now() + std::chrono::seconds(2));
  }
  const bool late = !state->done;
  const bool unmounted = !late && state->unmounted;
  if (!late) delete state;
  target.reset();
  if (unmounted) return true;
  // A refusal or a time-out may still have taken the volume away: it is
  // unmounted when it is no longer listed.
  for (const Listed& listed : listMounts())
    if (listed.volume.address == volume.address && listed.volume.mountPath == volume.mountPath) return false;
  return true;
}

}  // namespace

std::unique_ptr<NetworkVolumes> makeGioNetworkVolumes(GLibMainThread& mainThread) {
  return std::make_unique<GioNetworkVolumes>(mainThread);
}

}  // namespace orla::linux_desktop
