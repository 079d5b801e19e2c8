// What a shared OrlaPlugins library exports. The library is built with
// hidden visibility; each public header declares its part of the API inside
// `namespace orla ORLA_EXPORT { ... }`, so that every class and function
// declared there is exported, and everything declared only inside the
// library stays hidden (and free to change between versions).
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ORLA_EXPORT __attribute__((visibility("default")))
#else
#define ORLA_EXPORT
#endif
