#include <orla/models/window_tiling.h>

#include <algorithm>
#include <string>
#include <vector>

namespace orla {

namespace {

bool isAsciiUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isAsciiLower(char c) { return c >= 'a' && c <= 'z'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// "topRight", "Top-Right", "top_right", "top / right" -> {"top", "right"};
// "2/3" stays one word.
std::vector<std::string> words(std::string_view text) {
  std::vector<std::string> out;
  std::string word;
  auto flush = [&] {
    if (!word.empty()) out.push_back(std::move(word));
    word.clear();
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool slashInFraction =
        c == '/' && i > 0 && isDigit(text[i - 1]) && i + 1 < text.size() && isDigit(text[i + 1]);
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '-' || c == '_' || c == ',' ||
        c == '.' || c == '+' || (c == '/' && !slashInFraction)) {
      flush();
      continue;
    }
    if (isAsciiUpper(c) && i > 0 && (isAsciiLower(text[i - 1]) || isDigit(text[i - 1]))) flush();
    if (isDigit(c) && i > 0 && isAsciiLower(text[i - 1])) flush();  // "right2/3"
    word += isAsciiUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
  }
  flush();
  return out;
}

enum class Fraction { none, half, third, twoThirds, quarter };

struct Reading {
  bool left = false, right = false, top = false, bottom = false, center = false;
  bool first = false, last = false, maximize = false, two = false;
  Fraction fraction = Fraction::none;
};

// Adds one word to the reading; false for a word that has no place in a tile
// position.
bool read(std::string_view w, Reading& r) {
  auto setFraction = [&](Fraction f) {
    if (r.fraction != Fraction::none && r.fraction != f) return false;
    r.fraction = f;
    return true;
  };
  static constexpr std::string_view kFillers[] = {"the", "of", "screen", "window", "side", "part",
                                                  "tile", "to", "on", "a", "one", "and", "in"};
  if (std::find(std::begin(kFillers), std::end(kFillers), w) != std::end(kFillers)) return true;
  if (w == "left") return r.left = true;
  if (w == "right") return r.right = true;
  if (w == "top" || w == "upper" || w == "up") return r.top = true;
  if (w == "bottom" || w == "lower" || w == "down") return r.bottom = true;
  if (w == "center" || w == "centre" || w == "middle" || w == "mid" || w == "centered" ||
      w == "centred")
    return r.center = true;
  if (w == "first") return r.first = true;
  if (w == "last") return r.last = true;
  if (w == "two" || w == "2") return r.two = true;
  if (w == "half" || w == "halves" || w == "1/2") return setFraction(Fraction::half);
  if (w == "third" || w == "thirds" || w == "1/3" || w == "3rd") return setFraction(Fraction::third);
  if (w == "2/3" || w == "twothirds") return setFraction(Fraction::twoThirds);
  if (w == "quarter" || w == "quarters" || w == "1/4" || w == "corner") return setFraction(Fraction::quarter);
  if (w == "maximize" || w == "maximise" || w == "maximized" || w == "maximised" || w == "max" ||
      w == "fill" || w == "full" || w == "fullscreen")
    return r.maximize = true;
  return false;
}

std::optional<WindowTilePosition> decide(Reading r) {
  using P = WindowTilePosition;
  if ((r.left && r.right) || (r.top && r.bottom) || (r.first && r.last)) return std::nullopt;
  if (r.two) {
    // "two thirds" only; "two" with anything else is not a place.
    if (r.fraction != Fraction::third && r.fraction != Fraction::twoThirds) return std::nullopt;
    r.fraction = Fraction::twoThirds;
  }
  const bool horizontal = r.left || r.right;
  const bool vertical = r.top || r.bottom;
  const bool ordinal = r.first || r.last;
  if (r.maximize) {
    if (horizontal || vertical || r.center || ordinal || r.fraction != Fraction::none) return std::nullopt;
    return P::maximize;
  }
  switch (r.fraction) {
    case Fraction::third:
      if (vertical || (horizontal && (r.center || ordinal)) || (r.center && ordinal)) return std::nullopt;
      if (r.left || r.first) return P::leftThird;
      if (r.right || r.last) return P::rightThird;
      if (r.center) return P::centerThird;
      return std::nullopt;
    case Fraction::twoThirds:
      if (vertical || r.center || (horizontal && ordinal)) return std::nullopt;
      if (r.left || r.first) return P::leftTwoThirds;
      if (r.right || r.last) return P::rightTwoThirds;
      return std::nullopt;
    case Fraction::quarter:
      if (!horizontal || !vertical) return std::nullopt;
      break;
    case Fraction::half:
    case Fraction::none:
      break;
  }
  if (r.center || ordinal) {
    if (horizontal || vertical || r.fraction != Fraction::none || ordinal) return std::nullopt;
    return P::center;
  }
  if (horizontal && vertical) {
    if (r.fraction == Fraction::half) return std::nullopt;
    if (r.top) return r.left ? P::topLeftQuarter : P::topRightQuarter;
    return r.left ? P::bottomLeftQuarter : P::bottomRightQuarter;
  }
  if (r.left) return P::leftHalf;
  if (r.right) return P::rightHalf;
  if (r.top) return P::topHalf;
  if (r.bottom) return P::bottomHalf;
  return std::nullopt;
}

}  // namespace

std::optional<WindowTilePosition> WindowTilePosition::parse(std::string_view text) {
  const std::vector<std::string> list = words(text);
  if (list.empty()) return std::nullopt;
  Reading reading;
  for (const std::string& w : list)
    if (!read(w, reading)) return std::nullopt;
  return decide(reading);
}

std::string_view WindowTilePosition::name() const {
  switch (value_) {
    case leftHalf: return "left half";
    case rightHalf: return "right half";
    case topHalf: return "top half";
    case bottomHalf: return "bottom half";
    case topLeftQuarter: return "top left quarter";
    case topRightQuarter: return "top right quarter";
    case bottomLeftQuarter: return "bottom left quarter";
    case bottomRightQuarter: return "bottom right quarter";
    case leftThird: return "left third";
    case centerThird: return "center third";
    case rightThird: return "right third";
    case leftTwoThirds: return "left two thirds";
    case rightTwoThirds: return "right two thirds";
    case center: return "center";
    case maximize: return "maximize";
  }
  return "";
}

Rect WindowTilingLayouts::axVisibleFrame(const Rect& visibleFrame, const Rect& primaryScreenFrame) {
  return {visibleFrame.x, primaryScreenFrame.maxY() - visibleFrame.maxY(), visibleFrame.width,
          visibleFrame.height};
}

namespace {

// One band of `count` equal tiles across `length` points starting at
// `start`, with `spacing` at both ends and between tiles: where tile `index`
// begins and how long `span` neighbouring tiles are together.
struct Band {
  double start, length, spacing;
  int count;
  double tile() const { return std::max(0.0, (length - spacing * (count + 1)) / count); }
  double at(int index) const { return start + spacing + index * (tile() + spacing); }
  double span(int tiles) const { return tiles * tile() + (tiles - 1) * spacing; }
};

}  // namespace

Rect WindowTilingLayouts::frame(WindowTilePosition position, const Rect& visibleFrame,
                                Size currentSize, double spacing) {
  const Rect& v = visibleFrame;
  const Band halvesX{v.x, v.width, spacing, 2}, halvesY{v.y, v.height, spacing, 2};
  const Band thirdsX{v.x, v.width, spacing, 3}, wholeY{v.y, v.height, spacing, 1};
  const Band wholeX{v.x, v.width, spacing, 1};
  auto tile = [](const Band& x, int column, int columns, const Band& y, int row, int rows) {
    return Rect{x.at(column), y.at(row), x.span(columns), y.span(rows)};
  };
  using P = WindowTilePosition;
  switch (position) {
    case P::leftHalf: return tile(halvesX, 0, 1, wholeY, 0, 1);
    case P::rightHalf: return tile(halvesX, 1, 1, wholeY, 0, 1);
    case P::topHalf: return tile(wholeX, 0, 1, halvesY, 0, 1);
    case P::bottomHalf: return tile(wholeX, 0, 1, halvesY, 1, 1);
    case P::topLeftQuarter: return tile(halvesX, 0, 1, halvesY, 0, 1);
    case P::topRightQuarter: return tile(halvesX, 1, 1, halvesY, 0, 1);
    case P::bottomLeftQuarter: return tile(halvesX, 0, 1, halvesY, 1, 1);
    case P::bottomRightQuarter: return tile(halvesX, 1, 1, halvesY, 1, 1);
    case P::leftThird: return tile(thirdsX, 0, 1, wholeY, 0, 1);
    case P::centerThird: return tile(thirdsX, 1, 1, wholeY, 0, 1);
    case P::rightThird: return tile(thirdsX, 2, 1, wholeY, 0, 1);
    case P::leftTwoThirds: return tile(thirdsX, 0, 2, wholeY, 0, 1);
    case P::rightTwoThirds: return tile(thirdsX, 1, 2, wholeY, 0, 1);
    case P::maximize: return tile(wholeX, 0, 1, wholeY, 0, 1);
    case P::center: {
      const Rect inner = tile(wholeX, 0, 1, wholeY, 0, 1);
      // A window whose size is unknown gets two thirds of the screen.
      const double w = currentSize.width > 0 ? std::min(currentSize.width, inner.width) : inner.width * 2 / 3;
      const double h = currentSize.height > 0 ? std::min(currentSize.height, inner.height) : inner.height * 2 / 3;
      return {v.x + (v.width - w) / 2, v.y + (v.height - h) / 2, w, h};
    }
  }
  return v;
}

}  // namespace orla
