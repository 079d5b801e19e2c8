// The front of the CUPS printers in the program: libcups lives in the
// module orla_cups.so, loaded the first time the printers are asked for
// (see platform/posix/service_module.h).
#include <mutex>

#include "platform/linux/cups_printers.h"
#include "platform/posix/service_module.h"

namespace orla::linux_desktop {

namespace {

class ModulePrinters : public Printers {
 public:
  // Without the module there is no print system to ask: no printers, as
  // when it cannot be reached. The plugin then says that none is set up.
  std::vector<std::string> printerNames() const override {
    std::call_once(once_, [this] {
      auto module = posix::loadServiceModule("orla_cups.so", "the printers");
      if (!module) return;
      using Create = Printers* (*)();
      if (auto create = reinterpret_cast<Create>(posix::moduleSymbol(*module, "orla_cups_printers_create")))
        printers_.reset(create());
    });
    return printers_ ? printers_->printerNames() : std::vector<std::string>{};
  }

 private:
  mutable std::once_flag once_;
  mutable std::unique_ptr<Printers> printers_;
};

}  // namespace

std::unique_ptr<Printers> makeCupsPrinters() { return std::make_unique<ModulePrinters>(); }

}  // namespace orla::linux_desktop
