#pragma once
// VellmarkClientAPI::StoreOnTask, shared by the queries and the subscriptions.
// The log texts here are part of the library's contract: tests assert them verbatim.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

template <class T, class Then>
void VellmarkClientAPI::StoreOnTask(char const* function, char const* entry, char const* posted,
                                    Callback<T> const& callback,
                                    Callback<T> VellmarkClientAPI::*slot, Then then) {
    if (entry) LogLine(DPrint::Flow, function, entry);
    Post([this, posted, callback, slot, then] {
        if (posted) LogLine(DPrint::Flow, "operator()", posted);
        this->*slot = callback;
        then();
    });
}
