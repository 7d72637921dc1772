#pragma once
// What a socket handed to a server (by an init system, say) must be before it is served: a
// Unix stream socket that listens. Safe from any thread; nothing here takes ownership.
#include <string>

namespace Tarv {

struct SocketProblem {
    int error = 0;     // an errno value; 0: none
    std::string what;  // what the socket is instead, e.g. "a Unix datagram socket"
};

// Nothing (error 0) when `fd` is a listening Unix stream socket.
SocketProblem CheckListeningUnixStream(int fd);

// The path `fd` is bound to; empty for a socket without one (unbound or abstract).
std::string BoundPath(int fd);

}  // namespace Tarv
