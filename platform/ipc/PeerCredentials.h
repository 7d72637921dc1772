#pragma once
// The credentials of the process at the other end of a Unix socket, as the kernel
// recorded them when the connection was made (SO_PEERCRED, SO_PEERGROUPS).
#include <sys/types.h>

#include <optional>
#include <vector>

#include "platform/TarvExport.h"

namespace Tarv {

struct PeerCredentials {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
};

// Nothing if `fd` is not a connected Unix socket.
TARV_EXPORT std::optional<PeerCredentials> ReadPeerCredentials(int fd);

// The peer's supplementary groups; empty when the kernel (or an emulator) cannot tell.
TARV_EXPORT std::vector<gid_t> ReadPeerGroups(int fd);

}  // namespace Tarv
