#include "PeerCredentials.h"

#include <sys/socket.h>

namespace Tarv {

std::optional<PeerCredentials> ReadPeerCredentials(int fd) {
    ucred cred{};
    socklen_t size = sizeof cred;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &size) != 0 || size != sizeof cred) {
        return std::nullopt;
    }
    return PeerCredentials{cred.pid, cred.uid, cred.gid};
}

}  // namespace Tarv
