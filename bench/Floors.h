#pragma once
// The floors of transport_bench: what the same exchanges cost with no framework at all, a
// raw Unix stream socket between two processes carrying our frames.
//
// - Round trip: the client serializes a GetSources request frame and writes it; the server
//   reads and parses it, serializes the sources into a response frame and writes it; the
//   client reads it and parses the frame and the sources.
// - Push: the server writes update frames (serialized once, as a service pushes one update
//   to its clients), at most `window` unacknowledged; the client parses each frame and its
//   sources and writes a one-way acknowledgement frame, which the server reads and parses.
//
// The server runs in a process of its own: this program started again with --floor-server.
#include <cstdint>
#include <string>
#include <vector>

namespace Vellmark::Bench {

// The server side, in the child process: serves the socket `fd` until it closes. `mode` is
// "round-trip" or "push". Returns the process's exit status.
int ServeFloor(std::string const& mode, int fd);

// A floor server process with the client's end of its socket.
class FloorServer {
public:
    // Starts `program` --floor-server `mode`. Throws std::runtime_error when it cannot.
    FloorServer(std::string const& program, std::string const& mode);
    ~FloorServer();
    FloorServer(FloorServer const&) = delete;
    FloorServer& operator=(FloorServer const&) = delete;

    int Fd() const { return m_fd; }
    int Pid() const { return m_pid; }

private:
    int m_fd = -1;
    int m_pid = -1;
};

// `count` round trips against a round-trip server; the latency of each, in seconds, goes to
// `samples`. False when the server stopped answering.
bool FloorRoundTrips(FloorServer& server, int count, std::vector<double>& samples);

// Has a push server push `count` updates with `window`, acknowledging each; true once the
// server reports every acknowledgement read.
bool FloorPush(FloorServer& server, std::uint32_t count, std::uint32_t window);

}  // namespace Vellmark::Bench
