#pragma once
// What every vellmarkctl command shares: the settings of the command line, the exit
// codes, and how results are printed and inputs read.
#include <google/protobuf/message.h>

#include "Errors.pb.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace Vellmark::Ctl {

// Exit codes of vellmarkctl; kExitCodesHelp says them for --help.
enum Exit : int {
    kOk = 0,
    kRefused = 1,           // the service (or the library) refused; the Error is on stderr
    kBadInput = 2,          // bad arguments or input file; nothing was sent
    kNoAnswer = 3,          // no answer within --timeout, or the connection ended with the
                            // request unanswered
    kNotRunning = 3,        // no socket file, or nothing listens on it (within --wait)
    kPermissionDenied = 4,  // this user may not open the socket file
    kRefusedByService = 5,  // the service's credential check closed the connection (or
                            // the server is not one this user trusts)
};
inline constexpr char kExitCodesHelp[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  refused: the service answered with an Error (printed as JSON on standard error)\n"
    "  2  bad arguments or input; nothing was sent\n"
    "  3  vellmarkd is not running (no socket file, or nothing listens on it; with --wait:\n"
    "     not within its time), no answer within --timeout, or the connection ended while\n"
    "     the request was unanswered (a query is asked again once, on the next connection)\n"
    "  4  permission denied: this user may not open the socket file\n"
    "  5  the service closed the connection at once: its credential check does not let this\n"
    "     user in (or the server runs as a user that is not trusted)";

struct Settings {
    double timeoutSeconds = 5;
    // --wait: how long to wait for the service to come up before the command (0: no
    // bound); nothing: the command does not wait.
    std::optional<double> waitSeconds;
    bool pretty = false;
    // Print tokens, identifiers and user names in clear; masked otherwise.
    bool showSecrets = false;
    // The bound of every wait; 0 means none.
    std::chrono::milliseconds Timeout() const {
        return std::chrono::milliseconds(static_cast<long long>(timeoutSeconds * 1000));
    }
    std::chrono::milliseconds Wait() const {
        return std::chrono::milliseconds(static_cast<long long>(waitSeconds.value_or(0) * 1000));
    }
};

// Input refused before anything is sent: the message names the file and the problem.
class BadInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writes `message` as one JSON document on standard output (JsonOf's shape), its
// sensitive fields masked unless the settings ask for them in clear.
void PrintJson(google::protobuf::Message const& message, Settings const& settings);
// Writes `json`, a document of `message`'s type, as PrintJson writes that message. Throws
// BadInput when it is not one.
void PrintJson(std::string const& json, google::protobuf::Message& message,
               Settings const& settings);
// Writes a refusal on standard error: its message, then the Error as JSON (masked).
void PrintRefusal(VellmarkPB::Error const& error);
// Writes `text` (already JSON) on standard output.
void PrintText(std::string const& text);
// A message identifier given as a number or a MessageId name, with or without its
// VELLMARK_MESSAGE_ prefix, in any case. Throws BadInput.
unsigned int ParseMessageId(std::string const& text);
// Throws BadInput, naming the limit, when `request` under `id` would not fit one frame: sent,
// it would be dropped and never answered.
void CheckFits(unsigned int id, google::protobuf::Message const& request);

// The end of a command that waits for callbacks: set once, from any thread.
class Outcome {
public:
    void Finish(int code) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_code < 0) m_code = code;
        m_finished.notify_all();
    }
    bool Finished() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_code >= 0;
    }
    // The exit code, or -1 when nothing finished the command within `bound` (0: no bound).
    int Wait(std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(m_mutex);
        auto const done = [this] { return m_code >= 0; };
        if (bound.count() == 0) {
            m_finished.wait(lock, done);
        } else {
            m_finished.wait_for(lock, bound, done);
        }
        return m_code;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_finished;
    int m_code = -1;
};

}  // namespace Vellmark::Ctl
