// The bridge between our UTF-8 strings and ICU's types, for the code that
// calls ICU directly. Everything else uses include/orla/models/text.h.
#pragma once

#include <orla/export.h>

#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

icu::UnicodeString unicodeString(std::string_view utf8);
std::string utf8String(const icu::UnicodeString& text);

// The zone named by an IANA id; none for an id ICU does not know (ICU itself
// would quietly answer with GMT).
std::unique_ptr<icu::TimeZone> knownTimeZone(std::string_view id);

}  // namespace orla
