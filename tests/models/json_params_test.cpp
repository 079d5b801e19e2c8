// The two readers of parameters held to one another: simdjson, which reads
// large parameters, must give the values and sentences of the stepwise
// reader, or leave the text to it.
#include <orla/models/json_codable.h>

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

namespace orla {
namespace {

using json_params::readStepwise;
using json_params::readWhole;

// Both readers on `text`; with `taken`, simdjson must take it.
void expectAgree(const std::string& text, bool taken) {
  const auto stepwise = readStepwise(text, nullptr);
  const auto whole = readWhole(text, nullptr, 0);
  ASSERT_EQ(whole.has_value(), taken) << text;
  if (!whole) return;
  ASSERT_EQ(bool(*whole), bool(stepwise)) << text << "\n" << (stepwise ? whole->error() : stepwise.error());
  if (stepwise) {
    EXPECT_EQ(**whole, *stepwise) << text;
  } else {
    EXPECT_EQ(whole->error(), stepwise.error()) << text;
  }
}

TEST(JsonParams, BothReadersGiveTheSameValuesAndSentences) {
  const std::string deep600 = "{\"a\":" + std::string(600, '[') + std::string(600, ']') + "}";
  const std::string deep1100 = "{\"a\":" + std::string(1100, '[') + std::string(1100, ']') + "}";
  struct Case {
    std::string text;
    bool taken;  // whether simdjson reads it (else it is not JSON to it)
  };
  const Case cases[] = {
      // Numbers at the edges of the integer and double kinds.
      {R"({"a":0,"b":-0,"c":-0.0,"d":1e-400,"e":5e-324,"f":1.7976931348623157e308})", true},
      {R"({"a":9223372036854775807,"b":9223372036854775808,"c":18446744073709551615})", true},
      {R"({"a":-9223372036854775808,"b":1E2,"c":0.1,"d":2.0,"e":123456789.123456789e-5})", true},
      {R"({"a":18446744073709551616})", false},   // past 64 bits: a double to the other reader
      {R"({"a":-9223372036854775809})", false},
      {R"({"a":1e400})", false},                  // too large to hold
      // Texts: escapes, surrogate pairs, what no text may hold.
      {R"({"s":"\u00e9\ud83d\ude00\/\b\f\n\r\t\"\\","k\u00e9y":"x"})", true},
      {R"({"s":"a\u0000b"})", true},
      {R"({"a\u0000":1})", true},
      {R"({"s":"\ud800"})", false},
      {"{\"s\":\"\xff\"}", false},
      {"{\"s\":\"a\x01\"}", false},
      // Shapes: empty, repeated keys, the values that are objects.
      {R"({})", true},
      {R"({"a":{},"b":[],"c":[[],{}],"a":[1,{"x":null}]})", true},
      {R"({"x":{"$data":"AQI="},"y":{"$data":"***"}})", true},
      {R"({"x":{"$data":"\u0000","y":1}})", true},
      {R"({"$data":"AQI="})", true},
      {R"({"t":{"$file":"a"}})", true},  // no reader: an ordinary object
      {R"([1,2])", true},
      {R"("text")", true},
      {R"(null)", true},
      {" \t\r\n{ \"a\" : [ 1 , true , false , null ] } \n", true},
      // Depth: under simdjson's limit the builder refuses at its own; past
      // it, the stepwise reader does, with the same sentence.
      {deep600, true},
      {deep1100, false},
      // Not JSON: only the stepwise reader says where.
      {"", false},
      {"{", false},
      {R"({"a":1} x)", false},
      {R"({"a":1,})", false},
      {R"({"a":01})", false},
      {"\xEF\xBB\xBF{\"a\":1}", false},
  };
  for (const auto& c : cases) expectAgree(c.text, c.taken);
}

// Random documents: numbers written with many digits and exponents (where
// two parsers' rounding could differ), texts with escapes, nesting.
TEST(JsonParams, BothReadersAgreeOnRandomDocuments) {
  std::mt19937_64 random(20261124);
  // Every number fits a 64-bit integer or a double, so simdjson must take
  // every document.
  const auto number = [&] {
    std::string n = random() % 2 ? "-" : "";
    n += std::to_string(random() % 10);
    if (n.back() != '0')
      for (int i = random() % 18; i > 0; --i) n += char('0' + random() % 10);
    if (random() % 2) {
      n += '.';
      for (int i = 1 + random() % 20; i > 0; --i) n += char('0' + random() % 10);
    }
    switch (random() % 4) {
      case 0: n += (random() % 2 ? "e" : "E+") + std::to_string(random() % 280); break;
      case 1: n += "e-" + std::to_string(random() % 340); break;
      default: break;
    }
    return n;
  };
  const char* pieces[] = {"a", "\\u00e9", "\\n", "\\\"", "日本", "\\ud83d\\ude00", "\\\\", " ", "\\/"};
  const auto text = [&] {
    std::string s = "\"";
    for (int i = random() % 6; i > 0; --i) s += pieces[random() % std::size(pieces)];
    return s + "\"";
  };
  std::function<std::string(int)> value = [&](int depth) -> std::string {
    switch (random() % (depth > 3 ? 4 : 6)) {
      case 0: return number();
      case 1: return text();
      case 2: return random() % 2 ? "true" : "null";
      case 3: return std::to_string(static_cast<std::int64_t>(random()));
      case 4: {
        std::string a = "[";
        for (int i = random() % 4; i > 0; --i) a += value(depth + 1) + (i > 1 ? "," : "");
        return a + "]";
      }
      default: {
        std::string o = "{";
        for (int i = random() % 4; i > 0; --i) o += text() + ":" + value(depth + 1) + (i > 1 ? "," : "");
        return o + "}";
      }
    }
  };
  for (int round = 0; round < 2000; ++round) {
    std::string document = "{";
    for (int i = 1 + random() % 5; i > 0; --i) document += text() + ":" + value(0) + (i > 1 ? "," : "");
    document += "}";
    const auto whole = readWhole(document, nullptr, 0);
    const auto stepwise = readStepwise(document, nullptr);
    ASSERT_TRUE(whole) << document;
    ASSERT_EQ(bool(*whole), bool(stepwise)) << document;
    if (stepwise) {
      ASSERT_EQ(**whole, *stepwise) << document;
    }
  }
}

// A text in a buffer with room past its end is read in place (under the
// address sanitizer this also shows that nothing past the buffer is read);
// the values are those of a copy.
TEST(JsonParams, ReadsInPlaceWhenTheBufferHasRoom) {
  std::string buffer = R"({"text":")" + std::string(100000, 'x') + R"(","n":[1,2.5]})";
  const std::size_t size = buffer.size();
  buffer.reserve(size + kJsonReadPadding);
  const auto inPlace = actionDataFromJsonText(std::string_view(buffer.data(), size), nullptr, buffer.capacity());
  const auto copied = actionDataFromJsonText(std::string_view(buffer.data(), size));
  ASSERT_TRUE(inPlace) << inPlace.error();
  ASSERT_TRUE(copied) << copied.error();
  EXPECT_EQ(*inPlace, *copied);
  EXPECT_EQ(inPlace->at("text").asString()->size(), 100000u);
}

}  // namespace
}  // namespace orla
