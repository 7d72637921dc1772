#include "platform/ipc/PeerCredentials.h"

#include <sys/socket.h>

#include <cerrno>

#ifndef SO_PEERGROUPS
#define SO_PEERGROUPS 59  // Linux 4.13; older C libraries lack the name
#endif

namespace Tarv {

std::optional<PeerCredentials> ReadPeerCredentials(int fd) {
    ucred cred{};
    socklen_t size = sizeof cred;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &size) != 0 || size != sizeof cred) {
        return std::nullopt;
    }
    return PeerCredentials{cred.pid, cred.uid, cred.gid};
}

std::vector<gid_t> ReadPeerGroups(int fd) {
    std::vector<gid_t> groups(64);
    for (int attempt = 0; attempt < 2; ++attempt) {
        socklen_t size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            groups.resize(size / sizeof(gid_t));
            return groups;
        }
        // ERANGE: `size` now holds what the list needs.
        if (errno != ERANGE) break;
        groups.resize(size / sizeof(gid_t) + 1);
    }
    return {};
}

}  // namespace Tarv
