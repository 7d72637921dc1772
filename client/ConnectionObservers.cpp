// Those who hear of each new connection: an addition to the client's specified operations
// that changes none of them (no log line, no member of theirs, no order).
#include <algorithm>

#include "client/VellmarkClientAPI.h"

CallbackConnection VellmarkClientAPI::AddConnectionObserver(std::function<void()> onConnected) {
    auto live = std::make_shared<std::atomic<bool>>(true);
    Post([this, observer = ConnectionObserver{std::move(onConnected), live}] {
        m_connectionObservers.push_back(observer);
        // Connected already: this connection counts as the first one it hears of.
        if (m_router) {
            Post([observer] {
                if (*observer.live && observer.onConnected) observer.onConnected();
            });
        }
    });
    return CallbackConnection([live] { *live = false; });
}

void VellmarkClientAPI::NotifyConnectionObservers() {
    auto& observers = m_connectionObservers;
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [](ConnectionObserver const& o) { return !*o.live; }),
                    observers.end());
    // Posted, so that each runs after the replayed calls, on a connection that is ready.
    for (auto const& observer : observers) {
        Post([observer] {
            if (*observer.live && observer.onConnected) observer.onConnected();
        });
    }
}
