#pragma once
// ChildProcess: a program started by a test, its standard output and error collected by
// threads of their own, so that the test can wait for a line with a bound and the child
// never blocks on a full pipe.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/ChildLauncher.h"

extern char** environ;

namespace Vellmark::EndToEnd {

// How a child is started, beyond its program and arguments.
struct ChildLaunch {
    // NAME=value entries that the child gets besides (or instead of) the inherited ones.
    std::vector<std::string> environment;
    // The program is the host's own (not one of this build): started as is, without
    // kChildLauncher.
    bool hostProgram = false;
};

class ChildProcess {
public:
    // Starts `program` with `arguments`, through kChildLauncher when the build has one (the
    // emulator of a cross build) unless `launch` says it is the host's. The child inherits
    // the environment, with `launch.environment` on top.
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments,
                 ChildLaunch const& launch = ChildLaunch()) {
        int out[2];
        int err[2];
        if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
        std::vector<std::string> words;
        if (!launch.hostProgram) words = kChildLauncher;
        words.push_back(program);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        std::vector<std::string> variables = Environment(launch.environment);
        std::vector<char*> envp;
        for (auto& variable : variables) envp.push_back(variable.data());
        envp.push_back(nullptr);
        if (posix_spawnp(&m_pid, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        ::close(err[1]);
        m_threads.emplace_back([this, fd = out[0]] { Drain(fd, m_stdout); });
        m_threads.emplace_back([this, fd = err[0]] { Drain(fd, m_stderr); });
        if (m_pid > 0) m_threads.emplace_back([this] { Reap(); });
    }

    // Kills the child if it still runs.
    ~ChildProcess() {
        if (m_pid > 0 && !Ended()) Signal(SIGKILL);
        for (auto& thread : m_threads) thread.join();
    }

    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    bool Started() const { return m_pid > 0; }
    // The child's process id (under an emulator, the emulator's); -1 when it did not start.
    pid_t Pid() const { return m_pid; }
    void Signal(int signal) {
        if (m_pid > 0) ::kill(m_pid, signal);
    }

    // True once standard error holds `text` (`count` times), false when the bound passed
    // first.
    bool WaitForError(std::string const& text, std::chrono::milliseconds bound,
                      std::size_t count = 1) {
        return WaitFor(m_stderr, text, bound, count);
    }
    // The same for standard output.
    bool WaitForOutput(std::string const& text, std::chrono::milliseconds bound,
                       std::size_t count = 1) {
        return WaitFor(m_stdout, text, bound, count);
    }

    // The exit status (as waitpid reports it) once the child has ended and both its
    // streams are closed; nothing when the bound passed first.
    std::optional<int> Wait(std::chrono::milliseconds bound) {
        if (m_pid <= 0) return std::nullopt;
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, bound,
                                [this] { return m_status.has_value() && m_closedStreams == 2; })) {
            return std::nullopt;
        }
        return m_status;
    }
    // The exit code once it ended normally, -1 otherwise.
    int ExitCode(std::chrono::milliseconds bound = std::chrono::seconds(20)) {
        auto const status = Wait(bound);
        return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    }

    std::string Output() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stdout;
    }
    std::string Errors() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stderr;
    }

private:
    // This process's environment, each of `extra` replacing a variable of its name.
    static std::vector<std::string> Environment(std::vector<std::string> const& extra) {
        auto const nameOf = [](std::string const& variable) {
            return variable.substr(0, variable.find('='));
        };
        std::vector<std::string> variables;
        for (char** entry = environ; *entry; ++entry) {
            std::string const variable = *entry;
            bool const replaced = std::any_of(extra.begin(), extra.end(), [&](auto const& e) {
                return nameOf(e) == nameOf(variable);
            });
            if (!replaced) variables.push_back(variable);
        }
        variables.insert(variables.end(), extra.begin(), extra.end());
        return variables;
    }

    bool Ended() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_status.has_value();
    }

    // Waits, on a thread of its own, for the child to end.
    void Reap() {
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_status = status;
        m_changed.notify_all();
    }

    static std::size_t Occurrences(std::string const& in, std::string const& text) {
        std::size_t found = 0;
        for (auto at = in.find(text); at != std::string::npos; at = in.find(text, at + 1)) {
            ++found;
        }
        return found;
    }
    bool WaitFor(std::string const& stream, std::string const& text,
                 std::chrono::milliseconds bound, std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, bound, [&] { return Occurrences(stream, text) >= count; });
    }

    void Drain(int fd, std::string& into) {
        char buffer[4096];
        for (;;) {
            ssize_t const n = ::read(fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            std::lock_guard<std::mutex> lock(m_mutex);
            into.append(buffer, static_cast<std::size_t>(n));
            m_changed.notify_all();
        }
        ::close(fd);
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_closedStreams;
        m_changed.notify_all();
    }

    pid_t m_pid = -1;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_stdout;
    std::string m_stderr;
    int m_closedStreams = 0;
    std::optional<int> m_status;
    // The readers of both streams, and the reaper.
    std::vector<std::thread> m_threads;
};

}  // namespace Vellmark::EndToEnd
