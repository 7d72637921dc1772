#pragma once
// ConsoleAttachment: vellmark-console started by transport_bench on its vellmarkd, with one
// page streaming the traffic (Server-Sent Events read as fast as they come and counted), so
// that the bench can measure the service while a console watches it.
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Vellmark::Bench {

class ConsoleAttachment {
public:
    // Starts `program` on the runtime folder `folder`, waits for its URL, opens the page's
    // stream and waits until the console watches the traffic. Throws std::runtime_error when
    // any of that fails.
    ConsoleAttachment(std::string const& program, std::string const& folder);
    // Closes the stream and stops the console (SIGTERM).
    ~ConsoleAttachment();
    ConsoleAttachment(ConsoleAttachment const&) = delete;
    ConsoleAttachment& operator=(ConsoleAttachment const&) = delete;

    // Frames the page received, and those the console said it dropped for it.
    std::uint64_t Frames() const { return m_frames; }
    std::uint64_t Dropped() const { return m_dropped; }
    // Times vellmarkd ended the console's watch because it read too slowly.
    std::uint64_t Lost() const { return m_lost; }

private:
    // Reads the URL from `output`, opens the stream and waits until the console watches.
    void Attach(int output);
    void Read(int socket);
    void Stop();

    pid_t m_pid = -1;
    int m_socket = -1;
    std::atomic<std::uint64_t> m_frames{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::atomic<std::uint64_t> m_lost{0};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_watching = false;
    bool m_ended = false;
    std::thread m_reader;
};

}  // namespace Vellmark::Bench
