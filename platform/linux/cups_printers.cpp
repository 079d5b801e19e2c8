#include "platform/linux/cups_printers.h"

#include <cups/cups.h>

namespace orla::linux_desktop {

namespace {

class CupsPrinters : public Printers {
 public:
  std::vector<std::string> printerNames() const override {
    // Forget the server this thread used last, so that the environment's
    // CUPS_SERVER (or client.conf) is read again.
    cupsSetServer(nullptr);
    cups_dest_t* dests = nullptr;
    const int count = cupsGetDests2(CUPS_HTTP_DEFAULT, &dests);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
      if (!dests[i].instance) names.emplace_back(dests[i].name);
    cupsFreeDests(count, dests);
    return names;
  }
};

}  // namespace

}  // namespace orla::linux_desktop

// The module orla_cups.so hands this to the program (cups_printers_loader.cpp).
extern "C" __attribute__((visibility("default"))) orla::Printers* orla_cups_printers_create() {
  return new orla::linux_desktop::CupsPrinters();
}
