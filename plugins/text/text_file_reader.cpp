#include "plugins/text/text_file_reader.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orla {

namespace {

namespace fs = std::filesystem;

// Files are read whole into memory before they are typed. Nobody types 64 MiB
// of text, and refusing larger files keeps a mistaken pick (a disk image, a
// video) from taking the memory of the host application with it.
constexpr std::uintmax_t kMaxFileBytes = 64u * 1024u * 1024u;

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

Converter openConverter(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &status));
  if (U_FAILURE(status)) return nullptr;
  return converter;
}

// Converts `bytes` from `from`'s charset, appending UTF-8 to `out`. The error
// behaviour is `from`'s callback: with the stop callback an unconvertible
// sequence fails the whole conversion.
bool appendConverted(UConverter* from, UConverter* toUtf8, std::string_view bytes,
                     std::string& out) {
  std::array<UChar, 1024> pivot;
  UChar* pivotSource = pivot.data();
  UChar* pivotTarget = pivot.data();
  std::array<char, 4096> buffer;
  const char* source = bytes.data();
  UBool reset = true;
  for (;;) {
    UErrorCode status = U_ZERO_ERROR;
    char* target = buffer.data();
    ucnv_convertEx(toUtf8, from, &target, buffer.data() + buffer.size(), &source,
                   bytes.data() + bytes.size(), pivot.data(), &pivotSource, &pivotTarget,
                   pivot.data() + pivot.size(), reset, /*flush=*/true, &status);
    reset = false;
    out.append(buffer.data(), static_cast<std::size_t>(target - buffer.data()));
    if (status != U_BUFFER_OVERFLOW_ERROR) return U_SUCCESS(status);
  }
}

// The bytes in `charset` as UTF-8; none when a byte sequence is illegal or has
// no mapping, so that the caller can try the next charset instead of getting
// replacement marks.
std::optional<std::string> decodeStrictly(const char* charset, std::string_view bytes) {
  Converter from = openConverter(charset);
  Converter toUtf8 = openConverter("UTF-8");
  if (!from || !toUtf8) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(from.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return std::nullopt;
  std::string text;
  if (!appendConverted(from.get(), toUtf8.get(), bytes, text)) return std::nullopt;
  return text;
}

// ICU's own substitute for a bad byte in a multi-byte charset is U+001A, a
// control character that would be typed as junk or not at all; the
// replacement character at least shows the reader where text was lost.
void toReplacementCharacter(const void*, UConverterToUnicodeArgs* args, const char*, int32_t,
                            UConverterCallbackReason reason, UErrorCode* error) {
  if (reason > UCNV_IRREGULAR) return;  // reset, close and clone need nothing
  *error = U_ZERO_ERROR;
  static const UChar replacement = 0xFFFD;
  ucnv_cbToUWriteUChars(args, &replacement, 1, 0, error);
}

void appendUtf8(std::string& out, UChar32 c) {
  char bytes[U8_MAX_LENGTH];
  int32_t length = 0;
  UBool error = false;
  U8_APPEND(bytes, length, U8_MAX_LENGTH, c, error);
  if (!error) out.append(bytes, static_cast<std::size_t>(length));
}

std::string_view asView(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// ---------------------------------------------------------------------------
// RTF
//
// Only the text is wanted, so formatting is ignored and the reader keeps just
// what decides which characters a group contributes: whether it is a
// destination to skip, the code page of its hex escapes (from the font) and
// its Unicode fallback count.

// Destinations whose content is never part of the document's text. Any
// destination marked with \* is skipped as well, known or not.
constexpr std::string_view kSkippedDestinations[] = {
    "annotation", "atnauthor", "atndate", "atnid", "atnref", "author", "bkmkend", "bkmkstart",
    "colortbl", "comment", "datastore", "doccomm", "expandedcolortbl", "falt", "fldinst",
    "footer", "footerf", "footerl", "footerr", "footnote", "generator", "header", "headerf",
    "headerl", "headerr", "info", "keywords", "latentstyles", "listoverridetable", "listtable",
    "NeXTGraphic", "nonshppict", "objclass", "objdata", "operator", "pict", "pn", "revtbl",
    "rsidtbl", "stylesheet", "subject", "tc", "themedata", "title", "txe", "xe", "xmlnsdecl",
};

bool isSkippedDestination(std::string_view word) {
  return std::find(std::begin(kSkippedDestinations), std::end(kSkippedDestinations), word) !=
         std::end(kSkippedDestinations);
}

struct SpecialCharacter {
  std::string_view word;
  UChar32 character;
};

constexpr SpecialCharacter kSpecialCharacters[] = {
    {"bullet", 0x2022},    {"emdash", 0x2014}, {"endash", 0x2013},  {"emspace", 0x2003},
    {"enspace", 0x2002},   {"qmspace", 0x2005}, {"lquote", 0x2018}, {"rquote", 0x2019},
    {"ldblquote", 0x201C}, {"rdblquote", 0x201D}, {"zwj", 0x200D},  {"zwnj", 0x200C},
    {"ltrmark", 0x200E},   {"rtlmark", 0x200F}, {"par", '\n'},      {"line", '\n'},
    {"sect", '\n'},        {"page", '\n'},      {"tab", '\t'},
};

// The Windows code page of an \fcharset. ANSI and DEFAULT are left to the
// document's \ansicpg, which is what writers mean by them; charsets ICU has no
// table for (Mac Japanese, Johab, Symbol) fall back the same way.
int codePageOfCharset(int charset) {
  switch (charset) {
    case 77: return 10000;
    case 128: return 932;
    case 129: return 949;
    case 134: return 936;
    case 136: return 950;
    case 161: return 1253;
    case 162: return 1254;
    case 163: return 1258;
    case 177: return 1255;
    case 178: return 1256;
    case 186: return 1257;
    case 204: return 1251;
    case 222: return 874;
    case 238: return 1250;
    case 254: return 437;
    case 255: return 850;
    default: return 0;
  }
}

class RtfReader {
 public:
  explicit RtfReader(std::string_view rtf) : rtf_(rtf), toUtf8_(openConverter("UTF-8")) {}

  std::string read() {
    while (pos_ < rtf_.size() && !done_) {
      const char c = rtf_[pos_++];
      if (c == '{') {
        openGroup();
      } else if (c == '}') {
        closeGroup();
      } else if (c == '\\') {
        readControl();
      } else if (c != '\r' && c != '\n' && c != '\0') {
        // Line breaks in RTF source are layout of the file, not text; a NUL
        // is never text.
        textByte(static_cast<unsigned char>(c));
      }
    }
    flushBytes();
    if (pendingHighSurrogate_) appendUtf8(text_, 0xFFFD);
    return std::move(text_);
  }

 private:
  enum class Mode { text, fontTable, skip };

  struct Group {
    Mode mode = Mode::text;
    int unicodeFallback = 1;  // \uc: characters that follow each \u for older readers
    int font = -1;            // -1: the document's default font
    bool ignorable = false;   // \* seen: skip the group unless its destination is known
    bool attachment = false;  // an attachment's description, followed by its mark
  };

  // Real documents nest a few dozen groups; anything far deeper is damaged or
  // hostile, and the text gathered up to that point is what is returned.
  static constexpr std::size_t kMaxDepth = 1000;
  static constexpr std::size_t kMaxFonts = 4096;

  Group& group() { return groups_.back(); }
  bool emitting() const { return !groups_.empty() && groups_.back().mode == Mode::text; }

  void openGroup() {
    skipCount_ = 0;
    dropAttachmentMark_ = false;
    if (groups_.size() >= kMaxDepth) {
      done_ = true;
      return;
    }
    Group inner = groups_.empty() ? Group{} : group();
    inner.ignorable = false;
    inner.attachment = false;
    groups_.push_back(inner);
  }

  void closeGroup() {
    skipCount_ = 0;
    if (groups_.empty()) return;
    const bool attachment = group().attachment;
    groups_.pop_back();
    // Text after the document's closing brace is not part of it.
    if (groups_.empty()) done_ = true;
    dropAttachmentMark_ = attachment;
  }

  // The fallback characters after a \u: plain characters, hex escapes,
  // control symbols and control words count one each.
  bool consumeFallback() {
    if (skipCount_ <= 0) return false;
    --skipCount_;
    return true;
  }

  void readControl() {
    if (pos_ >= rtf_.size()) return;
    const char c = rtf_[pos_];
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      readControlWord();
      return;
    }
    ++pos_;
    if (c == '\'') {
      readHexEscape();
      return;
    }
    if (c == '*') {
      if (!groups_.empty()) group().ignorable = true;
      return;
    }
    if (consumeFallback()) return;
    switch (c) {
      case '\\': case '{': case '}': textCharacter(static_cast<unsigned char>(c)); break;
      case '~': textCharacter(0x00A0); break;
      case '_': textCharacter(0x2011); break;
      case '\t': textCharacter('\t'); break;
      case '\r': case '\n': textCharacter('\n'); break;  // an escaped line break is \par
      default: break;  // \- optional hyphen, \| and \: index marks carry no text
    }
  }

  void readHexEscape() {
    int value = 0;
    int digits = 0;
    while (digits < 2 && pos_ < rtf_.size()) {
      const char h = rtf_[pos_];
      int digit;
      if (h >= '0' && h <= '9') digit = h - '0';
      else if (h >= 'a' && h <= 'f') digit = h - 'a' + 10;
      else if (h >= 'A' && h <= 'F') digit = h - 'A' + 10;
      else break;
      value = value * 16 + digit;
      ++digits;
      ++pos_;
    }
    if (digits == 2) textByte(static_cast<unsigned char>(value));
  }

  void readControlWord() {
    const std::size_t start = pos_;
    while (pos_ < rtf_.size() && ((rtf_[pos_] >= 'a' && rtf_[pos_] <= 'z') ||
                                  (rtf_[pos_] >= 'A' && rtf_[pos_] <= 'Z')))
      ++pos_;
    const std::string_view word = rtf_.substr(start, pos_ - start);
    std::optional<int> parameter;
    const bool negative = pos_ + 1 < rtf_.size() && rtf_[pos_] == '-' && isDigit(rtf_[pos_ + 1]);
    if (negative) ++pos_;
    if (pos_ < rtf_.size() && isDigit(rtf_[pos_])) {
      long long value = 0;
      // Read all the digits of an absurd parameter, but keep its value in range.
      for (; pos_ < rtf_.size() && isDigit(rtf_[pos_]); ++pos_)
        value = std::min(value * 10 + (rtf_[pos_] - '0'), 1LL << 30);
      parameter = static_cast<int>(negative ? -value : value);
    }
    if (pos_ < rtf_.size() && rtf_[pos_] == ' ') ++pos_;
    controlWord(word, parameter);
  }

  static bool isDigit(char c) { return c >= '0' && c <= '9'; }

  void controlWord(std::string_view word, std::optional<int> parameter) {
    const int value = parameter.value_or(0);
    if (word == "bin") {
      // Raw binary data; it may hold braces and backslashes, so it is stepped over
      // whatever the group, and counts as a single fallback character.
      pos_ += std::min(static_cast<std::size_t>(std::max(value, 0)), rtf_.size() - pos_);
      consumeFallback();
      return;
    }
    if (groups_.empty()) return;
    Group& g = group();
    if (g.mode == Mode::skip) return;
    if (word == "fonttbl") {
      g.mode = Mode::fontTable;
      return;
    }
    if (isSkippedDestination(word) || g.ignorable) {
      g.mode = Mode::skip;
      if (word == "NeXTGraphic") g.attachment = true;
      return;
    }
    if (g.mode == Mode::fontTable) {
      fontTableWord(word, parameter);
      return;
    }
    if (word == "u" && parameter) {
      unicodeUnit(value);
      skipCount_ = g.unicodeFallback;
      return;
    }
    if (consumeFallback()) return;
    documentWord(word, parameter);
  }

  void fontTableWord(std::string_view word, std::optional<int> parameter) {
    if (!parameter) return;
    if (word == "f") {
      definingFont_ = *parameter;
    } else if ((word == "fcharset" || word == "cpg") && fontCodePages_.size() < kMaxFonts) {
      const int codePage = word == "cpg" ? *parameter : codePageOfCharset(*parameter);
      // An explicit \cpg wins over the charset, whichever comes first.
      if (codePage != 0 && (word == "cpg" || !fontCodePages_.count(definingFont_)))
        fontCodePages_[definingFont_] = codePage;
    }
  }

  void documentWord(std::string_view word, std::optional<int> parameter) {
    Group& g = group();
    const int value = parameter.value_or(0);
    if (word == "uc" && parameter) {
      g.unicodeFallback = std::max(0, value);
    } else if (word == "f" && parameter) {
      g.font = value;
    } else if (word == "plain") {
      g.font = -1;
    } else if (word == "deff" && parameter) {
      defaultFont_ = value;
    } else if (word == "ansicpg" && parameter) {
      documentCodePage_ = value;
    } else if (word == "ansi") {
      documentCodePage_ = 1252;
    } else if (word == "mac") {
      documentCodePage_ = 10000;
    } else if (word == "pc") {
      documentCodePage_ = 437;
    } else if (word == "pca") {
      documentCodePage_ = 850;
    } else if (word == "cell" || word == "nestcell") {
      // Cells are separated by tabs and rows end lines, the way a table pastes
      // into a plain-text field; the tab of a row's last cell would only trail.
      if (!emitting()) return;
      textCharacter('\t');
      cellEnd_ = text_.size();
    } else if (word == "row" || word == "nestrow") {
      if (!emitting()) return;
      flushBytes();
      if (cellEnd_ != 0 && cellEnd_ == text_.size() && text_.back() == '\t') text_.pop_back();
      textCharacter('\n');
    } else {
      for (const auto& special : kSpecialCharacters)
        if (special.word == word) textCharacter(special.character);
    }
  }

  // \u takes a signed 16-bit value; astral characters come as two surrogates.
  void unicodeUnit(int value) {
    if (!emitting()) return;
    if (value < 0) value += 65536;
    if (value <= 0 || value > 0x10FFFF) return;
    const auto unit = static_cast<UChar32>(value);
    if (U16_IS_LEAD(unit)) {
      flushBytes();
      if (pendingHighSurrogate_) appendUtf8(text_, 0xFFFD);
      pendingHighSurrogate_ = unit;
      return;
    }
    if (U16_IS_TRAIL(unit) && pendingHighSurrogate_) {
      flushBytes();
      appendUtf8(text_, U16_GET_SUPPLEMENTARY(pendingHighSurrogate_, unit));
      pendingHighSurrogate_ = 0;
      return;
    }
    textCharacter(U16_IS_SURROGATE(unit) ? 0xFFFD : unit);
  }

  void textCharacter(UChar32 c) {
    if (!emitting()) return;
    if (std::exchange(dropAttachmentMark_, false) && c == 0x00AC) return;
    flushBytes();
    if (pendingHighSurrogate_) {
      appendUtf8(text_, 0xFFFD);
      pendingHighSurrogate_ = 0;
    }
    appendUtf8(text_, c);
  }

  // Bytes (plain text and hex escapes) gather in the code page of the current
  // font and are decoded together, so that a double-byte character written as
  // two escapes decodes as one.
  void textByte(unsigned char byte) {
    if (consumeFallback() || !emitting()) return;
    const int codePage = currentCodePage();
    if (std::exchange(dropAttachmentMark_, false) && isNotSign(byte, codePage)) return;
    if (pendingHighSurrogate_) {
      flushBytes();
      appendUtf8(text_, 0xFFFD);
      pendingHighSurrogate_ = 0;
    }
    if (codePage != bytesCodePage_) flushBytes();
    bytesCodePage_ = codePage;
    bytes_.push_back(static_cast<char>(byte));
  }

  int currentCodePage() const {
    const int font = groups_.back().font >= 0 ? groups_.back().font : defaultFont_;
    const auto it = fontCodePages_.find(font);
    return it != fontCodePages_.end() ? it->second : documentCodePage_;
  }

  // The mark that stands for an attachment in the text, written after the
  // attachment's description: "¬" in the document's code page.
  bool isNotSign(unsigned char byte, int codePage) {
    std::string decoded;
    UConverter* from = converter(codePage);
    return from && toUtf8_ &&
           appendConverted(from, toUtf8_.get(), std::string_view(reinterpret_cast<char*>(&byte), 1),
                           decoded) &&
           decoded == "\u00AC";
  }

  void flushBytes() {
    if (bytes_.empty()) return;
    UConverter* from = converter(bytesCodePage_);
    if (from && toUtf8_) appendConverted(from, toUtf8_.get(), bytes_, text_);
    bytes_.clear();
  }

  // The converter of a Windows code page; a page ICU has no table for reads
  // as 1252, the page RTF assumes when none is given.
  UConverter* converter(int codePage) {
    if (auto it = converters_.find(codePage); it != converters_.end())
      return it->second || codePage == 1252 ? it->second.get() : converter(1252);
    Converter opened;
    for (const char* prefix : {"windows-", "cp", "ibm-"}) {
      if ((opened = openConverter((prefix + std::to_string(codePage)).c_str()))) break;
    }
    if (!opened && codePage != 1252) {
      // Remember a few unknown pages so as not to look them up for every run of
      // text; a document naming thousands of them is not worth the memory.
      if (converters_.size() < 64) converters_.emplace(codePage, nullptr);
      return converter(1252);
    }
    if (!opened) opened = openConverter("ISO-8859-1");  // built into ICU, needs no data
    if (opened) {
      UErrorCode status = U_ZERO_ERROR;
      ucnv_setToUCallBack(opened.get(), toReplacementCharacter, nullptr, nullptr, nullptr,
                          &status);
    }
    return converters_.emplace(codePage, std::move(opened)).first->second.get();
  }

  std::string_view rtf_;
  std::size_t pos_ = 0;
  bool done_ = false;
  std::vector<Group> groups_;
  std::string text_;
  std::string bytes_;
  int bytesCodePage_ = 1252;
  int documentCodePage_ = 1252;
  int defaultFont_ = -1;
  int definingFont_ = -1;
  std::map<int, int> fontCodePages_;
  std::map<int, Converter> converters_;
  Converter toUtf8_;
  int skipCount_ = 0;
  std::size_t cellEnd_ = 0;
  UChar32 pendingHighSurrogate_ = 0;
  bool dropAttachmentMark_ = false;
};

// The bytes of a regular file, at most kMaxFileBytes of them; none for
// anything else (a folder, a device, a pipe that could block the reader).
std::optional<Bytes> readRegularFile(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error || size > kMaxFileBytes) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  Bytes bytes;
  bytes.reserve(static_cast<std::size_t>(size));
  std::array<char, 64 * 1024> chunk;
  // The file may have grown since its size was taken, so the limit holds while reading too.
  while (file.read(chunk.data(), chunk.size()) || file.gcount() > 0) {
    const auto count = static_cast<std::size_t>(file.gcount());
    if (bytes.size() + count > kMaxFileBytes) return std::nullopt;
    bytes.insert(bytes.end(), chunk.data(), chunk.data() + count);
  }
  if (file.bad()) return std::nullopt;
  return bytes;
}

std::optional<std::string> nonEmpty(std::optional<std::string> text) {
  if (text && text->empty()) return std::nullopt;
  return text;
}

}  // namespace

std::optional<std::string> plainTextFromRtf(std::string_view rtf) {
  if (!rtf.starts_with("{\\rtf")) return std::nullopt;
  return RtfReader(rtf).read();
}

std::optional<std::string> decodeText(const Bytes& bytes) {
  if (bytes.empty()) return std::nullopt;
  const std::string_view data = asView(bytes);
  // A UTF-16 file names its byte order in its first two bytes; the mark
  // itself is not part of the text.
  if (data.size() >= 2 && (data.starts_with("\xFF\xFE") || data.starts_with("\xFE\xFF"))) {
    const char* charset = data[0] == '\xFF' ? "UTF-16LE" : "UTF-16BE";
    if (data.size() % 2 == 0)
      if (auto text = decodeStrictly(charset, data.substr(2))) return nonEmpty(std::move(text));
  }
  if (auto utf8 = decodeStrictly("UTF-8", data)) {
    if (utf8->starts_with("\uFEFF")) utf8->erase(0, 3);
    // Valid UTF-8 that is only a byte-order mark holds no text; reading it
    // again as Mac OS Roman would only turn the mark into "ï»¿".
    return nonEmpty(std::move(utf8));
  }
  for (const char* charset : {"macintosh", "windows-1252", "ISO-8859-1"}) {
    if (auto text = nonEmpty(decodeStrictly(charset, data))) return text;
  }
  return std::nullopt;
}

std::optional<std::string> readTextFromFile(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    // An RTFD document is a folder whose text is in TXT.rtf, beside its attachments.
    auto rtf = readRegularFile(fs::path(path) / "TXT.rtf");
    if (!rtf) return std::nullopt;
    return nonEmpty(plainTextFromRtf(asView(*rtf)));
  }
  auto bytes = readRegularFile(path);
  if (!bytes) return std::nullopt;
  if (auto text = nonEmpty(plainTextFromRtf(asView(*bytes)))) return text;
  return decodeText(*bytes);
}

}  // namespace orla
