#pragma once
// Marks what libVellmarkClientTesting exports. The library is built with hidden visibility,
// and the service it carries inside stays hidden: only the kit's classes are visible.
#if defined(__GNUC__)
#define VELLMARK_TESTING_EXPORT __attribute__((visibility("default")))
#else
#define VELLMARK_TESTING_EXPORT
#endif
