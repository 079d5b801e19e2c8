#include <orla/models/json_codable.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <variant>
#include <vector>
#include <string>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include <orla/models/base64.h>
#include <orla/models/input_limits.h>

namespace orla {

namespace {

// `key` names the parameter the value belongs to, for the sentences.
Checked<AnyCodable> anyFromJsonAt(const nlohmann::json& json, std::size_t depth, const std::string& key) {
  if (depth > kJsonDepthLimit)
    return fail("The JSON nests deeper than " + std::to_string(kJsonDepthLimit) + " levels.");
  using Type = nlohmann::json::value_t;
  switch (json.type()) {
    case Type::string: {
      // The system cuts a text at its NUL, so a command, a path or a
      // condition would be acted on as a shorter one than was written
      // ("echo a\0; rm …" would run "echo a").
      const auto& text = json.get_ref<const std::string&>();
      if (text.find('\0') != std::string::npos)
        return fail((key.empty() ? std::string("A text") : "The parameter “" + key + "”") +
                    " holds a NUL character, which cannot be passed on.");
      return AnyCodable(text);
    }
    case Type::boolean: return AnyCodable(json.get<bool>());
    case Type::number_integer: return AnyCodable(json.get<std::int64_t>());
    case Type::number_unsigned: {
      const auto u = json.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return AnyCodable(static_cast<std::int64_t>(u));
      return AnyCodable(static_cast<double>(u));
    }
    case Type::number_float: return AnyCodable(json.get<double>());
    case Type::null: return AnyCodable(Null{});
    case Type::array: {
      AnyArray items;
      items.reserve(json.size());
      for (const auto& element : json) {
        auto item = anyFromJsonAt(element, depth + 1, key);
        if (!item) return item;
        items.push_back(std::move(item).value());
      }
      return AnyCodable(std::move(items));
    }
    case Type::object: {
      if (json.size() == 1 && json.contains("$data")) {
        const auto& encoded = json["$data"];
        if (!encoded.is_string()) return fail("A “$data” value must be a Base64 text.");
        auto bytes = base64Decode(encoded.get_ref<const std::string&>());
        if (!bytes) return fail("A “$data” value is not valid Base64.");
        return AnyCodable(std::move(*bytes));
      }
      AnyDictionary entries;
      for (const auto& [name, element] : json.items()) {
        if (name.find('\0') != std::string::npos)
          return fail("A parameter name holds a NUL character, which cannot be passed on.");
        auto item = anyFromJsonAt(element, depth + 1, name);
        if (!item) return item;
        entries.emplace(name, std::move(item).value());
      }
      return AnyCodable(std::move(entries));
    }
    case Type::binary:
    case Type::discarded: break;
  }
  return fail("That JSON value cannot be used as a parameter.");
}

}  // namespace

Checked<AnyCodable> anyFromJson(const nlohmann::json& json) { return anyFromJsonAt(json, 0, {}); }

nlohmann::json anyToJson(const AnyCodable& value) {
  using Kind = AnyCodable::Kind;
  switch (value.kind()) {
    case Kind::string: return *value.asString();
    case Kind::int_: return *value.asInt();
    case Kind::double_: return *value.asDouble();
    case Kind::bool_: return *value.asBool();
    case Kind::data: return nlohmann::json{{"$data", base64Encode(*value.asData())}};
    case Kind::array: {
      auto out = nlohmann::json::array();
      for (const auto& item : *value.asArray()) out.push_back(anyToJson(item));
      return out;
    }
    case Kind::dictionary: {
      auto out = nlohmann::json::object();
      for (const auto& [key, item] : *value.asDictionary()) out[key] = anyToJson(item);
      return out;
    }
    case Kind::null: return nullptr;
  }
  return nullptr;
}

namespace {

// The parser counts bytes from 1 up to the one it could not take; a person
// counts lines and the characters on a line.
std::string textPosition(std::string_view text, size_t byte) {
  const size_t end = std::min(byte > 0 ? byte - 1 : 0, text.size());
  size_t line = 1, column = 1;
  for (size_t i = 0; i < end; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++line;
      column = 1;
    } else if ((c & 0xC0) != 0x80) {  // not a UTF-8 continuation byte
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

Checked<nlohmann::json> parseJsonText(std::string_view text) {
  try {
    return nlohmann::json::parse(text.begin(), text.end());
  } catch (const nlohmann::json::parse_error& e) {
    return fail("at " + textPosition(text, e.byte));
  } catch (const nlohmann::json::exception&) {
    // Valid JSON all the same, but a number past what a double holds (1e400).
    return fail(std::string("with a number too large to hold"));
  }
}

namespace {

// Builds the parameter values straight from a parser's events, with no
// JSON document between. From nlohmann-json's parser each text moves from
// its buffer into its value; from simdjson's each is copied once out of the
// buffer it unescapes into, so a large text is held three times at most
// while it is read (the input, that buffer, the value). The sentences are
// those of the document path above, which shortcut files still take.
class ActionDataBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit ActionDataBuilder(const JsonFileReader* readFile) : readFile_(readFile) {}

  bool null() override { return add(AnyCodable(Null{})); }
  bool boolean(bool value) override { return add(AnyCodable(value)); }
  bool number_integer(number_integer_t value) override { return add(AnyCodable(std::int64_t{value})); }
  bool number_unsigned(number_unsigned_t value) override {
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return add(AnyCodable(static_cast<std::int64_t>(value)));
    return add(AnyCodable(static_cast<double>(value)));
  }
  bool number_float(number_float_t value, const string_t&) override { return add(AnyCodable(value)); }
  bool string(string_t& value) override {
    // The system cuts a text at its NUL, so a command, a path or a condition
    // would be acted on as a shorter one than was written ("echo a\0; rm …"
    // would run "echo a"). Under "$data" and "$file" the object's own check
    // speaks first, as the value is not a text there.
    if (!stack_.empty() && value.find('\0') != std::string::npos) {
      const std::string& key = currentKey();
      if (stack_.back().isObject && (key == "$data" || key == "$file"))
        stack_.back().nulUnder = key;
      else
        return problem(nulSentence(key));
    }
    return add(AnyCodable(std::move(value)));
  }
  bool binary(binary_t&) override { return problem("That JSON value cannot be used as a parameter."); }
  bool start_object(std::size_t) override { return open(true); }
  bool key(string_t& name) override {
    if (name.find('\0') != std::string::npos)
      return problem("A parameter name holds a NUL character, which cannot be passed on.");
    stack_.back().key = std::move(name);
    return true;
  }
  bool end_object() override {
    Frame frame = std::move(stack_.back());
    stack_.pop_back();
    // Alone, a "$data" or "$file" object is a value, not parameters.
    if (stack_.empty()) rootIsValueObject_ = true;
    auto& entries = frame.entries;
    if (entries.size() == 1 && entries.begin()->first == "$data") return addData(entries.begin()->second);
    if (entries.size() == 1 && entries.begin()->first == "$file" && readFile_)
      return addFile(entries.begin()->second);
    if (!frame.nulUnder.empty()) return problem(nulSentence(frame.nulUnder));
    if (stack_.empty()) {
      root_ = std::move(entries);
      return true;
    }
    return add(AnyCodable(std::move(entries)));
  }
  bool start_array(std::size_t) override { return open(false); }
  bool end_array() override {
    AnyArray items = std::move(stack_.back().items);
    stack_.pop_back();
    return add(AnyCodable(std::move(items)));
  }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception& error) override {
    // 406: valid JSON all the same, but a number past what a double holds
    // (1e400).
    if (error.id == 406) syntax_ = "with a number too large to hold";
    else syntaxAt_ = position;
    return false;
  }

  // The sentence of the first problem, or the dictionary.
  Checked<ActionData> finish(std::string_view text) {
    if (syntaxAt_) return fail("PARAMS is not valid JSON at " + textPosition(text, *syntaxAt_) + ".");
    if (!syntax_.empty()) return fail("PARAMS is not valid JSON " + syntax_ + ".");
    if (problem_) return fail(std::move(*problem_));
    if (root_) return std::move(*root_);
    if (rootIsValueObject_) return fail("PARAMS must be a JSON object of parameters.");
    return fail("PARAMS must be a JSON object.");
  }

 private:
  struct Frame {
    bool isObject = false;
    AnyArray items;
    AnyDictionary entries;
    std::string key;       // of the value an object reads next
    std::string name;      // the parameter an array's texts belong to
    std::string nulUnder;  // "$data" or "$file" when its text held a NUL
  };

  // The parameter a value belongs to, for the sentences: the key it is read
  // under, or, in an array, the key of the array.
  const std::string& currentKey() const {
    static const std::string none;
    if (stack_.empty()) return none;
    return stack_.back().isObject ? stack_.back().key : stack_.back().name;
  }

  static std::string nulSentence(const std::string& key) {
    return (key.empty() ? std::string("A text") : "The parameter “" + key + "”") +
           " holds a NUL character, which cannot be passed on.";
  }

  bool open(bool isObject) {
    // The top object counts as the first level, as in the check of the
    // nesting that the other inputs take before they are parsed.
    if (stack_.size() + 1 > kJsonDepthLimit)
      return problem("PARAMS nests deeper than " + std::to_string(kJsonDepthLimit) + " levels.");
    Frame frame;
    frame.isObject = isObject;
    frame.name = currentKey();
    stack_.push_back(std::move(frame));
    return true;
  }

  bool add(AnyCodable value) {
    if (stack_.empty()) return true;  // not an object of parameters: `finish` says so
    Frame& frame = stack_.back();
    // A key given twice keeps its last value, as a JSON document does.
    if (frame.isObject) frame.entries.insert_or_assign(std::move(frame.key), std::move(value));
    else frame.items.push_back(std::move(value));
    return true;
  }

  bool addData(const AnyCodable& encoded) {
    const std::string* text = encoded.asString();
    if (!text) return problem("A “$data” value must be a Base64 text.");
    auto bytes = base64Decode(*text);
    if (!bytes) return problem("A “$data” value is not valid Base64.");
    return add(AnyCodable(std::move(*bytes)));
  }

  bool addFile(const AnyCodable& path) {
    const std::string* text = path.asString();
    const std::string& key = currentKey();
    if (!text || text->empty() || text->find('\0') != std::string::npos)
      return problem("A “$file” value must be the path of a text file.");
    auto contents = (*readFile_)(*text, key);
    if (!contents) return problem(std::move(contents).error());
    if (contents->find('\0') != std::string::npos) return problem(nulSentence(key));
    return add(AnyCodable(std::move(contents).value()));
  }

  // Stops the parse at the first problem; its sentence is kept.
  bool problem(std::string sentence) {
    if (!problem_) problem_ = std::move(sentence);
    return false;
  }

  const JsonFileReader* readFile_;
  std::vector<Frame> stack_;
  std::optional<AnyDictionary> root_;
  bool rootIsValueObject_ = false;
  std::optional<std::string> problem_;
  std::optional<std::size_t> syntaxAt_;
  std::string syntax_;
};

// Gives `builder` the events of a document simdjson has read, in the order
// and with the values nlohmann-json's parser gives them; false when the
// builder stops at a problem.
bool feed(const simdjson::dom::element& element, ActionDataBuilder& builder) {
  using Type = simdjson::dom::element_type;
  constexpr auto kUnknownSize = static_cast<std::size_t>(-1);
  switch (element.type()) {
    case Type::OBJECT: {
      simdjson::dom::object object;
      if (element.get(object) != simdjson::SUCCESS || !builder.start_object(kUnknownSize)) return false;
      for (const simdjson::dom::key_value_pair field : object) {
        std::string name(field.key);
        if (!builder.key(name) || !feed(field.value, builder)) return false;
      }
      return builder.end_object();
    }
    case Type::ARRAY: {
      simdjson::dom::array array;
      if (element.get(array) != simdjson::SUCCESS || !builder.start_array(kUnknownSize)) return false;
      for (const simdjson::dom::element item : array)
        if (!feed(item, builder)) return false;
      return builder.end_array();
    }
    case Type::STRING: {
      std::string_view view;
      if (element.get(view) != simdjson::SUCCESS) return false;
      std::string text(view);
      return builder.string(text);
    }
    case Type::INT64: {
      std::int64_t value = 0;
      return element.get(value) == simdjson::SUCCESS && builder.number_integer(value);
    }
    case Type::UINT64: {
      std::uint64_t value = 0;
      return element.get(value) == simdjson::SUCCESS && builder.number_unsigned(value);
    }
    case Type::DOUBLE: {
      double value = 0;
      std::string unused;
      return element.get(value) == simdjson::SUCCESS && builder.number_float(value, unused);
    }
    case Type::BOOL: {
      bool value = false;
      return element.get(value) == simdjson::SUCCESS && builder.boolean(value);
    }
    case Type::NULL_VALUE: return builder.null();
  }
  return false;
}

}  // namespace

namespace json_params {

static_assert(kJsonReadPadding >= simdjson::SIMDJSON_PADDING);

std::optional<Checked<ActionData>> readWhole(std::string_view text, const JsonFileReader* readFile,
                                             std::size_t bufferSize) {
  // simdjson refuses what is not JSON as nlohmann-json does, numbers too
  // large for a double and integers past 64 bits included, but its errors
  // name no place: such a text goes to the stepwise reader for its sentence.
  // Deeper documents than simdjson takes (1,024 levels) go there too, and
  // are refused at the depth limit with that reader's sentence.
  simdjson::dom::parser parser;
  simdjson::dom::element root;
  const bool padded = bufferSize >= text.size() + kJsonReadPadding;
  if (parser.parse(text.data(), text.size(), !padded).get(root) != simdjson::SUCCESS) return std::nullopt;
  ActionDataBuilder builder(readFile);
  feed(root, builder);
  return builder.finish(text);
}

Checked<ActionData> readStepwise(std::string_view text, const JsonFileReader* readFile) {
  ActionDataBuilder builder(readFile);
  nlohmann::json::sax_parse(text.data(), text.data() + text.size(), &builder);
  return builder.finish(text);
}

}  // namespace json_params

Checked<ActionData> actionDataFromJsonText(std::string_view text, const JsonFileReader* readFile,
                                           std::size_t bufferSize) {
  if (auto data = json_params::readWhole(text, readFile, bufferSize)) return std::move(*data);
  return json_params::readStepwise(text, readFile);
}

}  // namespace orla
