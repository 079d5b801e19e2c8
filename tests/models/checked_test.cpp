#include <orla/models/checked.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace orla {
namespace {

Checked<std::unique_ptr<std::string>> made(bool ok) {
  if (!ok) return fail("no");
  return std::make_unique<std::string>("value");
}

// Taking the value out of a Checked moves it: a move-only value compiles,
// and a large text is handed on without a second copy.
TEST(Checked, MovesItsValueOut) {
  auto checked = made(true);
  ASSERT_TRUE(checked);
  const std::string* held = checked->get();
  std::unique_ptr<std::string> taken = std::move(*checked);
  EXPECT_EQ(taken.get(), held);
  EXPECT_EQ(*checked, nullptr);

  Checked<std::string> text(std::string(1 << 20, 'x'));
  const char* bytes = text->data();
  std::string moved = std::move(*text);
  EXPECT_EQ(moved.data(), bytes);

  EXPECT_EQ(made(false).error(), "no");
}

}  // namespace
}  // namespace orla
