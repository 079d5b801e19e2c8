// The tests run the worker the build made, which does not live beside the
// test programs.
#pragma once

#include <cstdlib>

inline void useBuiltJavaScriptWorker() { ::setenv("ORLA_JAVASCRIPT_WORKER", ORLA_TEST_JAVASCRIPT_WORKER, 1); }
