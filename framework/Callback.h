#pragma once
// Callback<T>: the callable a caller hands to an operation. It takes the result by const
// reference and returns nothing; it is copyable, may be empty, and an empty one is never
// called.
#include <functional>

template <class T>
using Callback = std::function<void(T const&)>;
