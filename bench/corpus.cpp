#include "bench/corpus.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace orla::bench {

namespace {

// xorshift64*: small, fast, and the same on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545F4914F6CDD1DULL;
  }
  std::size_t below(std::size_t n) { return static_cast<std::size_t>(next() % n); }
  template <class T, std::size_t N>
  const T& pick(const std::array<T, N>& items) { return items[below(N)]; }

 private:
  std::uint64_t state_;
};

constexpr std::array<std::string_view, 100> kEnglish = {
    "the", "of", "and", "to", "in", "a", "is", "that", "for", "it", "as", "was", "with", "be", "by", "on", "not",
    "he", "I", "this", "are", "or", "his", "from", "at", "which", "but", "have", "an", "they", "you", "were",
    "her", "she", "there", "been", "one", "all", "we", "their", "has", "would", "when", "if", "so", "no", "will",
    "said", "can", "more", "some", "about", "what", "out", "other", "into", "could", "time", "up", "only", "them",
    "than", "its", "may", "these", "first", "then", "new", "two", "like", "over", "very", "also", "made", "after",
    "people", "such", "where", "just", "most", "any", "years", "report", "server", "request", "user", "error",
    "value", "window", "morning", "coffee", "shortcut", "keyboard", "letter", "meeting", "Monday", "London",
    "October", "invoice", "project"};

constexpr std::array<std::string_view, 48> kNonAscii = {
    "Grüße", "Straße", "Äpfel", "Übermorgen", "Öffnungszeiten", "café", "déjà", "garçon", "élève", "naïve",
    "Привет", "мир", "Москва", "спасибо", "хорошо", "Καλημέρα", "κόσμος", "Ελλάδα", "你好", "世界", "中文",
    "北京", "谢谢", "こんにちは", "東京", "ありがとう", "カタカナ", "한국어", "서울", "안녕하세요", "👍", "👋🏽",
    "👨‍👩‍👧‍👦", "🇩🇪", "🇯🇵", "❤️", "e\u0301", "n\u0303", "a\u0308\u0301", "ﬁ", "½", "№", "€100", "São",
    "Zürich", "Kraków", "İstanbul", "naïveté"};

constexpr std::array<std::string_view, 24> kNames = {
    "Ada", "Grace", "Alan", "Edsger", "Barbara", "Donald", "Margaret", "Ken", "Dennis", "Bjarne", "Linus", "Guido",
    "Frances", "John", "Radia", "Tim", "Katherine", "Hedy", "Niklaus", "Leslie", "Sophie", "Karen", "Anita", "Jean"};

void appendSentence(Random& random, std::string& out, bool nonAscii) {
  const std::size_t words = 5 + random.below(11);
  for (std::size_t w = 0; w < words; ++w) {
    if (w) out += ' ';
    // Non-ASCII text is still half Latin script: a mix, as such text is.
    if (nonAscii && random.below(2)) out += random.pick(kNonAscii);
    else out += random.pick(kEnglish);
  }
  out += random.below(8) == 0 ? "?" : ".";
}

std::string makeText(std::size_t bytes, bool nonAscii) {
  Random random(nonAscii ? 2 : 1);
  std::string out;
  out.reserve(bytes + 256);
  while (out.size() < bytes) {
    appendSentence(random, out, nonAscii);
    // A paragraph break now and then, else a new line.
    out += random.below(12) == 0 ? "\n\n" : "\n";
  }
  return out;
}

std::string makeLines(std::size_t bytes) {
  Random random(4);
  std::string out;
  out.reserve(bytes + 64);
  std::vector<std::string> earlier;
  while (out.size() < bytes) {
    std::string line;
    if (!earlier.empty() && random.below(3) == 0) {
      line = earlier[random.below(earlier.size())];
    } else {
      line = std::string(random.pick(kNames)) + " " + std::string(random.pick(kEnglish)) + " " +
             std::to_string(random.below(100000));
      if (random.below(4) == 0) line[0] = static_cast<char>(line[0] | 0x20);  // some in lower case
      if (earlier.size() < 4096) earlier.push_back(line);
    }
    out += line;
    out += '\n';
  }
  return out;
}

std::string makeJson(std::size_t bytes) {
  Random random(3);
  std::string out = "[";
  out.reserve(bytes + 512);
  for (std::size_t id = 1; out.size() < bytes; ++id) {
    if (id > 1) out += ',';
    const std::string name(random.pick(kNames));
    out += "{\"id\":" + std::to_string(id) + ",\"name\":\"" + name + "\",\"email\":\"" + name + std::to_string(id) +
           "@example.org\",\"active\":" + (random.below(2) ? "true" : "false") +
           ",\"score\":" + std::to_string(random.below(1000)) + "." + std::to_string(random.below(100)) +
           ",\"tags\":[\"" + std::string(random.pick(kEnglish)) + "\",\"" + std::string(random.pick(kEnglish)) +
           "\"],\"address\":{\"city\":\"" + std::string(random.pick(kNonAscii)) + "\",\"zip\":\"" +
           std::to_string(10000 + random.below(89999)) + "\"},\"note\":\"Said \\\"" +
           std::string(random.pick(kEnglish)) + "\\\" on line\\n" + std::to_string(random.below(50)) +
           "\",\"parent\":null}";
  }
  out += "]";
  return out;
}

}  // namespace

std::string_view name(Corpus corpus) {
  switch (corpus) {
    case Corpus::english: return "english";
    case Corpus::nonAscii: return "nonascii";
    case Corpus::json: return "json";
    case Corpus::lines: return "lines";
  }
  return "?";
}

std::string makeCorpus(Corpus corpus, std::size_t bytes) {
  switch (corpus) {
    case Corpus::english: return makeText(bytes, false);
    case Corpus::nonAscii: return makeText(bytes, true);
    case Corpus::json: return makeJson(bytes);
    case Corpus::lines: return makeLines(bytes);
  }
  return {};
}

}  // namespace orla::bench
