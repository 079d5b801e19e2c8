// The clipboard of an X11 desktop: the CLIPBOARD selection.
//
// Types travel under their MIME names (plain text as UTF8_STRING, also
// served as "text/plain;charset=utf-8" and TEXT); a type without a known
// MIME name travels under its own name, so a snapshot keeps every target of
// another program with its bytes and a restore serves them again. The X
// clipboard holds one item: a restore of several items serves the first
// item's types and adds the later items' types the first lacks. The change
// count moves on every XFixes owner-change notification (a clipboard manager
// makes several per copy). Large contents travel in pieces (INCR) both ways.
//
// The clipboard lives with the program that owns it. When this service goes
// away (`orla` ends) while it owns the clipboard, a background process forked
// for the purpose takes the contents over and serves them until another
// program takes the clipboard, then ends.
//
// The service has its own connection to the X server, read by a thread of
// its own: serving the selection must go on while the caller waits.
#pragma once

#include <memory>

#include <orla/models/checked.h>
#include <orla/platform/pasteboard.h>

namespace orla::linux_desktop {

// Fails with the reason when there is no X display.
Checked<std::unique_ptr<Pasteboard>> makeX11Pasteboard();

}  // namespace orla::linux_desktop
