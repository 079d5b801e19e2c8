#include <orla/platform/platform.h>

#include <mutex>

#include <orla/models/parameter_readers.h>

namespace orla {

std::string Environment::expandTilde(std::string_view path) const {
  return orla::expandTilde(path, [this](std::string_view user) { return homeDirectory(user); });
}

namespace {

class NoSettingsPanes : public SettingsPanes {
 public:
  std::optional<std::string> desktop() const override { return std::nullopt; }
  Checked<void> open(std::string_view) override {
    return fail("Opening settings panes is not available on this desktop in this build of Orla.");
  }
};

class UnavailableOutputVolume : public OutputVolumeControl {
 public:
  Checked<OutputVolume> read() override { return fail(std::string(kMessage)); }
  Checked<void> setPercent(int) override { return fail(std::string(kMessage)); }
  Checked<void> setMuted(bool) override { return fail(std::string(kMessage)); }

 private:
  static constexpr std::string_view kMessage =
      "Changing the volume is not available on this desktop in this build of Orla.";
};

class UnavailableSessionControl : public SessionControl {
 public:
  Checked<std::string> request(SessionRequest, bool) override {
    return fail("Restarting, sleeping and the other system commands are not available on this desktop in this "
                "build of Orla.");
  }
};

class UnavailableSpeech : public SpeechSynthesizer {
 public:
  std::vector<Voice> voices() override { return {}; }
  Checked<void> speak(std::string_view, const std::optional<std::string>&, std::optional<double>) override {
    return fail("Speech is not available on this desktop in this build of Orla.");
  }
  bool isSpeaking() override { return false; }
  void stop() override {}
};

class UnavailableFocusModes : public FocusModes {
 public:
  Checked<FocusModeState> state() override { return fail(std::string(kMessage)); }
  Checked<void> setMode(std::string_view, bool) override { return fail(std::string(kMessage)); }
  bool needsAccessibility() const override { return false; }

 private:
  static constexpr std::string_view kMessage =
      "Switching Focus modes is not available on this desktop in this build of Orla.";
};

class UnavailableNetworkVolumes : public NetworkVolumes {
 public:
  Checked<std::vector<MountedNetworkVolume>> mounted() override { return fail(std::string(kMessage)); }
  NetworkMountResult mount(const NetworkMountRequest&) override {
    return {NetworkMountOutcome::failed, {}, std::string(kMessage)};
  }
  bool unmount(const MountedNetworkVolume&, std::chrono::milliseconds) override { return false; }

 private:
  static constexpr std::string_view kMessage =
      "Network volumes are not available on this desktop in this build of Orla.";
};

class UnavailableNetworkLocations : public NetworkLocations {
 public:
  Checked<std::vector<std::string>> list() override { return fail(std::string(kMessage)); }
  Checked<std::optional<std::string>> current() override { return fail(std::string(kMessage)); }
  Checked<void> activate(std::string_view) override { return fail(std::string(kMessage)); }

 private:
  static constexpr std::string_view kMessage =
      "Network locations are not available on this desktop in this build of Orla.";
};

// Placeholders for the services a backend leaves out, and the capabilities
// that go with them withdrawn; not yet for those a deferred part will bring
// (`pending`, one bit per Platform::Service).
void completeServices(Platform::Services& services, std::set<Capability>& capabilities, std::uint64_t pending = 0) {
  const auto missing = [pending](const auto& service, Platform::Service which) {
    return !service && !(pending & (std::uint64_t{1} << static_cast<unsigned>(which)));
  };
  using S = Platform::Service;
  if (missing(services.settingsPanes, S::settingsPanes)) {
    services.settingsPanes = std::make_unique<NoSettingsPanes>();
    capabilities.erase(Capability::settingsPanes);
  }
  if (missing(services.outputVolume, S::outputVolume)) services.outputVolume = std::make_unique<UnavailableOutputVolume>();
  if (missing(services.sessionControl, S::sessionControl)) services.sessionControl = std::make_unique<UnavailableSessionControl>();
  if (missing(services.speech, S::speech)) {
    services.speech = std::make_unique<UnavailableSpeech>();
    capabilities.erase(Capability::speech);
  }
  if (missing(services.focusModes, S::focusModes)) {
    services.focusModes = std::make_unique<UnavailableFocusModes>();
    capabilities.erase(Capability::focusModes);
  }
  if (missing(services.networkVolumes, S::networkVolumes)) {
    services.networkVolumes = std::make_unique<UnavailableNetworkVolumes>();
    capabilities.erase(Capability::networkVolumes);
  }
  if (missing(services.networkLocations, S::networkLocations)) {
    services.networkLocations = std::make_unique<UnavailableNetworkLocations>();
    capabilities.erase(Capability::networkLocations);
  }
}

std::uint64_t capabilityMask(const std::set<Capability>& capabilities) {
  std::uint64_t mask = 0;
  for (Capability capability : capabilities) mask |= std::uint64_t{1} << static_cast<unsigned>(capability);
  return mask;
}

}  // namespace

Platform::Platform(std::string name, Services services, std::set<Capability> capabilities,
                   std::vector<DeferredPart> deferred)
    : name_(std::move(name)), services_(std::move(services)), deferred_(std::move(deferred)) {
  std::uint64_t pendingServices = 0, pendingCapabilities = 0;
  for (const DeferredPart& part : deferred_) {
    for (Service service : part.services) pendingServices |= bit(service);
    pendingCapabilities |= capabilityMask(part.decides);
  }
  completeServices(services_, capabilities, pendingServices);
  capabilities_ = capabilityMask(capabilities) & ~pendingCapabilities;
  pendingServices_ = pendingServices;
  pendingCapabilities_ = pendingCapabilities;
}

void Platform::loadDeferred(std::uint64_t services, std::uint64_t capabilities) const {
  std::lock_guard lock(loading_);
  std::size_t last = loadedParts_;
  for (std::size_t i = loadedParts_; i < deferred_.size(); ++i) {
    std::uint64_t brings = 0;
    for (Service service : deferred_[i].services) brings |= bit(service);
    if ((brings & services) || (capabilityMask(deferred_[i].decides) & capabilities)) last = i + 1;
  }
  for (; loadedParts_ < last; ++loadedParts_) {
    DeferredPart& part = deferred_[loadedParts_];
    // What later parts still bring or decide stays pending: a service of a
    // later part gets no placeholder here.
    std::uint64_t stillServices = 0, stillCapabilities = 0;
    for (std::size_t i = loadedParts_ + 1; i < deferred_.size(); ++i) {
      for (Service service : deferred_[i].services) stillServices |= bit(service);
      stillCapabilities |= capabilityMask(deferred_[i].decides);
    }
    std::set<Capability> offered;
    part.load(services_, offered);
    completeServices(services_, offered, stillServices);
    const std::uint64_t decided = capabilityMask(part.decides);
    capabilities_.fetch_or(capabilityMask(offered) & decided, std::memory_order_release);
    pendingServices_.store(stillServices, std::memory_order_release);
    pendingCapabilities_.store(stillCapabilities, std::memory_order_release);
    part.load = nullptr;  // what it captured is not needed again
  }
}

bool Platform::supports(Capability capability) const {
  if (pendingCapabilities_.load(std::memory_order_acquire) & bit(capability)) loadDeferred(0, bit(capability));
  return (capabilities_.load(std::memory_order_acquire) & bit(capability)) != 0;
}

namespace {

std::mutex& currentMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<Platform>& currentSlot() {
  static std::shared_ptr<Platform> slot;
  return slot;
}

}  // namespace

std::shared_ptr<Platform> Platform::current() {
  std::lock_guard lock(currentMutex());
  auto& slot = currentSlot();
  if (!slot) slot = makeNativePlatform();
  return slot;
}

void Platform::setCurrent(std::shared_ptr<Platform> platform) {
  std::lock_guard lock(currentMutex());
  currentSlot() = std::move(platform);
}

}  // namespace orla
