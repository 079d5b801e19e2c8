#include "platform/linux/secret_service_keychain.h"

#include "platform/linux/shared_library.h"

#include <gio/gio.h>
#include <libsecret/secret.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace orla::linux_desktop {

namespace {

// The few entry points used, looked up once in the shared library.
struct LibSecret {
  decltype(&secret_password_lookupv_sync) lookup = nullptr;
  decltype(&secret_password_storev_sync) store = nullptr;
  decltype(&secret_password_clearv_sync) clear = nullptr;
  decltype(&secret_password_free) freePassword = nullptr;
  decltype(&secret_service_get_sync) service = nullptr;
  decltype(&secret_collection_for_alias_sync) collectionForAlias = nullptr;
  // Declared in libsecret's "unstable" header, though unchanged since 0.18.
  SecretCollection* (*collectionForPath)(SecretService*, const gchar*, SecretCollectionFlags, GCancellable*,
                                         GError**) = nullptr;
  decltype(&secret_collection_get_locked) isLocked = nullptr;
  decltype(&secret_service_unlock_sync) unlock = nullptr;
  decltype(&secret_error_get_quark) errorQuark = nullptr;
};

const LibSecret* libSecret() {
  static const LibSecret* loaded = [] () -> const LibSecret* {
    void* handle = openSharedLibrary("libsecret-1.so.0");
    if (!handle) return nullptr;
    static LibSecret lib;
    const bool ok = bindSymbol(handle, lib.lookup, "secret_password_lookupv_sync") &&
                    bindSymbol(handle, lib.store, "secret_password_storev_sync") &&
                    bindSymbol(handle, lib.clear, "secret_password_clearv_sync") &&
                    bindSymbol(handle, lib.freePassword, "secret_password_free") &&
                    bindSymbol(handle, lib.service, "secret_service_get_sync") &&
                    bindSymbol(handle, lib.collectionForAlias, "secret_collection_for_alias_sync") &&
                    bindSymbol(handle, lib.collectionForPath, "secret_collection_new_for_dbus_path_sync") &&
                    bindSymbol(handle, lib.isLocked, "secret_collection_get_locked") &&
                    bindSymbol(handle, lib.unlock, "secret_service_unlock_sync") &&
                    bindSymbol(handle, lib.errorQuark, "secret_error_get_quark");
    return ok ? &lib : nullptr;
  }();
  return loaded;
}

// Items carry the service and account attributes that `secret-tool` and most
// other tools look up by. The schema's name is not matched, so that an item
// a user stored with `secret-tool store service … account …` is found too.
const SecretSchema kSchema = {
    "pro.orla.GenericPassword",
    SECRET_SCHEMA_DONT_MATCH_NAME,
    {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
     {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
     {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
    0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

// A cancellable that a watchdog cancels when the deadline passes, so that no
// call to the bus (which libsecret's synchronous calls would otherwise let
// run for the bus's 25 s default, or for ever behind a prompt) outlives it.
class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds limit)
      : cancellable_(g_cancellable_new()), watchdog_([this, limit] {
          std::unique_lock lock(mutex_);
          if (!done_.wait_for(lock, limit, [this] { return finished_; })) g_cancellable_cancel(cancellable_);
        }) {}
  ~Deadline() {
    {
      std::lock_guard lock(mutex_);
      finished_ = true;
    }
    done_.notify_one();
    watchdog_.join();
    g_object_unref(cancellable_);
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;
  GCancellable* cancellable() const { return cancellable_; }

 private:
  GCancellable* cancellable_;
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::thread watchdog_;  // last: starts once the rest is ready
};

// An error from the service becomes a status; its text is never passed on,
// so nothing the service says can carry a secret into a sentence.
KeychainStatus statusOf(const GError* error, const LibSecret& lib) {
  if (!error) return KeychainStatus::success;
  if (error->domain == lib.errorQuark() && error->code == SECRET_ERROR_IS_LOCKED)
    return KeychainStatus::interactionNotAllowed;
  if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED))
    return KeychainStatus::authorizationDenied;
  return KeychainStatus::unavailable;
}

struct ErrorSlot {
  GError* error = nullptr;
  ~ErrorSlot() { g_clear_error(&error); }
  GError** operator&() { return &error; }
};

bool displayAvailable() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"})
    if (const char* value = std::getenv(name); value && *value) return true;
  return false;
}

class SecretServiceKeychain : public Keychain {
 public:
  explicit SecretServiceKeychain(SecretServiceOptions options) : options_(options) {}

  KeychainLookup copyPassword(std::string_view service, std::string_view account) const override {
    const LibSecret* lib = libSecret();
    if (!lib) return {KeychainStatus::unavailable, std::nullopt};
    if (const KeychainStatus open = unlockDefaultCollection(*lib); open != KeychainStatus::success)
      return {open, std::nullopt};
    Attributes attributes(service, account);
    Deadline deadline(options_.callDeadline);
    ErrorSlot error;
    gchar* secret = lib->lookup(&kSchema, attributes.table, deadline.cancellable(), &error);
    if (error.error) return {statusOf(error.error, *lib), std::nullopt};
    if (!secret) return {KeychainStatus::itemNotFound, std::nullopt};
    KeychainLookup found{KeychainStatus::success, std::string(secret)};
    lib->freePassword(secret);  // wipes the library's copy
    return found;
  }

  KeychainStatus addPassword(std::string_view service, std::string_view account,
                             std::string_view data) override {
    // The Secret Service replaces an item with the same attributes; the
    // keychain's add does not, so an existing item is reported instead.
    const KeychainLookup existing = copyPassword(service, account);
    if (existing.status == KeychainStatus::success) return KeychainStatus::duplicateItem;
    if (existing.status != KeychainStatus::itemNotFound) return existing.status;
    const LibSecret* lib = libSecret();
    Attributes attributes(service, account);
    // Named so that the desktop's password manager shows what it is for.
    const std::string label = std::string(account) + " (" + std::string(service) + ")";
    const std::string secret(data);
    Deadline deadline(options_.callDeadline);
    ErrorSlot error;
    const gboolean stored = lib->store(&kSchema, attributes.table, options_.collection.c_str(), label.c_str(),
                                       secret.c_str(), deadline.cancellable(), &error);
    if (error.error) return statusOf(error.error, *lib);
    return stored ? KeychainStatus::success : KeychainStatus::unavailable;
  }

  KeychainStatus deletePassword(std::string_view service, std::string_view account) override {
    const LibSecret* lib = libSecret();
    if (!lib) return KeychainStatus::unavailable;
    if (const KeychainStatus open = unlockDefaultCollection(*lib); open != KeychainStatus::success) return open;
    Attributes attributes(service, account);
    Deadline deadline(options_.callDeadline);
    ErrorSlot error;
    const gboolean removed = lib->clear(&kSchema, attributes.table, deadline.cancellable(), &error);
    if (error.error) return statusOf(error.error, *lib);
    return removed ? KeychainStatus::success : KeychainStatus::itemNotFound;
  }

 private:
  struct Attributes {
    Attributes(std::string_view service, std::string_view account) : serviceText(service), accountText(account) {
      table = g_hash_table_new(g_str_hash, g_str_equal);
      g_hash_table_insert(table, const_cast<char*>("service"), serviceText.data());
      g_hash_table_insert(table, const_cast<char*>("account"), accountText.data());
    }
    ~Attributes() { g_hash_table_unref(table); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    std::string serviceText, accountText;
    GHashTable* table = nullptr;
  };

  // A locked collection is unlocked through the service's prompt
  // when one can appear (and the caller allows it), else reported as
  // locked. Checking first also keeps libsecret from prompting on its own
  // in the middle of a lookup.
  KeychainStatus unlockDefaultCollection(const LibSecret& lib) const {
    Deadline deadline(options_.callDeadline);
    ErrorSlot error;
    SecretService* service = lib.service(
        static_cast<SecretServiceFlags>(SECRET_SERVICE_OPEN_SESSION | SECRET_SERVICE_LOAD_COLLECTIONS),
        deadline.cancellable(), &error);
    if (!service) return statusOf(error.error, lib) == KeychainStatus::success ? KeychainStatus::unavailable
                                                                              : statusOf(error.error, lib);
    const char* name = options_.collection.c_str();
    SecretCollection* collection =
        name[0] == '/'
            ? lib.collectionForPath(service, name, SECRET_COLLECTION_NONE, deadline.cancellable(), &error)
            : lib.collectionForAlias(service, name, SECRET_COLLECTION_NONE, deadline.cancellable(), &error);
    KeychainStatus status = error.error ? statusOf(error.error, lib) : KeychainStatus::success;
    if (collection && lib.isLocked(collection)) status = unlock(lib, service, collection);
    if (collection) g_object_unref(collection);
    g_object_unref(service);
    return status;
  }

  KeychainStatus unlock(const LibSecret& lib, SecretService* service, SecretCollection* collection) const {
    if (!options_.allowPrompt || !displayAvailable()) return KeychainStatus::interactionNotAllowed;
    Deadline deadline(options_.promptDeadline);
    ErrorSlot error;
    GList* objects = g_list_append(nullptr, collection);
    const gint unlocked = lib.unlock(service, objects, deadline.cancellable(), nullptr, &error);
    g_list_free(objects);
    if (error.error && statusOf(error.error, lib) == KeychainStatus::authorizationDenied)
      return KeychainStatus::authorizationDenied;
    return unlocked > 0 ? KeychainStatus::success : KeychainStatus::interactionNotAllowed;
  }

  SecretServiceOptions options_;
};

}  // namespace

std::unique_ptr<Keychain> makeSecretServiceKeychain(SecretServiceOptions options) {
  return std::make_unique<SecretServiceKeychain>(options);
}

}  // namespace orla::linux_desktop
