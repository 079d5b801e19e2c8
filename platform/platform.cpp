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

}  // namespace

Platform::Platform(std::string name, Services services, std::set<Capability> capabilities)
    : name_(std::move(name)), services_(std::move(services)), capabilities_(std::move(capabilities)) {
  if (!services_.settingsPanes) {
    services_.settingsPanes = std::make_unique<NoSettingsPanes>();
    capabilities_.erase(Capability::settingsPanes);
  }
  if (!services_.outputVolume) services_.outputVolume = std::make_unique<UnavailableOutputVolume>();
  if (!services_.sessionControl) services_.sessionControl = std::make_unique<UnavailableSessionControl>();
  if (!services_.speech) {
    services_.speech = std::make_unique<UnavailableSpeech>();
    capabilities_.erase(Capability::speech);
  }
  if (!services_.focusModes) {
    services_.focusModes = std::make_unique<UnavailableFocusModes>();
    capabilities_.erase(Capability::focusModes);
  }
  if (!services_.networkVolumes) {
    services_.networkVolumes = std::make_unique<UnavailableNetworkVolumes>();
    capabilities_.erase(Capability::networkVolumes);
  }
  if (!services_.networkLocations) {
    services_.networkLocations = std::make_unique<UnavailableNetworkLocations>();
    capabilities_.erase(Capability::networkLocations);
  }
}

bool Platform::supports(Capability capability) const { return capabilities_.count(capability) > 0; }

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
