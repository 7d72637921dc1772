#include "service/ClientLimits.h"

#include <algorithm>

#include "platform/ipc/IPCFrameLimit.h"

namespace Vellmark::Service {

namespace {

// Descriptors the service needs besides its clients' connections: the store (SQLite keeps
// the database, its journal and its shared memory open), the two listening sockets, the
// admin endpoint's connections and reserve, standard streams, and room to spare.
constexpr std::size_t kOwnDescriptors = 32;

}  // namespace

Tarv::ServerLimits DefaultClientLimits() {
    Tarv::ServerLimits limits;
    // A process of the product opens one connection per client it makes, a few at most, and
    // the product's processes run as a handful of users: 64 is several times what the
    // busiest user needs, and far below the 1,024 descriptors a service gets by default,
    // so that no user alone can run the service out of them.
    limits.connectionsPerUser = {64, "--max-connections-per-user"};
    // Half of those 1,024 descriptors (the soft limit a shell or systemd gives): the rest
    // stays for the store, the admin endpoint and the reserved users, who may come in past
    // this limit (up to their own per-user limit).
    limits.connections = {512, "--max-connections"};
    // The service answers a request as it reads it; only answers held back (a delay asked
    // through the admin endpoint) wait. 128 is the D-Bus system bus's own bound on replies
    // a connection may wait for, and more than any client of the product has in flight.
    limits.pendingRequests = {128, "--max-pending-requests"};
    // Four frames of the default limit (1 MiB): the requests above, whatever their size,
    // never hold more than this of a connection's memory. Never below one frame.
    limits.incomingBytes = {std::size_t(4) << 20, "--max-incoming-bytes"};
    // The bound a connection already keeps on bytes waiting for a peer that does not read:
    // four frames of the largest answer, and a slow subscriber is not cut off for a burst
    // of updates. Never below one frame.
    limits.outgoingBytes = {Tarv::ConnectionLimits::kMaxQueuedBytes, "--max-outgoing-bytes"};
    return limits;
}

Tarv::ServerLimits WithFramesOf(Tarv::ServerLimits limits, std::size_t maxFrameBytes) {
    for (auto* limit : {&limits.incomingBytes, &limits.outgoingBytes}) {
        if (limit->max > 0) limit->max = std::max(limit->max, maxFrameBytes);
    }
    return limits;
}

std::optional<std::string> DescriptorWarning(Tarv::ServerLimits const& limits, rlim_t descriptors) {
    std::size_t const connections = limits.connections.max;
    if (descriptors == RLIM_INFINITY || connections == 0 ||
        descriptors >= connections + kOwnDescriptors) {
        return std::nullopt;
    }
    return "the process may open " + std::to_string(descriptors) + " files, fewer than " +
           limits.connections.setting + " (" + std::to_string(connections) + ") and " +
           std::to_string(kOwnDescriptors) +
           " of its own need: when they run out, the service stops accepting connections "
           "until some close. Raise the limit (ulimit -n, LimitNOFILE=) or lower " +
           limits.connections.setting;
}

}  // namespace Vellmark::Service
