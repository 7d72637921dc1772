#pragma once
// Marks what libTarvLibs exports. The library is built with hidden visibility, so only the
// classes and functions of its installed headers leave it; the transport's internals and
// the Asio code inside it stay private to it.
#if defined(__GNUC__)
#define TARV_EXPORT __attribute__((visibility("default")))
#else
#define TARV_EXPORT
#endif

// The transport's own classes: not installed, so no application reaches them, but exported
// because the tree's white-box tests, fuzzers and benchmark link them from this library
// (a second, static copy beside it would register the frame schema twice).
#define TARV_TRANSPORT_EXPORT TARV_EXPORT
