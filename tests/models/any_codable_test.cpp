#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include <orla/models/any_codable.h>
#include <orla/models/base64.h>
#include <orla/models/json_codable.h>

namespace orla {
namespace {

TEST(AnyCodable, IntValueFollowsOneRuleForEveryCase) {
  const std::optional<std::int64_t> none;
  struct Case {
    AnyCodable value;
    std::optional<std::int64_t> expected;
  };
  const Case cases[] = {
      {AnyCodable(42), 42},
      {AnyCodable(std::int64_t{-7}), -7},
      {AnyCodable(3.0), 3},
      {AnyCodable(-2.0), -2},
      {AnyCodable(3.5), none},
      {AnyCodable(std::nan("")), none},
      {AnyCodable(std::numeric_limits<double>::infinity()), none},
      {AnyCodable(1e300), none},
      {AnyCodable(9223372036854775808.0), none},  // 2^63 is one past the range
      {AnyCodable("12"), 12},
      {AnyCodable("  -3 \n"), -3},
      {AnyCodable("+5"), 5},
      {AnyCodable("+-5"), none},
      {AnyCodable("4.0"), none},
      {AnyCodable("0x10"), none},
      {AnyCodable("12abc"), none},
      {AnyCodable(""), none},
      {AnyCodable("99999999999999999999"), none},
      {AnyCodable(true), none},
      {AnyCodable(Bytes{1, 2}), none},
      {AnyCodable(AnyArray{AnyCodable(1)}), none},
      {AnyCodable(AnyDictionary{}), none},
      {AnyCodable(Null{}), none},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(nlohmann::json(anyToJson(c.value)).dump());
    EXPECT_EQ(c.value.intValue(), c.expected);
  }
}

TEST(AnyCodable, CasesAreTestedByKind) {
  EXPECT_EQ(AnyCodable("x").kind(), AnyCodable::Kind::string);
  EXPECT_EQ(AnyCodable(1).kind(), AnyCodable::Kind::int_);
  EXPECT_EQ(AnyCodable(1.0).kind(), AnyCodable::Kind::double_);
  EXPECT_EQ(AnyCodable(false).kind(), AnyCodable::Kind::bool_);
  EXPECT_EQ(AnyCodable(Bytes{}).kind(), AnyCodable::Kind::data);
  EXPECT_EQ(AnyCodable(AnyArray{}).kind(), AnyCodable::Kind::array);
  EXPECT_EQ(AnyCodable(AnyDictionary{}).kind(), AnyCodable::Kind::dictionary);
  EXPECT_EQ(AnyCodable().kind(), AnyCodable::Kind::null);
  EXPECT_EQ(AnyCodable("x").asInt(), nullptr);
}

TEST(Base64, RoundTripsAndRejectsMalformedText) {
  for (std::string text : {"", "f", "fo", "foo", "foob", "fooba", "foobar"}) {
    const Bytes bytes(text.begin(), text.end());
    auto decoded = base64Decode(base64Encode(bytes));
    ASSERT_TRUE(decoded) << text;
    EXPECT_EQ(*decoded, bytes);
  }
  EXPECT_EQ(base64Encode(Bytes{'f', 'o', 'o', 'b', 'a', 'r'}), "Zm9vYmFy");
  EXPECT_EQ(base64Encode(Bytes{'f'}), "Zg==");
  EXPECT_FALSE(base64Decode("Zm9v!"));
  EXPECT_FALSE(base64Decode("Z"));
  EXPECT_FALSE(base64Decode("Zg==Zg"));
  EXPECT_EQ(base64Decode("Zm9v\nYmFy"), (Bytes{'f', 'o', 'o', 'b', 'a', 'r'}));
  EXPECT_EQ(base64Decode("Zm9v!YmFy", /*ignoreInvalid=*/true), (Bytes{'f', 'o', 'o', 'b', 'a', 'r'}));
}

TEST(JsonCodable, MapsEveryJsonTypeToItsCase) {
  auto data = actionDataFromJsonText(
      R"({"s":"t","i":3,"d":2.5,"whole":2.0,"b":true,"n":null,"a":[1,"x"],"o":{"k":1},)"
      R"("bytes":{"$data":"AQI="},"big":18446744073709551615})");
  ASSERT_TRUE(data) << data.error();
  const ActionData& d = *data;
  EXPECT_EQ(d.at("s"), AnyCodable("t"));
  EXPECT_EQ(d.at("i"), AnyCodable(3));
  EXPECT_EQ(d.at("d"), AnyCodable(2.5));
  EXPECT_EQ(d.at("whole").kind(), AnyCodable::Kind::double_);
  EXPECT_EQ(d.at("b"), AnyCodable(true));
  EXPECT_TRUE(d.at("n").isNull());
  EXPECT_EQ(d.at("a"), AnyCodable(AnyArray{AnyCodable(1), AnyCodable("x")}));
  EXPECT_EQ(d.at("o"), AnyCodable(AnyDictionary{{"k", AnyCodable(1)}}));
  EXPECT_EQ(d.at("bytes"), AnyCodable(Bytes{1, 2}));
  EXPECT_EQ(d.at("big").kind(), AnyCodable::Kind::double_);
}

TEST(JsonCodable, RejectsWhatIsNotAParameterObject) {
  struct Case {
    const char* text;
    const char* message;
  };
  const Case cases[] = {
      {"{bad", "PARAMS is not valid JSON at line 1, column 2."},
      {"", "PARAMS is not valid JSON at line 1, column 1."},
      {"{\"a\":\n  [1,,2]}", "PARAMS is not valid JSON at line 2, column 6."},
      {"{\"a\": 21e308}", "PARAMS is not valid JSON with a number too large to hold."},
      {"[1,2]", "PARAMS must be a JSON object."},
      {"\"text\"", "PARAMS must be a JSON object."},
      {R"({"$data":"AQI="})", "PARAMS must be a JSON object of parameters."},
      {R"({"x":{"$data":"***"}})", "A “$data” value is not valid Base64."},
      {R"({"x":{"$data":5}})", "A “$data” value must be a Base64 text."},
  };
  for (const auto& c : cases) {
    auto data = actionDataFromJsonText(c.text);
    ASSERT_FALSE(data) << c.text;
    EXPECT_EQ(data.error(), c.message) << c.text;
  }
}

TEST(JsonCodable, WritesBackWhatItRead) {
  const char* text = R"({"a":[1,2.5,"x",true,null],"b":{"$data":"AQI="},"c":{"k":"v"}})";
  auto data = actionDataFromJsonText(text);
  ASSERT_TRUE(data);
  EXPECT_EQ(anyToJson(AnyCodable(*data)), nlohmann::json::parse(text));
}

TEST(JsonCodable, KeepsTheSentencesOfEveryProblem) {
  struct Case {
    std::string text;
    const char* message;
  };
  const std::string deepOk = std::string(511, '[');
  const Case cases[] = {
      {R"({"cmd":"echo a\u0000; rm"})", "The parameter “cmd” holds a NUL character, which cannot be passed on."},
      {R"({"list":["x","a\u0000"]})", "The parameter “list” holds a NUL character, which cannot be passed on."},
      {R"({"o":{"inner":"\u0000"}})", "The parameter “inner” holds a NUL character, which cannot be passed on."},
      {R"({"a\u0000b":1})", "A parameter name holds a NUL character, which cannot be passed on."},
      {R"({"x":{"$data":"\u0000"}})", "A “$data” value is not valid Base64."},
      {R"({"x":{"$data":"\u0000","y":1}})", "The parameter “$data” holds a NUL character, which cannot be passed on."},
      {"{\"a\":" + std::string(512, '[') + std::string(512, ']') + "}", "PARAMS nests deeper than 512 levels."},
      {R"({"a":1} x)", "PARAMS is not valid JSON at line 1, column 9."},
      {R"("a\u0000")", "PARAMS must be a JSON object."},
  };
  for (const auto& c : cases) {
    auto data = actionDataFromJsonText(c.text);
    ASSERT_FALSE(data) << c.text;
    EXPECT_EQ(data.error(), c.message) << c.text;
  }
  auto deepest = actionDataFromJsonText("{\"a\":" + deepOk + std::string(511, ']') + "}");
  EXPECT_TRUE(deepest) << deepest.error();
}

TEST(JsonCodable, KeepsTheLastOfARepeatedKey) {
  auto data = actionDataFromJsonText(R"({"a":1,"b":[{"c":"x"}],"a":"two"})");
  ASSERT_TRUE(data) << data.error();
  EXPECT_EQ(data->at("a"), AnyCodable("two"));
  EXPECT_EQ(data->at("b"), AnyCodable(AnyArray{AnyCodable(AnyDictionary{{"c", AnyCodable("x")}})}));
}

TEST(JsonCodable, ReadsFileValuesOnlyWithAReader) {
  std::vector<std::pair<std::string, std::string>> asked;
  const JsonFileReader reader = [&](const std::string& path, const std::string& key) -> Checked<std::string> {
    asked.emplace_back(path, key);
    if (path == "missing") return fail("cannot read missing for the parameter " + key);
    if (path == "nul") return std::string("a\0b", 3);
    return "text of " + path;
  };
  auto data = actionDataFromJsonText(R"({"text":{"$file":"a.txt"},"list":[{"$file":"b"}],"n":1})", &reader);
  ASSERT_TRUE(data) << data.error();
  EXPECT_EQ(data->at("text"), AnyCodable("text of a.txt"));
  EXPECT_EQ(data->at("list"), AnyCodable(AnyArray{AnyCodable("text of b")}));
  EXPECT_EQ(asked, (std::vector<std::pair<std::string, std::string>>{{"a.txt", "text"}, {"b", "list"}}));

  struct Case {
    const char* text;
    const char* message;
  };
  const Case cases[] = {
      {R"({"text":{"$file":"missing"},"apiKey":"sk-secret"})", "cannot read missing for the parameter text"},
      {R"({"text":{"$file":"nul"}})", "The parameter “text” holds a NUL character, which cannot be passed on."},
      {R"({"text":{"$file":5}})", "A “$file” value must be the path of a text file."},
      {R"({"text":{"$file":""}})", "A “$file” value must be the path of a text file."},
      {R"({"$file":"a.txt"})", "PARAMS must be a JSON object of parameters."},
  };
  for (const auto& c : cases) {
    auto failed = actionDataFromJsonText(c.text, &reader);
    ASSERT_FALSE(failed) << c.text;
    EXPECT_EQ(failed.error(), c.message) << c.text;
  }
  // JSON from elsewhere never reads files: there it is an ordinary object.
  auto plain = actionDataFromJsonText(R"({"text":{"$file":"/etc/passwd"}})");
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->at("text"), AnyCodable(AnyDictionary{{"$file", AnyCodable("/etc/passwd")}}));
}

}  // namespace
}  // namespace orla
