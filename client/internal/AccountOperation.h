#pragma once
// The log texts here are part of the library's contract: tests assert them verbatim.
// The one skeleton of the six account operations (service accounts and GVA accounts). The
// operation is posted to the task, where `onTask` runs first (the GVA operations store
// their callbacks there); then it is sent at once, or kept until the next connection. The
// send step logs, sends the request, and has the reply handled by `onReply` on the task.
#include <functional>

#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

struct VellmarkClientAPI::AccountOperation {
    unsigned int id;
    // The line logged when the operation is kept for the next connection.
    DPrint::Level queueLevel;
    char const* queueLine;
    // The send step's line at level 3 ("do_enable", "do_update"), and the line at level 4
    // just before the request goes out (null: none).
    char const* sendLine;
    char const* requestLine;
};

template <class Request, class Reply>
void VellmarkClientAPI::SendAccountOperation(AccountOperation const& operation,
                                             Request const& request,
                                             std::function<void(Reply const&)> const& onReply,
                                             std::function<void()> const& onTask) {
    Post([this, operation, request, onReply, onTask] {
        if (onTask) onTask();
        SendOrDefer(operation.queueLevel, operation.queueLine, [this, operation, request, onReply] {
            LogLine(DPrint::Info, "operator()", operation.sendLine);
            if (operation.requestLine) LogLine(DPrint::Detail, "operator()", operation.requestLine);
            m_router->SendRequest(operation.id, request, OnTask<Reply>(onReply));
        });
    });
}
