#include <orla/models/text.h>

#include <orla/models/icu_support.h>

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace orla {

bool isWhitespaceOrNewline(char32_t c) {
  if (c >= 0x09 && c <= 0x0D) return true;
  if (c == 0x85) return true;
  const auto type = u_charType(static_cast<UChar32>(c));
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

bool isInlineSpace(char32_t c) {
  if (c < 0x80) return c == ' ' || c == '\t';
  return u_charType(static_cast<UChar32>(c)) == U_SPACE_SEPARATOR;
}

namespace {

// The text without the code points at either end for which `drop` holds.
// Invalid UTF-8 bytes are kept.
template <class Drop>
std::string_view trimIf(std::string_view text, Drop drop) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t begin = 0;
  while (begin < length) {
    int32_t next = begin;
    UChar32 c;
    U8_NEXT(s, next, length, c);
    if (c < 0 || !drop(static_cast<char32_t>(c))) break;
    begin = next;
  }
  int32_t end = length;
  while (end > begin) {
    int32_t previous = end;
    UChar32 c;
    U8_PREV(s, begin, previous, c);
    if (c < 0 || !drop(static_cast<char32_t>(c))) break;
    end = previous;
  }
  return text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin));
}

}  // namespace

std::string_view trimWhitespaceAndNewlines(std::string_view text) { return trimIf(text, isWhitespaceOrNewline); }

std::string_view trimSpaces(std::string_view text) { return trimIf(text, isInlineSpace); }

icu::UnicodeString unicodeString(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
}

std::string utf8String(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::u16string toUtf16(std::string_view utf8) {
  const icu::UnicodeString u = unicodeString(utf8);
  return std::u16string(u.getBuffer(), static_cast<size_t>(u.length()));
}

std::string toUtf8(std::u16string_view utf16) {
  return utf8String(icu::UnicodeString(utf16.data(), static_cast<int32_t>(utf16.size())));
}

namespace {

icu::UnicodeString foldedNfd(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  icu::UnicodeString folded = unicodeString(text);
  folded.foldCase(U_FOLD_CASE_DEFAULT);
  if (U_FAILURE(status)) return folded;
  icu::UnicodeString normalized = nfd->normalize(folded, status);
  return U_SUCCESS(status) ? normalized : folded;
}

bool isAscii(std::string_view text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

}  // namespace

std::string toLowercase(std::string_view text) {
  if (isAscii(text)) {
    std::string out(text);
    for (char& c : out)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
  }
  icu::UnicodeString u = unicodeString(text);
  u.toLower(icu::Locale::getRoot());
  return utf8String(u);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (isAscii(a) && isAscii(b)) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
      auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
      if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
  }
  return foldedNfd(a) == foldedNfd(b);
}

std::string quoted(std::string_view name) {
  std::string out;
  out.reserve(name.size() + 6);
  out += "\u201C";
  out += name;
  out += "\u201D";
  return out;
}

std::string normalisedName(std::string_view name) {
  const std::string lower = toLowercase(name);
  std::string out;
  const auto* s = reinterpret_cast<const uint8_t*>(lower.data());
  const auto n = static_cast<int32_t>(lower.size());
  for (int32_t i = 0; i < n;) {
    const int32_t start = i;
    UChar32 c;
    U8_NEXT(s, i, n, c);
    if (c < 0) continue;
    const auto type = u_charType(c);
    if (u_isalpha(c) || type == U_DECIMAL_DIGIT_NUMBER || type == U_LETTER_NUMBER || type == U_OTHER_NUMBER)
      out.append(lower, static_cast<size_t>(start), static_cast<size_t>(i - start));
  }
  return out;
}

}  // namespace orla
