// The bounds every input and every intermediate text keeps, in one place,
// so that no hostile input (a file of endless nesting, a rule that doubles
// the text, an endless stream) can run orla out of stack or memory.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

// JSON may nest this deep wherever it enters: parameters, shortcut files,
// state files, answers from web services. Deeper is refused with a
// sentence, before anything walks it.
inline constexpr std::size_t kJsonDepthLimit = 512;

// The largest text a step may make, or read whole from a file or standard
// input: 1 GB.
inline constexpr std::size_t kTextSizeLimit = std::size_t{1} << 30;
inline constexpr std::string_view kTextSizeLimitWords = "1 GB";

// A file or stream orla reads whole (parameters, a shortcut, a state file)
// may hold at most this much: 64 MB. `@/dev/zero` ends in a sentence, not
// in the memory running out.
inline constexpr std::size_t kInputFileLimit = std::size_t{64} << 20;
inline constexpr std::string_view kInputFileLimitWords = "64 MB";

// "PARAMS nests deeper than 512 levels." when `text`, read as JSON, opens
// more arrays and objects at once than the limit; nothing otherwise. Only
// the nesting is looked at (strings skipped), not whether the JSON is valid.
std::optional<std::string> jsonNestingProblem(std::string_view text, std::string_view what);

// "… holds a NUL character, which cannot be passed on." when `text` has
// one: the system would cut the text there and act on the shorter one.
std::optional<std::string> nulProblem(std::string_view text, std::string_view what);

}  // namespace orla
