#pragma once
// ServiceProbe: tells at once why vellmarkd cannot be used at a socket, where the library
// would only retry until --timeout: no socket file, a socket nobody listens on, a socket
// this user may not open, a server this user does not trust, or a service that closes
// this user's connections as soon as they are made (its credential check).
//
// Threads: made and read on the command's thread; Watch reports from a thread of its own,
// which the destructor ends.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Vellmark::Ctl {

struct Diagnosis {
    int code;
    std::string message;
};

class ServiceProbe {
public:
    // Connects once to `path`, an endpoint's socket; `allowOptions` names the options of
    // vellmarkd that would let this user in, for the messages.
    ServiceProbe(std::string path, std::string allowOptions);
    ~ServiceProbe();
    ServiceProbe(ServiceProbe const&) = delete;
    ServiceProbe& operator=(ServiceProbe const&) = delete;

    // What the connection showed at once, or nothing when the service may well answer.
    std::optional<Diagnosis> const& Found() const { return m_found; }
    // Watches the connection while the command runs, when the service's credential check
    // may refuse this user: a connection the service closes before sending anything, twice
    // in a row, is a refusal; `onRefused` is then called once, on the watching thread, and
    // Verdict() tells it. Anything the service sends ends the watch.
    void Watch(std::function<void()> onRefused);
    std::optional<Diagnosis> Verdict() const;
    // Waits until the watch has ended or `bound` has passed (0: no bound), then Verdict().
    std::optional<Diagnosis> AwaitVerdict(std::chrono::milliseconds bound);
    // Ends the watch; onRefused is not called after this returns. Idempotent.
    void Stop();

private:
    void Watching(std::function<void()> onRefused);
    // True when the service closed the connection, and a second one, before saying anything.
    bool Refused();
    // Waits until the service closes `fd` (true) or sends something, or Stop (false).
    bool ClosedByService(int fd);

    std::string const m_path;
    std::string const m_allowOptions;
    int m_fd = -1;
    int m_stop[2] = {-1, -1};
    std::optional<Diagnosis> m_found;
    mutable std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_watchEnded = false;
    std::optional<Diagnosis> m_verdict;
    std::thread m_watcher;
};

// Prints `diagnosis` on standard error and returns its code.
int Report(Diagnosis const& diagnosis);

}  // namespace Vellmark::Ctl
