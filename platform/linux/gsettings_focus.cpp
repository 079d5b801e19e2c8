#include "platform/linux/gsettings_focus.h"

#include <gio/gio.h>

namespace orla::linux_desktop {

namespace {

constexpr const char* kSchema = "org.gnome.desktop.notifications";
constexpr const char* kKey = "show-banners";

// Runs `work` with a main context of its own pushed on this thread, so that
// the settings object's change signals never land on the context of the
// host's main loop, whichever thread calls.
template <class Work>
auto withPrivateContext(Work work) {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  auto result = work();
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  return result;
}

class GSettingsFocusModes : public FocusModes {
 public:
  Checked<FocusModeState> state() override {
    return withPrivateContext([]() -> Checked<FocusModeState> {
      if (!hasDoNotDisturbSetting()) return fail("The desktop's notification settings are not installed.");
      GSettings* settings = g_settings_new(kSchema);
      const bool banners = g_settings_get_boolean(settings, kKey);
      g_object_unref(settings);
      FocusModeState state{{std::string(kDoNotDisturb)}, std::nullopt};
      if (!banners) state.active = std::string(kDoNotDisturb);
      return state;
    });
  }

  Checked<void> setMode(std::string_view name, bool on) override {
    if (name != kDoNotDisturb) return fail("This desktop has no Focus mode of that name.");
    return withPrivateContext([on]() -> Checked<void> {
      if (!hasDoNotDisturbSetting()) return fail("The desktop's notification settings are not installed.");
      GSettings* settings = g_settings_new(kSchema);
      const bool writable = g_settings_is_writable(settings, kKey) && g_settings_set_boolean(settings, kKey, !on);
      // The write reaches the settings store (dconf) before this returns.
      g_settings_sync();
      g_object_unref(settings);
      if (!writable) return fail("The setting is locked by the administrator.");
      return {};
    });
  }

  bool needsAccessibility() const override { return false; }
};

}  // namespace

bool hasDoNotDisturbSetting() {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  if (!source) return false;
  GSettingsSchema* schema = g_settings_schema_source_lookup(source, kSchema, TRUE);
  if (!schema) return false;
  const bool has = g_settings_schema_has_key(schema, kKey);
  g_settings_schema_unref(schema);
  return has;
}

std::unique_ptr<FocusModes> makeGSettingsFocusModes() { return std::make_unique<GSettingsFocusModes>(); }

}  // namespace orla::linux_desktop
