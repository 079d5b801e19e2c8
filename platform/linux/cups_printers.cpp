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

std::unique_ptr<Printers> makeCupsPrinters() { return std::make_unique<CupsPrinters>(); }

}  // namespace orla::linux_desktop
