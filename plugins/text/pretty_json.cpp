// Prettify JSON: the text pretty-printed as it was written, in one pass
// while no object repeats a key.
#include <nlohmann/json.hpp>

#include <charconv>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <orla/models/input_limits.h>
#include "plugins/text/text_transforms.h"

namespace orla::transforms {

namespace {

// Writes JSON pretty-printed as the parser reads it, so keys stay in their
// order and no tree is built. Two spaces per level, "key" : value.
class PrettyWriter : public nlohmann::json_sax<nlohmann::json> {
 public:
  // Deeper documents are refused, as the system's own parser refuses them.
  static constexpr size_t kMaxDepth = kJsonDepthLimit;
  // A few levels of nesting can multiply a text's size by its depth; past
  // this the result would be no use on a clipboard.
  static constexpr size_t kMaxOutput = kTextSizeLimit;

  explicit PrettyWriter(size_t inputSize) { out_.reserve(inputSize + inputSize / 2 + 16); }

  bool null() override { return scalar("null"); }
  bool boolean(bool value) override { return scalar(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return integer(value); }
  bool number_unsigned(number_unsigned_t value) override { return integer(value); }
  // The number as it was written: no digits gained or lost.
  bool number_float(number_float_t, const string_t& text) override { return scalar(text); }
  bool string(string_t& value) override {
    if (!beforeValue()) return false;
    appendQuoted(value);
    return afterValue();
  }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override {
    keys_.emplace_back();
    return open('{');
  }
  bool key(string_t& value) override {
    // A key met twice in one object: the parsed value keeps one of them,
    // which this single pass cannot do; the caller builds the value instead.
    if (!keys_.back().insert(value).second) {
      duplicateKey_ = true;
      return false;
    }
    if (!beforeValue()) return false;
    appendQuoted(value);
    out_ += " : ";
    afterKey_ = true;
    return true;
  }
  bool end_object() override {
    keys_.pop_back();
    return close('}');
  }
  bool start_array(std::size_t) override { return open('['); }
  bool end_array() override { return close(']'); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

  std::string take() { return std::move(out_); }
  bool tooLarge() const { return tooLarge_; }
  bool duplicateKey() const { return duplicateKey_; }

 private:
  bool scalar(std::string_view text) {
    if (!beforeValue()) return false;
    out_ += text;
    return afterValue();
  }
  template <class T>
  bool integer(T value) {
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    return scalar(std::string_view(digits, static_cast<size_t>(end - digits)));
  }
  // Starts a value or key on its line: after "key : " it follows directly,
  // otherwise a comma if needed, a new line and the indentation.
  bool beforeValue() {
    if (afterKey_) {
      afterKey_ = false;
      return true;
    }
    if (depth_ > 0) {
      if (!first_.back()) out_ += ',';
      first_.back() = false;
      newline();
    }
    return true;
  }
  bool afterValue() {
    if (out_.size() > kMaxOutput) {
      tooLarge_ = true;
      return false;
    }
    return true;
  }
  bool open(char bracket) {
    if (!beforeValue()) return false;
    if (depth_ == kMaxDepth) return false;
    out_ += bracket;
    ++depth_;
    first_.push_back(true);
    return afterValue();
  }
  bool close(char bracket) {
    const bool empty = first_.back();
    first_.pop_back();
    --depth_;
    if (!empty) newline();
    out_ += bracket;
    return afterValue();
  }
  void newline() {
    out_ += '\n';
    out_.append(depth_ * 2, ' ');
  }
  void appendQuoted(const std::string& value) {
    out_ += '"';
    size_t run = 0;
    for (size_t i = 0; i < value.size(); ++i) {
      const auto c = static_cast<unsigned char>(value[i]);
      if (c >= 0x20 && c != '"' && c != '\\') continue;
      out_.append(value, run, i - run);
      run = i + 1;
      switch (c) {
        case '"': out_ += "\\\""; break;
        case '\\': out_ += "\\\\"; break;
        case '\n': out_ += "\\n"; break;
        case '\r': out_ += "\\r"; break;
        case '\t': out_ += "\\t"; break;
        case '\b': out_ += "\\b"; break;
        case '\f': out_ += "\\f"; break;
        default: {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04x", c);
          out_ += escape;
        }
      }
    }
    out_.append(value, run, std::string::npos);
    out_ += '"';
  }

  std::string out_;
  size_t depth_ = 0;
  std::vector<bool> first_;  // per open container: nothing written in it yet
  std::vector<std::unordered_set<std::string>> keys_;  // per open object
  bool afterKey_ = false;
  bool tooLarge_ = false;
  bool duplicateKey_ = false;
};

// The parsed value, for a text whose objects repeat a key: a repeated key
// keeps its first place and takes its last value, as a JSON parser keeps
// it. Numbers keep the text they were written with.
struct JsonMember;
struct JsonNode {
  enum class Kind { null, boolean, integer, unsignedInteger, floating, string, object, array } kind = Kind::null;
  bool boolean = false;
  std::int64_t integer = 0;
  std::uint64_t unsignedInteger = 0;
  std::string text;                                       // a string, or a float as written
  std::vector<JsonMember> members;                     // keys are empty in arrays
  std::unordered_map<std::string, std::size_t> index;  // objects: key to member, while building
};
struct JsonMember {
  std::string key;
  JsonNode value;
};

class JsonTreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return add(JsonNode{}); }
  bool boolean(bool value) override {
    JsonNode node = of(JsonNode::Kind::boolean);
    node.boolean = value;
    return add(std::move(node));
  }
  bool number_integer(number_integer_t value) override {
    JsonNode node = of(JsonNode::Kind::integer);
    node.integer = value;
    return add(std::move(node));
  }
  bool number_unsigned(number_unsigned_t value) override {
    JsonNode node = of(JsonNode::Kind::unsignedInteger);
    node.unsignedInteger = value;
    return add(std::move(node));
  }
  bool number_float(number_float_t, const string_t& text) override {
    JsonNode node = of(JsonNode::Kind::floating);
    node.text = text;
    return add(std::move(node));
  }
  bool string(string_t& value) override {
    JsonNode node = of(JsonNode::Kind::string);
    node.text = std::move(value);
    return add(std::move(node));
  }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(JsonNode::Kind::object); }
  bool key(string_t& value) override {
    keys_.back() = value;
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(JsonNode::Kind::array); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

  JsonNode take() { return std::move(root_); }

 private:
  static JsonNode of(JsonNode::Kind kind) {
    JsonNode node;
    node.kind = kind;
    return node;
  }
  bool open(JsonNode::Kind kind) {
    if (open_.size() == PrettyWriter::kMaxDepth) return false;
    open_.push_back(of(kind));
    keys_.emplace_back();
    return true;
  }
  bool close() {
    JsonNode done = std::move(open_.back());
    open_.pop_back();
    keys_.pop_back();
    done.index.clear();
    return add(std::move(done));
  }
  bool add(JsonNode value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return true;
    }
    JsonNode& parent = open_.back();
    if (parent.kind == JsonNode::Kind::array) {
      parent.members.push_back(JsonMember{std::string(), std::move(value)});
      return true;
    }
    const std::string& key = keys_.back();
    auto [at, fresh] = parent.index.try_emplace(key, parent.members.size());
    if (fresh) parent.members.push_back(JsonMember{key, std::move(value)});
    else parent.members[at->second].value = std::move(value);
    return true;
  }

  std::vector<JsonNode> open_;
  std::vector<std::string> keys_;  // per open container: the key of the value to come
  JsonNode root_;
};

// Feeds the value to `writer` as the parser would have.
bool replay(JsonNode& node, PrettyWriter& writer) {
  using Kind = JsonNode::Kind;
  switch (node.kind) {
    case Kind::null: return writer.null();
    case Kind::boolean: return writer.boolean(node.boolean);
    case Kind::integer: return writer.number_integer(node.integer);
    case Kind::unsignedInteger: return writer.number_unsigned(node.unsignedInteger);
    case Kind::floating: return writer.number_float(0, node.text);
    case Kind::string: return writer.string(node.text);
    case Kind::object:
      if (!writer.start_object(node.members.size())) return false;
      for (auto& [key, value] : node.members)
        if (!writer.key(key) || !replay(value, writer)) return false;
      return writer.end_object();
    case Kind::array:
      if (!writer.start_array(node.members.size())) return false;
      for (auto& member : node.members)
        if (!replay(member.value, writer)) return false;
      return writer.end_array();
  }
  return false;
}

}  // namespace

Checked<std::string> prettifyJSON(std::string_view text) {
  static const std::string kInvalid = "The text is not valid JSON, so it cannot be prettified.";
  PrettyWriter writer(text.size());
  bool ok = nlohmann::json::sax_parse(text.begin(), text.end(), &writer, nlohmann::json::input_format_t::json,
                                      /*strict=*/true, /*ignore_comments=*/false);
  if (writer.duplicateKey()) {
    JsonTreeBuilder builder;
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder, nlohmann::json::input_format_t::json,
                                   /*strict=*/true, /*ignore_comments=*/false))
      return fail(kInvalid);
    JsonNode value = builder.take();
    writer = PrettyWriter(text.size());
    ok = replay(value, writer);
  }
  if (writer.tooLarge())
    return fail("The prettified JSON would be larger than 1 GB, which is too large to use. Nothing was changed.");
  if (!ok) return fail(kInvalid);
  return writer.take();
}

}  // namespace orla::transforms
