// The header checks of http.h: pure, shared by the program (the plugins check
// headers before they send anything) and the module that sends them.
#include <algorithm>

#include <orla/platform/http.h>

namespace orla {

bool isValidHeaderName(std::string_view name) {
  if (name.empty()) return false;
  return std::all_of(name.begin(), name.end(), [](char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

bool isValidHeaderValue(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace orla
