// The file moves behind the file operations: copying, moving, renaming and
// linking that replace whatever is at the target, in a way that loses
// nothing when they fail. A copy is made under a fresh name beside the
// target and only then takes the target's place; an item already at the
// target is set aside until the new one is in place, and put back when it
// could not be. A move that cannot rename (another volume) copies, then
// removes the source only once the copy is whole.
#pragma once

#include <string>
#include <system_error>
#include <string_view>

#include <orla/models/checked.h>

namespace orla {

// Whether the two paths name the same place, also through links in the
// folders above, or `a` is a symbolic link to the place `b` names (so that
// putting `a` there would leave a link to itself). A path that does not
// exist yet is compared by where it would be.
bool samePlace(std::string_view a, std::string_view b);

// Whether `inner` lies inside the folder `outer` (links resolved).
bool isInside(std::string_view inner, std::string_view outer);

// A path beside `path` that nothing uses: a hidden name in the same folder,
// so that renaming it to `path` later stays on the one volume.
std::string uniqueSiblingPath(std::string_view path, std::string_view suffix = {});

// The platform's error text for a failed step on `path`:
// "Permission denied: “/Users/ada/Locked”."
std::string fileErrorText(const std::error_code& error, std::string_view path);

// Copies the item at `source` (a folder with everything in it; a symbolic
// link as a link) to `target`, replacing what is there.
Checked<void> copyReplacing(const std::string& source, const std::string& target);
// Moves the item to `target`, replacing what is there.
Checked<void> moveReplacing(const std::string& source, const std::string& target);
// Makes `link` a symbolic link to `original`, replacing what is there.
Checked<void> symlinkReplacing(const std::string& original, const std::string& link);

}  // namespace orla
