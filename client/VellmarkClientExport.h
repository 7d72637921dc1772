#pragma once
// Marks what libVellmarkClient exports. The library is built with hidden visibility, so
// only the client classes, the logger accessor and the generated schema classes are
// visible to the processes that load it.
#if defined(__GNUC__)
#define VELLMARK_CLIENT_EXPORT __attribute__((visibility("default")))
#else
#define VELLMARK_CLIENT_EXPORT
#endif
