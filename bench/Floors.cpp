#include "bench/Floors.h"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

#include "VellmarkMessageId.pb.h"
#include "bench/FrameStream.h"
#include "bench/Payload.h"
#include "framework/ipc/IPCMessageEnvelope.h"

extern char** environ;

namespace Vellmark::Bench {
namespace {

using Tarv::IPCFrame;

// The fd the floor server finds its socket on.
constexpr int kServerFd = 3;

// Parses the sources a frame carries, as a client does.
bool ParseSources(IPCFrame const& frame, VellmarkPB::sources& sources) {
    return sources.ParseFromString(frame.envelope().payload());
}

int ServeRoundTrips(FrameStream& stream) {
    VellmarkPB::sources const sources = MakeSources();
    IPCFrame request;
    VellmarkPB::sources asked;
    while (stream.Read(request)) {
        if (!ParseSources(request, asked)) return 1;
        IPCFrame const response = FrameOf(IPCFrame::RESPONSE, request.envelope().message_id(),
                                          request.request_number(), sources);
        if (!stream.Write(response)) return 1;
    }
    return 0;
}

int ServePushes(FrameStream& stream) {
    IPCFrame const update = FrameOf(IPCFrame::NOTIFICATION,
                                    VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE, 0, MakeSources());
    std::string bytes;
    Tarv::AppendFrame(update, bytes);
    IPCFrame const done = FrameOf(IPCFrame::NOTIFICATION, 0, 0, VellmarkPB::sources());
    std::uint32_t command[2];
    IPCFrame ack;
    VellmarkPB::CloudSyncReceived received;
    while (stream.ReadBytes(reinterpret_cast<char*>(command), sizeof command)) {
        std::uint32_t const count = command[0];
        std::uint32_t const window = command[1];
        std::uint32_t sent = 0;
        std::uint32_t acknowledged = 0;
        while (acknowledged < count) {
            while (sent < count && sent - acknowledged < window) {
                if (!stream.WriteBytes(bytes.data(), bytes.size())) return 1;
                ++sent;
            }
            if (!stream.Read(ack) || !received.ParseFromString(ack.envelope().payload())) {
                return 1;
            }
            ++acknowledged;
        }
        if (!stream.Write(done)) return 1;
    }
    return 0;
}

}  // namespace

int ServeFloor(std::string const& mode, int fd) {
    FrameStream stream(fd);
    if (mode == "round-trip") return ServeRoundTrips(stream);
    if (mode == "push") return ServePushes(stream);
    return 2;
}

FloorServer::FloorServer(std::string const& program, std::string const& mode) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        throw std::runtime_error(std::string("socketpair: ") + std::strerror(errno));
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], kServerFd);  // dup2 clears CLOEXEC
    std::string fdText = std::to_string(kServerFd);
    char const* argv[] = {program.c_str(), "--floor-server", mode.c_str(),
                          "--floor-fd",    fdText.c_str(),   nullptr};
    pid_t pid = -1;
    int const error = ::posix_spawn(&pid, program.c_str(), &actions, nullptr,
                                    const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (error != 0) {
        ::close(fds[0]);
        throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
    }
    m_fd = fds[0];
    m_pid = pid;
}

FloorServer::~FloorServer() {
    ::shutdown(m_fd, SHUT_RDWR);  // the server sees the end of its stream and exits
    ::close(m_fd);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
}

bool FloorRoundTrips(FloorServer& server, int count, std::vector<double>& samples) {
    using Clock = std::chrono::steady_clock;
    FrameStream stream(server.Fd());
    IPCFrame response;
    VellmarkPB::sources sources;
    for (int i = 0; i < count; ++i) {
        auto const start = Clock::now();
        if (!stream.Write(RequestFrame(static_cast<std::uint64_t>(i) + 1)) ||
            !stream.Read(response) || !ParseSources(response, sources) ||
            sources.source_size() != kSourceCount) {
            return false;
        }
        samples.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
    return true;
}

bool FloorPush(FloorServer& server, std::uint32_t count, std::uint32_t window) {
    FrameStream stream(server.Fd());
    std::uint32_t const command[2] = {count, window};
    if (!stream.WriteBytes(reinterpret_cast<char const*>(command), sizeof command)) return false;
    VellmarkPB::CloudSyncReceived received;
    received.set_messageid(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE);
    IPCFrame const ack =
        FrameOf(IPCFrame::ONE_WAY, VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, 0, received);
    IPCFrame update;
    VellmarkPB::sources sources;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!stream.Read(update) || !ParseSources(update, sources) || !stream.Write(ack)) {
            return false;
        }
    }
    return stream.Read(update) && update.envelope().message_id() == 0;
}

}  // namespace Vellmark::Bench
