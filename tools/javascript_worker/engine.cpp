#include "tools/javascript_worker/engine.h"

#include <JavaScriptCore/JavaScript.h>

#include <cmath>
#include <string_view>

// The engine exports the execution time limit but does not install the
// private header that declares it.
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef ctx, void* context);
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void* context);
}

namespace orla::javascript_worker {

namespace {

// Strings cross the engine's boundary as UTF-16; the pipes carry UTF-8. A
// lone surrogate becomes U+FFFD, as does a malformed UTF-8 sequence.
std::string utf8(const JSChar* chars, std::size_t length) {
  std::string out;
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    char32_t c = chars[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length && chars[i + 1] >= 0xDC00 && chars[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (chars[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

std::u16string utf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n;) {
    const unsigned char b = s[i];
    std::size_t extra = b < 0x80 ? 0 : (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : 9;
    char32_t c = extra == 0 ? b : extra == 1 ? (b & 0x1F) : extra == 2 ? (b & 0x0F) : (b & 0x07);
    bool valid = extra != 9 && i + extra < n;
    for (std::size_t k = 1; valid && k <= extra; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) valid = false;
      else c = (c << 6) | (s[i + k] & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (!valid || c < kSmallest[extra] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
      out.push_back(u'\uFFFD');
      ++i;
      continue;
    }
    if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
    i += extra + 1;
  }
  return out;
}

JSStringRef makeString(std::string_view text) {
  const std::u16string chars = utf16(text);
  return JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(chars.data()), chars.size());
}

std::string toUtf8(JSStringRef string) {
  return utf8(JSStringGetCharactersPtr(string), JSStringGetLength(string));
}

// A value as text by the language's own `String`, or none when that throws.
std::optional<std::string> stringOf(JSContextRef ctx, JSValueRef value) {
  JSValueRef exception = nullptr;
  JSStringRef string = JSValueToStringCopy(ctx, value, &exception);
  if (!string) return std::nullopt;
  std::string text = toUtf8(string);
  JSStringRelease(string);
  return text;
}

std::size_t characterCount(std::string_view utf8Text) {
  std::size_t count = 0;
  for (char c : utf8Text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return count;
}

JSValueRef property(JSContextRef ctx, JSObjectRef object, const char* name) {
  JSStringRef key = JSStringCreateWithUTF8CString(name);
  JSValueRef value = JSObjectGetProperty(ctx, object, key, nullptr);
  JSStringRelease(key);
  return value;
}

void setProperty(JSContextRef ctx, JSObjectRef object, const char* name, JSValueRef value) {
  JSStringRef key = JSStringCreateWithUTF8CString(name);
  JSObjectSetProperty(ctx, object, key, value, kJSPropertyAttributeNone, nullptr);
  JSStringRelease(key);
}

// The helpers that convert and settle the completion value, made before the
// script runs so that a script that replaces `JSON` or `String` does not
// change how its own result is read.
constexpr const char* kHelpers = R"JS((function () {
  const S = String, stringify = JSON.stringify, P = Promise, then = Promise.prototype.then;
  return {
    isPromise(v) { return v instanceof P; },
    settle(p) {
      const box = { state: 0 };
      then.call(p, v => { box.state = 1; box.value = v; }, e => { box.state = 2; box.error = e; });
      return box;
    },
    convert(v) {
      if (typeof v === 'string') return v;
      if (v === null || (typeof v !== 'object')) return S(v);
      let text;
      try { text = stringify(v, null, 2); } catch (e) { text = undefined; }
      return text === undefined ? S(v) : text;
    },
  };
})())JS";

}  // namespace

struct Engine::State {
  RunRequest request;
  HostCall host;
  JSContextGroupRef group = nullptr;
  JSGlobalContextRef context = nullptr;
  JSObjectRef helpers = nullptr;
  std::vector<std::string> console;
  std::size_t consoleCharacters = 0;
  bool consoleFull = false;
  bool timedOut = false;

  JSValueRef evaluate(const std::string& source, JSValueRef* exception) {
    JSStringRef text = makeString(source);
    JSValueRef value = JSEvaluateScript(context, text, nullptr, nullptr, 1, exception);
    JSStringRelease(text);
    return value;
  }

  JSValueRef callHelper(const char* name, JSValueRef argument, JSValueRef* exception) {
    JSObjectRef function = JSValueToObject(context, property(context, helpers, name), nullptr);
    return JSObjectCallAsFunction(context, function, helpers, 1, &argument, exception);
  }

  void addConsoleLine(std::string line) {
    if (consoleFull) return;
    if (console.size() >= request.consoleLines) {
      consoleFull = true;
      return;
    }
    const std::size_t count = characterCount(line);
    if (consoleCharacters + count > request.consoleCharacters) {
      // Keep what fits of the line that crosses the limit, whole characters only.
      std::size_t room = request.consoleCharacters - consoleCharacters, at = 0;
      for (std::size_t kept = 0; at < line.size(); ++at) {
        if ((static_cast<unsigned char>(line[at]) & 0xC0) != 0x80 && kept++ == room) break;
      }
      line.resize(at);
      consoleFull = true;
    }
    consoleCharacters += characterCount(line);
    console.push_back(std::move(line));
  }
};

namespace {

Engine::State* stateOf(JSContextRef ctx) {
  return static_cast<Engine::State*>(JSObjectGetPrivate(JSValueToObject(
      ctx, property(ctx, JSContextGetGlobalObject(ctx), "\x01orla"), nullptr)));
}

JSValueRef consoleLine(JSContextRef ctx, JSObjectRef, JSObjectRef, size_t count, const JSValueRef arguments[],
                       JSValueRef* exception) {
  std::string line;
  for (size_t i = 0; i < count; ++i) {
    JSStringRef string = JSValueToStringCopy(ctx, arguments[i], exception);
    if (!string) return JSValueMakeUndefined(ctx);
    if (i) line.push_back(' ');
    line += toUtf8(string);
    JSStringRelease(string);
  }
  stateOf(ctx)->addConsoleLine(std::move(line));
  return JSValueMakeUndefined(ctx);
}

JSValueRef hostFunction(const char* name, JSContextRef ctx, size_t count, const JSValueRef arguments[],
                        JSValueRef* exception) {
  std::string argument;
  if (count > 0) {
    JSStringRef string = JSValueToStringCopy(ctx, arguments[0], exception);
    if (!string) return JSValueMakeUndefined(ctx);
    argument = toUtf8(string);
    JSStringRelease(string);
  } else {
    argument = "undefined";
  }
  const HostAnswer answer = stateOf(ctx)->host(name, argument);
  JSStringRef text = makeString(answer.text);
  JSValueRef value = JSValueMakeString(ctx, text);
  JSStringRelease(text);
  if (answer.ok) return value;
  *exception = JSObjectMakeError(ctx, 1, &value, nullptr);
  return JSValueMakeUndefined(ctx);
}

JSValueRef readTextFile(JSContextRef ctx, JSObjectRef, JSObjectRef, size_t count, const JSValueRef arguments[],
                        JSValueRef* exception) {
  return hostFunction("readTextFile", ctx, count, arguments, exception);
}

JSValueRef httpGet(JSContextRef ctx, JSObjectRef, JSObjectRef, size_t count, const JSValueRef arguments[],
                   JSValueRef* exception) {
  return hostFunction("httpGet", ctx, count, arguments, exception);
}

bool shouldTerminate(JSContextRef, void* context) {
  static_cast<Engine::State*>(context)->timedOut = true;
  return true;
}

void defineFunction(JSContextRef ctx, JSObjectRef object, const char* name, JSObjectCallAsFunctionCallback call) {
  JSStringRef key = JSStringCreateWithUTF8CString(name);
  JSObjectSetProperty(ctx, object, key, JSObjectMakeFunctionWithCallback(ctx, key, call), kJSPropertyAttributeNone,
                      nullptr);
  JSStringRelease(key);
}

std::optional<int> lineOf(JSContextRef ctx, JSValueRef error) {
  if (!JSValueIsObject(ctx, error)) return std::nullopt;
  JSValueRef line = property(ctx, JSValueToObject(ctx, error, nullptr), "line");
  if (!JSValueIsNumber(ctx, line)) return std::nullopt;
  const double number = JSValueToNumber(ctx, line, nullptr);
  if (!std::isfinite(number) || number < 1) return std::nullopt;
  return static_cast<int>(number);
}

}  // namespace

Engine::Engine(const RunRequest& request, HostCall host) : state_(new State) {
  State& s = *state_;
  s.request = request;
  s.host = std::move(host);
  s.group = JSContextGroupCreate();
  s.context = JSGlobalContextCreateInGroup(s.group, nullptr);
  JSContextRef ctx = s.context;
  JSObjectRef global = JSContextGetGlobalObject(ctx);

  // The run's state, reachable from the callbacks through a hidden global.
  JSClassDefinition holderDefinition = kJSClassDefinitionEmpty;
  JSClassRef holderClass = JSClassCreate(&holderDefinition);
  JSStringRef holderKey = JSStringCreateWithUTF8CString("\x01orla");
  JSObjectSetProperty(ctx, global, holderKey, JSObjectMake(ctx, holderClass, &s),
                      kJSPropertyAttributeDontEnum | kJSPropertyAttributeDontDelete | kJSPropertyAttributeReadOnly,
                      nullptr);
  JSStringRelease(holderKey);
  JSClassRelease(holderClass);

  JSObjectRef console = JSObjectMake(ctx, nullptr, nullptr);
  for (const char* name : {"log", "info", "warn", "error"}) defineFunction(ctx, console, name, consoleLine);
  setProperty(ctx, global, "console", console);
  JSStringRef input = makeString(request.input);
  setProperty(ctx, global, "input", JSValueMakeString(ctx, input));
  JSStringRelease(input);
  if (request.fileRead) defineFunction(ctx, global, "readTextFile", readTextFile);
  if (request.network) defineFunction(ctx, global, "httpGet", httpGet);

  JSValueRef exception = nullptr;
  s.helpers = JSValueToObject(ctx, s.evaluate(kHelpers, &exception), nullptr);
  if (s.helpers) JSValueProtect(ctx, s.helpers);
}

Engine::~Engine() {
  if (state_->helpers) JSValueUnprotect(state_->context, state_->helpers);
  JSGlobalContextRelease(state_->context);
  JSContextGroupRelease(state_->group);
  delete state_;
}

bool Engine::warmUp() {
  JSValueRef exception = nullptr;
  return state_->helpers && state_->evaluate("0", &exception) && !exception;
}

RunResult Engine::run() {
  State& s = *state_;
  JSContextRef ctx = s.context;
  RunResult result;
  const auto finish = [&](std::string kind) {
    result.kind = std::move(kind);
    result.console = std::move(s.console);
    return result;
  };
  const auto thrown = [&](JSValueRef error) {
    if (s.timedOut) return finish("timedOut");
    result.line = lineOf(ctx, error);
    result.message = stringOf(ctx, error).value_or("Error");
    return finish("thrown");
  };

  JSStringRef source = makeString(s.request.script);
  JSValueRef exception = nullptr;
  if (!JSCheckScriptSyntax(ctx, source, nullptr, 1, &exception)) {
    JSStringRelease(source);
    result.line = lineOf(ctx, exception);
    JSValueRef message = JSValueIsObject(ctx, exception)
                             ? property(ctx, JSValueToObject(ctx, exception, nullptr), "message")
                             : exception;
    result.message = stringOf(ctx, message).value_or("");
    return finish("syntaxError");
  }
  JSContextGroupSetExecutionTimeLimit(s.group, s.request.timeLimit, shouldTerminate, &s);
  JSValueRef value = JSEvaluateScript(ctx, source, nullptr, nullptr, 1, &exception);
  JSStringRelease(source);
  if (exception || !value) return thrown(exception);

  // A promise's value once every job it waits on has run; the engine runs
  // them when the call below returns.
  JSValueRef isPromise = s.callHelper("isPromise", value, &exception);
  if (exception) return thrown(exception);
  if (JSValueToBoolean(ctx, isPromise)) {
    JSValueRef box = s.callHelper("settle", value, &exception);
    if (exception) return thrown(exception);
    JSObjectRef boxObject = JSValueToObject(ctx, box, nullptr);
    if (s.timedOut) return finish("timedOut");
    const double state = JSValueToNumber(ctx, property(ctx, boxObject, "state"), nullptr);
    if (state == 0) return finish("neverSettled");
    if (state == 2) return thrown(property(ctx, boxObject, "error"));
    value = property(ctx, boxObject, "value");
  }
  if (JSValueIsUndefined(ctx, value)) return finish("none");
  JSValueRef converted = s.callHelper("convert", value, &exception);
  if (exception) return thrown(exception);
  // Measured in the engine's own units first, so that a string of millions
  // of characters is refused before it is copied out.
  JSStringRef text = JSValueToStringCopy(ctx, converted, &exception);
  if (!text) return thrown(exception);
  if (JSStringGetLength(text) > 2 * s.request.resultCharacters) {
    JSStringRelease(text);
    return finish("resultTooLong");
  }
  result.value = toUtf8(text);
  JSStringRelease(text);
  if (characterCount(result.value) > s.request.resultCharacters) {
    result.value.clear();
    return finish("resultTooLong");
  }
  return finish("value");
}

}  // namespace orla::javascript_worker
