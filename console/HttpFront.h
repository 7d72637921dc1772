#pragma once
// HttpFront: the console's HTTP server (cpp-httplib). It listens on 127.0.0.1 only, lets
// AccessPolicy decide every request before anything else is read of it, serves the page's
// compiled-in files, hands /api calls to ConsoleApi and streams the feed to each page as
// Server-Sent Events. Every answer forbids framing, sniffing, caching and referrers, and
// its content security policy lets the page load nothing from elsewhere.
//
// Threads: Listen blocks on its caller's thread; requests run on the server's pool (a
// streaming page holds one thread while it is open, which is why the feed bounds how many
// pages stream). Stop from any other thread ends Listen.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "console/AccessPolicy.h"
#include "console/ConsoleApi.h"
#include "console/TrafficFeed.h"

namespace httplib {
class Server;
}

namespace Vellmark::Console {

class HttpFront {
public:
    struct Limits {
        // The largest body taken (a seed, an edit).
        std::size_t bodyBytes = 64u << 20;
        // The server's threads.
        std::size_t threads = 12;
        // A page's stream says it is alive this often when nothing else is sent.
        std::chrono::milliseconds heartbeat{15000};
    };
    HttpFront(ConsoleApi& api, TrafficFeed& feed, Limits limits);
    ~HttpFront();
    HttpFront(HttpFront const&) = delete;
    HttpFront& operator=(HttpFront const&) = delete;

    // Binds 127.0.0.1:`port` (0: a free port) and makes the token; returns the port bound.
    // Throws std::runtime_error when the port cannot be had.
    std::uint16_t Bind(std::uint16_t port);
    // The URL with the token, once bound.
    std::string Url() const;
    // Serves until Stop. False when the server could not run.
    bool Listen();
    // Ends Listen, whether it has started yet or not. Once.
    void Stop();

private:
    void Route();

    ConsoleApi& m_api;
    TrafficFeed& m_feed;
    Limits const m_limits;
    std::unique_ptr<httplib::Server> m_server;
    std::unique_ptr<AccessPolicy> m_policy;
    // The listening socket, which Stop shuts down (see there).
    std::shared_ptr<std::atomic<int>> m_listening = std::make_shared<std::atomic<int>>(-1);
};

}  // namespace Vellmark::Console
