#include "platform/ipc/transport/ListeningSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>

namespace Tarv {

namespace {

std::string FamilyName(int family) {
    switch (family) {
        case AF_INET:
            return "an IPv4 socket";
        case AF_INET6:
            return "an IPv6 socket";
        case AF_NETLINK:
            return "a netlink socket";
        default:
            return "a socket of family " + std::to_string(family);
    }
}

std::string UnixTypeName(int type) {
    switch (type) {
        case SOCK_DGRAM:
            return "a Unix datagram socket";
        case SOCK_SEQPACKET:
            return "a Unix seqpacket socket";
        default:
            return "a Unix socket of type " + std::to_string(type);
    }
}

// Reads the integer socket option `option` into `value`; false (errno set) when it cannot.
bool ReadOption(int fd, int option, int& value) {
    socklen_t size = sizeof value;
    return ::getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0;
}

}  // namespace

SocketProblem CheckListeningUnixStream(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return {errno, "not an open file descriptor"};
    if (!S_ISSOCK(status.st_mode)) return {ENOTSOCK, "not a socket"};
    int value = 0;
    if (!ReadOption(fd, SO_DOMAIN, value)) return {errno, "unreadable"};
    if (value != AF_UNIX) return {EAFNOSUPPORT, FamilyName(value)};
    if (!ReadOption(fd, SO_TYPE, value)) return {errno, "unreadable"};
    if (value != SOCK_STREAM) return {EPROTOTYPE, UnixTypeName(value)};
    if (!ReadOption(fd, SO_ACCEPTCONN, value)) return {errno, "unreadable"};
    if (value == 0) return {EINVAL, "a Unix stream socket that does not listen"};
    return {};
}

std::string BoundPath(int fd) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return "";
    auto const offset = offsetof(sockaddr_un, sun_path);
    if (size <= offset || address.sun_path[0] == '\0') return "";
    // The kernel's length may or may not count the terminating zero.
    std::string path(address.sun_path, size - offset);
    return path.substr(0, path.find('\0'));
}

}  // namespace Tarv
