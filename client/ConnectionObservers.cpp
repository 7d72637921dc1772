// Those who hear of each new connection and of each end of one: an addition to the client's
// specified operations that changes none of them (no log line, no member of theirs, no order).
#include <algorithm>

#include "client/VellmarkClientAPI.h"

CallbackConnection VellmarkClientAPI::AddConnectionObserver(std::function<void()> onConnected) {
    auto live = std::make_shared<std::atomic<bool>>(true);
    Post([this, observer = ConnectionObserver{std::move(onConnected), live}] {
        m_connectionObservers.push_back(observer);
        // Connected already: this connection counts as the first one it hears of.
        if (m_router) {
            Post([observer] {
                if (*observer.live && observer.notify) observer.notify();
            });
        }
    });
    return CallbackConnection([live] { *live = false; });
}

CallbackConnection VellmarkClientAPI::AddDisconnectionObserver(
    std::function<void()> onDisconnected) {
    auto live = std::make_shared<std::atomic<bool>>(true);
    Post([this, observer = ConnectionObserver{std::move(onDisconnected), live}] {
        m_disconnectionObservers.push_back(observer);
    });
    return CallbackConnection([live] { *live = false; });
}

namespace {

// Forgets the observers whose handles are disconnected; posts a call of each other one.
template <class Observers, class PostFunction>
void NotifyLive(Observers& observers, PostFunction const& post) {
    using Observer = typename Observers::value_type;
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [](Observer const& o) { return !*o.live; }),
                    observers.end());
    for (auto const& observer : observers) {
        post([observer] {
            if (*observer.live && observer.notify) observer.notify();
        });
    }
}

}  // namespace

void VellmarkClientAPI::NotifyConnectionObservers() {
    // Posted, so that each runs after the replayed calls, on a connection that is ready.
    NotifyLive(m_connectionObservers,
               [this](std::function<void()> call) { Post(std::move(call)); });
}

void VellmarkClientAPI::NotifyDisconnectionObservers() {
    NotifyLive(m_disconnectionObservers,
               [this](std::function<void()> call) { Post(std::move(call)); });
}
