#include <orla/models/parameter_readers.h>

#include <gtest/gtest.h>

#include <array>

namespace orla {
namespace {

const std::optional<std::string> noText;

TEST(ReadString, FirstAliasWithNonEmptyTrimmedTextWins) {
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {"empty dictionary", {}, noText},
      {"first alias", {{"a", "one"}, {"b", "two"}}, "one"},
      {"trimmed", {{"a", " \t one two\n"}}, "one two"},
      {"blank falls through", {{"a", " \n\t "}, {"b", "two"}}, "two"},
      {"unicode blanks fall through", {{"a", "\u00A0\u2028\u3000"}, {"b", "two"}}, "two"},
      {"wrong case falls through", {{"a", 5}, {"b", "two"}}, "two"},
      {"array is not text", {{"a", AnyArray{AnyCodable("x")}}}, noText},
      {"keys are exact", {{"A", "upper"}}, noText},
      {"only blank", {{"a", "   "}, {"b", ""}}, noText},
  };
  for (const auto& c : cases) EXPECT_EQ(readString(c.data, {"a", "b"}), c.expected) << c.name;
  EXPECT_EQ(readStringOr({}, {"a"}, "fallback"), "fallback");
}

TEST(ReadString, RawStringKeepsSpacesAndIdentifierIsLowercased) {
  const ActionData data{{"raw", "  As Is "}, {"id", "  OpenAI "}, {"n", 3}};
  EXPECT_EQ(readRawString(data, "raw"), "  As Is ");
  EXPECT_EQ(readRawString(data, "n"), noText);
  EXPECT_EQ(readIdentifier(data, {"id"}, "x"), "openai");
  EXPECT_EQ(readIdentifier(data, {"missing", "raw"}, "x"), "as is");
  EXPECT_EQ(readIdentifier({}, {"id"}, "openai"), "openai");
  EXPECT_EQ(readIdentifier({{"id", "ÉTÉ"}}, {"id"}, ""), "été");
}

TEST(ReadInt, FirstAliasYieldingAnIntegerWins) {
  const std::optional<std::int64_t> none;
  struct Case {
    const char* name;
    ActionData data;
    std::optional<std::int64_t> expected;
  };
  const Case cases[] = {
      {"absent", {}, none},
      {"int", {{"a", 4}}, 4},
      {"numeric text", {{"a", " 7 "}}, 7},
      {"unusable first alias", {{"a", "seven"}, {"b", 2}}, 2},
      {"bool is not a number", {{"a", true}}, none},
      {"whole double", {{"a", 5.0}}, 5},
  };
  for (const auto& c : cases) EXPECT_EQ(readInt(c.data, {"a", "b"}), c.expected) << c.name;
  EXPECT_EQ(readIntOr({}, {"a"}, 24), 24);
}

TEST(ReadDouble, FollowsTheFloatingConversion) {
  const std::optional<double> none;
  struct Case {
    AnyCodable value;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {AnyCodable("1,5"), 1.5},
      {AnyCodable(" 2.25\n"), 2.25},
      {AnyCodable("+3"), 3.0},
      {AnyCodable("1e2"), 100.0},
      {AnyCodable("abc"), none},
      {AnyCodable("1.5s"), none},
      {AnyCodable(""), none},
      {AnyCodable("inf"), none},
      {AnyCodable("nan"), none},
      {AnyCodable("1e999"), none},
      {AnyCodable(2), 2.0},
      {AnyCodable(0.5), 0.5},
      {AnyCodable(std::numeric_limits<double>::infinity()), none},
      {AnyCodable(true), 1.0},
      {AnyCodable(false), 0.0},
      {AnyCodable(Null{}), none},
      {AnyCodable(AnyArray{}), none},
  };
  for (const auto& c : cases) EXPECT_EQ(toDouble(c.value), c.expected) << static_cast<int>(c.value.kind());
  EXPECT_EQ(readDouble({{"a", "x"}, {"b", "0,25"}}, {"a", "b"}), 0.25);
  EXPECT_EQ(readDoubleOr({}, {"a"}, 1.0), 1.0);
}

TEST(ReadSwitch, AcceptsBoolAndNonZeroInt) {
  const std::optional<bool> none;
  struct Case {
    AnyCodable value;
    std::optional<bool> expected;
  };
  const Case cases[] = {
      {AnyCodable(true), true}, {AnyCodable(false), false}, {AnyCodable(1), true},
      {AnyCodable(-3), true},   {AnyCodable(0), false},     {AnyCodable("true"), none},
      {AnyCodable(1.0), none},  {AnyCodable(Null{}), none},
  };
  for (const auto& c : cases) EXPECT_EQ(toSwitch(c.value), c.expected);
  EXPECT_TRUE(readSwitchOr({{"a", "yes"}, {"b", 2}}, {"a", "b"}));
  EXPECT_FALSE(readSwitchOr({}, {"a"}));
}

TEST(ReadList, TakesTheFirstArray) {
  const ActionData data{{"Rules", "not a list"}, {"rules", AnyArray{AnyCodable(1)}}};
  const AnyArray* list = readList(data, {"Rules", "rules"});
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->size(), 1u);
  EXPECT_EQ(readList(data, {"Rules"}), nullptr);
}

TEST(ExpandTilde, ExpandsOnlyALeadingTilde) {
  HomeLookup homes = [](std::string_view user) -> std::optional<std::string> {
    if (user.empty()) return "/home/ada";
    if (user == "bob") return "/home/bob/";
    if (user == "root") return "/";
    return std::nullopt;
  };
  struct Case {
    const char* path;
    const char* expected;
  };
  const Case cases[] = {
      {"~", "/home/ada"},           {"~/Documents", "/home/ada/Documents"},
      {"~bob", "/home/bob/"},       {"~bob/x", "/home/bob/x"},
      {"~root/x", "/x"},            {"~nobody/x", "~nobody/x"},
      {"/tmp/~", "/tmp/~"},         {"", ""},
      {"a~/b", "a~/b"},
  };
  for (const auto& c : cases) EXPECT_EQ(expandTilde(c.path, homes), c.expected) << c.path;
  EXPECT_EQ(expandTilde("~/x", [](std::string_view) { return std::optional<std::string>(); }), "~/x");
}

TEST(ResolveCommandNumber, NamesWinThenActionTypeThenAction) {
  constexpr std::array<CommandName, 3> names{{{"first", 1}, {"second", 2}, {"alias", 2}}};
  struct Case {
    const char* name;
    ActionData data;
    std::int64_t expected;
  };
  const Case cases[] = {
      {"empty", {}, 1},
      {"name wins over number", {{"subAction", "second"}, {"actionType", 5}}, 2},
      {"alias name", {{"subAction", "alias"}}, 2},
      {"names are case-sensitive", {{"subAction", "Second"}, {"actionType", 3}}, 3},
      {"names are not trimmed", {{"subAction", " second"}}, 1},
      {"subAction of another case is ignored", {{"subAction", 2}, {"actionType", 3}}, 3},
      {"zero is one", {{"actionType", 0}}, 1},
      {"negative stays", {{"actionType", -1}}, -1},
      {"large stays", {{"actionType", 10}}, 10},
      {"legacy key", {{"Action", 5}}, 5},
      {"actionType first", {{"actionType", 4}, {"Action", 5}}, 4},
      {"unusable actionType falls to Action", {{"actionType", "x"}, {"Action", 3}}, 3},
      {"numeric text", {{"actionType", "6"}}, 6},
      {"unrelated keys", {{"other", 9}}, 1},
  };
  for (const auto& c : cases) EXPECT_EQ(resolveCommandNumber(c.data, names), c.expected) << c.name;
  EXPECT_EQ(resolveCommandNumber({{"subAction", "second"}}), 1) << "no names, no match";
}

TEST(UnknownCommandMessage, SharesOneForm) {
  EXPECT_EQ(unknownCommandMessage("window action"),
            "Unknown window action. Choose one from the menu.");
}

}  // namespace
}  // namespace orla
