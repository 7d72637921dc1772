#pragma once
// What one server lets its clients hold, as a system bus daemon bounds its clients: how many
// connections each user and all users together may keep open, how many requests a
// connection may have read and not yet answered, and how many bytes may wait in and out
// per connection. Each limit carries the setting that changes it, which the server names
// in its log line when a client goes over the limit. A limit of 0 is no limit. And what a
// server does when its process runs out of descriptors.
//
// Plain values: copy them freely.
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tarv {

struct ServerLimit {
    std::size_t max = 0;  // 0: none
    std::string setting;  // e.g. "--max-connections-per-user"
};

struct ServerLimits {
    // Connections one user may keep open; the next one is refused at once.
    ServerLimit connectionsPerUser;
    // Connections of all users together; the next one is refused unless its user is one
    // of the server's reserved users (IPCServer::Options::reservedUsers).
    ServerLimit connections;
    // Requests read on one connection and not yet answered: one more closes the connection.
    // A request counts until it is answered or every copy of its IPCRequest has gone.
    ServerLimit pendingRequests;
    // Bytes of those requests (their frames): one that would go over closes the connection.
    // A frame still arriving is bounded by the frame limit instead.
    ServerLimit incomingBytes;
    // Bytes waiting to be sent to one connection whose peer does not read: one more closes
    // it. 0: the connection's own bound (ConnectionLimits::maxQueuedBytes, 4 MiB).
    ServerLimit outgoingBytes;
};

// Out of descriptors, a server stops accepting until one of its connections closes or a
// short back-off passes. One that keeps descriptors in reserve still takes that many
// connections then (a reserve is closed to make room for each, and taken back when a
// descriptor frees): the admin endpoint does, so that an operator can see who holds them.
struct DescriptorReserve {
    std::size_t descriptors = 0;
};

// The connections one user holds on a server, and how many of its connections the server
// has refused or closed over a limit (or for not being allowed) since it started.
struct ServerUserCount {
    uid_t uid = 0;
    std::size_t connections = 0;
    std::uint64_t refused = 0;
};

}  // namespace Tarv
