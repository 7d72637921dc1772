#pragma once
// AdminLink: the console's connections to vellmarkd's admin endpoint. They are made as
// vellmarkctl makes them, so the service's credential check decides who gets in and the
// console has no other way to the store: one connection for commands, taken in turn; one
// that watches the traffic and is made again after the service comes back; and one of its
// own for each call that may take long (a push).
//
// Threads: Call and CallAlone from any thread (commands wait for one another). The traffic
// callback runs on the transport's IO thread and must return at once; the state callback
// runs on the link's own thread. Stop (or the destructor) ends that thread.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminClient.h"
#include "tools/ServiceProbe.h"

namespace Vellmark::Console {

class AdminLink {
public:
    struct State {
        bool watching = false;
        std::string message;
        // Times the service ended a watch under way: it closes a watcher that does not read
        // its frames as fast as it sends them, rather than wait for it.
        std::uint64_t lost = 0;
    };
    using OnTraffic = std::function<void(Vellmark::Admin::TrafficEvent const&)>;
    using OnState = std::function<void(State const&)>;

    // Each wait for the service is bounded by `bound`.
    AdminLink(std::chrono::milliseconds bound, OnTraffic onTraffic, OnState onState);
    ~AdminLink();
    AdminLink(AdminLink const&) = delete;
    AdminLink& operator=(AdminLink const&) = delete;

    // Why this user cannot use the admin endpoint now (no service, a socket it may not
    // open, a refusal by the service's credential check), or nothing when a command went
    // through.
    std::optional<Vellmark::Ctl::Diagnosis> Probe();

    // Starts watching the traffic; the state callback says when it watches and when not.
    void Start();
    void Stop();

    // Runs `request` on the command connection, made (again) when there is none. Throws
    // Admin::AdminError, with the probe's diagnosis when the service cannot be reached.
    Vellmark::Admin::Reply Call(Vellmark::Admin::Request const& request);
    // Runs `request` on a connection of its own, waiting at most `bound`.
    Vellmark::Admin::Reply CallAlone(Vellmark::Admin::Request const& request,
                                     std::chrono::milliseconds bound);

    // The admin endpoint's socket.
    std::string const& Path() const { return m_path; }

private:
    // A new connection, or AdminError with the reason none can be had.
    std::shared_ptr<Vellmark::Admin::AdminClient> Connect(std::chrono::milliseconds bound);
    void Watch();
    bool Stopping();

    std::chrono::milliseconds const m_bound;
    OnTraffic const m_onTraffic;
    OnState const m_onState;
    std::string const m_path;

    std::mutex m_commandMutex;
    std::shared_ptr<Vellmark::Admin::AdminClient> m_command;

    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stopping = false;
    std::shared_ptr<Vellmark::Admin::AdminClient> m_watching;
    std::uint64_t m_lost = 0;  // the watcher's own
    std::thread m_watcher;
};

}  // namespace Vellmark::Console
