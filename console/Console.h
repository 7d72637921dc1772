#pragma once
// Console: vellmark-console put together. The admin link watches the traffic into the
// feed and the roster; a poller asks the service for its clients every second; the HTTP
// front serves the page and its calls.
//
// Threads: made, started and stopped on one thread. Start runs the link's watcher, the
// poller and the HTTP server on threads of their own; Stop (or the destructor) ends them.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "console/AdminLink.h"
#include "console/ClientRoster.h"
#include "console/ConsoleApi.h"
#include "console/HttpFront.h"
#include "console/TrafficFeed.h"

namespace Vellmark::Console {

struct ConsoleOptions {
    std::uint16_t port = 8765;
    // Each wait for the service.
    std::chrono::milliseconds bound{5000};
    // A push may take long: it ends when every client has acknowledged every update.
    std::chrono::milliseconds pushBound{600000};
    std::chrono::milliseconds clientPoll{1000};
    TrafficFeed::Limits feed;
    HttpFront::Limits http;
};

class Console {
public:
    explicit Console(ConsoleOptions const& options);
    ~Console();
    Console(Console const&) = delete;
    Console& operator=(Console const&) = delete;

    // Why this user cannot use the admin endpoint now, or nothing (AdminLink::Probe).
    std::optional<Vellmark::Ctl::Diagnosis> Probe() { return m_link.Probe(); }
    // Binds the HTTP server (AdminLink's endpoint is found already); returns the URL with
    // the token. Throws std::runtime_error.
    std::string Bind();
    void Start();
    void Stop();

    std::string const& AdminPath() const { return m_link.Path(); }

private:
    void Poll();
    void PublishStatus(AdminLink::State const& state);

    ConsoleOptions const m_options;
    TrafficFeed m_feed;
    ClientRoster m_roster;
    AdminLink m_link;
    ConsoleApi m_api;
    HttpFront m_http;

    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stopping = false;
    std::thread m_poller;
    std::thread m_server;
};

}  // namespace Vellmark::Console
