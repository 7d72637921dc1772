// Work asked for while there is no router, kept until the next good connection.
// The log texts here are part of the library's contract: tests assert them verbatim.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::SendOrDefer(DPrint::Level level, char const* queueLine,
                                    std::function<void()> send) {
    if (m_router) {
        send();
        return;
    }
    LogLine(level, "operator()", queueLine);
    m_deferredCalls.push_back(std::move(send));
}

// A replayed call normally finds the router that replayed it. It finds none when the
// connection was lost, or a later connection attempt failed, between the post and the run;
// then it goes back to the end of the queue, keeping its order among the other replayed
// calls, and is sent on the next good connection instead of being lost or crashing.
void VellmarkClientAPI::Replay(std::function<void()> const& call) {
    Post([this, call] {
        if (m_router) {
            call();
            return;
        }
        LogLine(DPrint::Flow, "operator()", "No router for a replayed call, queuing it again");
        m_deferredCalls.push_back(call);
    });
}
