#pragma once
// FakeService: the reference Vellmark service, run inside a test's own process on a private
// runtime folder, so that the real VellmarkClientAPI can be tested without a service on
// the machine. It keeps a store of its own, is seeded from the JSON document that
// `vellmarkctl admin seed` takes, and plays the failures of the admin commands: a request
// that fails or goes unanswered, answers held back, connections dropped.
//
// Reaching it: Start() points this process's IPCDirectory at the fake's folder
// (IPCDirectory::SetRuntimeFolder), so a VellmarkClientAPI made after Start() connects to
// it; no environment variable is needed, since the directory is shared by every library of
// the process. A client made before Start() has already looked up its endpoint and keeps
// looking in the old folder. Another process (a program the test starts) reaches the fake
// with TARV_RUNTIME_DIR=RuntimeFolder() in its environment. Stop() points the directory
// back where it pointed before Start(). Since the directory is one per process, run one
// FakeService at a time.
//
// Threads: the service answers on a thread of its own (and delayed answers leave from a
// timer thread); clients' callbacks run on their own tasks as always. The operations
// below may be called from any thread (a client's callback included), one at a time: the
// object itself is not locked. Each returns once the service has taken the command in, so
// a request sent after it returns sees it.
//
// Errors: bad JSON and commands the service refuses throw std::invalid_argument naming
// the problem; a service that cannot start, or does not answer, std::runtime_error.
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "Errors.pb.h"
#include "VellmarkMessageId.pb.h"
#include "testing/VellmarkTestingExport.h"

namespace Vellmark::Testing {

class VELLMARK_TESTING_EXPORT FakeService {
public:
    // Does not start yet; see Start().
    FakeService();
    // Stops.
    ~FakeService();
    FakeService(FakeService const&) = delete;
    FakeService& operator=(FakeService const&) = delete;

    // Replaces everything the store holds with `json`, a store document as `vellmarkctl
    // admin export` writes it; a resource the document leaves out is emptied. Before
    // Start(): kept, and the service starts with it. While running: subscribers get the
    // updates of what changed.
    void Seed(std::string const& json);
    // The same, with the document read from the file at `path`.
    void SeedFromFile(std::string const& path);

    // Makes a private runtime folder (0700, under $TMPDIR or /tmp) holding the store and
    // the sockets, starts serving the endpoints "Vellmark" and "VellmarkAdmin" there and
    // points this process's IPCDirectory at it. Throws std::logic_error when running.
    void Start();
    // Closes every connection, stops serving, restores the IPCDirectory and removes the
    // folder with everything in it. Idempotent.
    void Stop();
    bool IsRunning() const;
    // The folder of the sockets; empty when not running.
    std::string RuntimeFolder() const;

    // The next `count` requests under `request` are answered with `error` (on the error
    // path of the operation: the error callback of a service-account or GVA operation).
    // Queries and preset storage have no error path: use LeaveUnanswered for them.
    void FailNext(VellmarkPB::MessageId request, VellmarkPB::Error const& error,
                  unsigned int count = 1);
    // The next `count` requests under `request` get no answer at all.
    void LeaveUnanswered(VellmarkPB::MessageId request, unsigned int count = 1);
    // Holds back the answers to requests under `id` (to every request when
    // VELLMARK_MESSAGE_NONE) for `delay`; requests behind a held one are still answered at
    // once. Updates are not held. A zero delay ends every delay.
    void Delay(std::chrono::milliseconds delay,
               VellmarkPB::MessageId id = VellmarkPB::VELLMARK_MESSAGE_NONE);
    // Closes every client connection, as a service restart would; clients reconnect on
    // their own. Returns how many were closed.
    std::size_t DropConnections();

private:
    struct Running;
    std::string m_seed;  // JSON, kept until Start(); empty: an empty store
    std::unique_ptr<Running> m_running;
};

}  // namespace Vellmark::Testing
