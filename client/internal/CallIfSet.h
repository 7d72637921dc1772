#pragma once
// Calls a caller's callback with `message`, unless the callback is empty.
#include "framework/Callback.h"

template <class T>
void CallIfSet(Callback<T> const& callback, T const& message) {
    if (callback) callback(message);
}
