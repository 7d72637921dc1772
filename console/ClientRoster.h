#pragma once
// ClientRoster: the product's clients as the page lists them. The service names each
// connection (session, pid, uid, connected since, requests); the console adds the user's
// name and the program's (from this machine: the console runs beside the service) and,
// from the traffic it watches, which updates each client acknowledges and how many. The
// service does not know what a client subscribed to (the library attaches its handlers
// locally); the updates a client acknowledges are what shows it.
//
// Threads: Count from the admin connection's IO thread, Render from the poller; a lock
// keeps them apart.
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "VellmarkAdmin.pb.h"

namespace Vellmark::Console {

class ClientRoster {
public:
    using UserName = std::function<std::string(std::uint32_t uid)>;
    using ProgramName = std::function<std::string(std::int32_t pid)>;
    // Looks names up with `user` and `program` ("" when unknown).
    ClientRoster(UserName user, ProgramName program);

    // Counts a frame of the traffic: acknowledgements by update, frames, the latest one.
    void Count(Vellmark::Admin::TrafficEvent const& event);
    // `clients` (the service's list) with names and counts, as a JSON object
    // {"clients":[{session, pid, uid, user, program, connectedAt, requests, frames,
    // acknowledged, subscriptions:{update name: count}, lastFrame}]}. Forgets the counts of
    // sessions no longer listed that sent nothing since the previous call.
    std::string Render(Vellmark::Admin::ClientList const& clients);

    // The user name of `uid` from the password database.
    static std::string SystemUserName(std::uint32_t uid);
    // The program's name of process `pid` (/proc/PID/comm: never its arguments, which may
    // hold anything).
    static std::string SystemProgramName(std::int32_t pid);

private:
    struct Seen {
        std::uint64_t frames = 0;
        std::uint64_t acknowledged = 0;
        std::map<std::string, std::uint64_t> updates;
        std::string lastFrame;
        bool recent = false;  // frames since the last Render
    };

    UserName m_user;
    ProgramName m_program;
    std::mutex m_mutex;
    std::map<std::uint64_t, Seen> m_seen;
};

}  // namespace Vellmark::Console
