// The walls of the JavaScript worker: no new privileges, then a system-call
// filter that answers every call reaching a file, a socket or another
// process with an error. Once entered, the worker's only channel is the two
// pipes it inherited.
#pragma once

namespace orla::javascript_worker {

// Before anything else: no program this process could start would gain
// privileges, and the filter may be loaded without them.
bool forbidNewPrivileges();

// Loads the filter for every thread of this process, those running and those
// started later.
bool enterSandbox();

}  // namespace orla::javascript_worker
