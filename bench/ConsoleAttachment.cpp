#include "bench/ConsoleAttachment.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <string_view>
#include <vector>

extern char** environ;

namespace Vellmark::Bench {

namespace {

// The first line `fd` gives, read byte by byte (the console prints its URL and nothing
// more on standard output).
std::string FirstLine(int fd) {
    std::string line;
    char c;
    while (::read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
}

}  // namespace

ConsoleAttachment::ConsoleAttachment(std::string const& program, std::string const& folder) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::vector<std::string> words = {program, "--runtime-dir", folder, "--port", "0"};
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int const error =
        ::posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (error != 0) {
        ::close(out[0]);
        m_pid = -1;
        throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
    }
    try {
        Attach(out[0]);
    } catch (...) {
        Stop();
        throw;
    }
}

void ConsoleAttachment::Attach(int output) {
    std::string const url = FirstLine(output);
    ::close(output);
    std::smatch match;
    if (!std::regex_match(url, match,
                          std::regex(R"(http://127\.0\.0\.1:(\d+)/\?token=([0-9a-f]+))"))) {
        throw std::runtime_error("vellmark-console printed no URL: \"" + url + "\"");
    }
    int const port = std::stoi(match[1]);
    std::string const token = match[2];

    m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (m_socket < 0 ||
        ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot reach the console on port " + std::to_string(port));
    }
    std::string const request =
        "GET /api/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
        "\r\nAuthorization: Bearer " + token + "\r\nAccept: text/event-stream\r\n\r\n";
    if (::send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
        throw std::runtime_error("cannot ask the console for its stream");
    }
    m_reader = std::thread([this] { Read(m_socket); });
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::seconds(30), [this] { return m_watching || m_ended; });
    if (!m_watching) throw std::runtime_error("the console does not watch vellmarkd's traffic");
}

ConsoleAttachment::~ConsoleAttachment() {
    Stop();
}

void ConsoleAttachment::Stop() {
    if (m_socket >= 0) ::shutdown(m_socket, SHUT_RDWR);
    if (m_reader.joinable()) m_reader.join();
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    m_pid = -1;
}

void ConsoleAttachment::Read(int socket) {
    // Counts what a page would get, line by line as the events come: frames by their
    // numbers, and the drop count the console reports.
    std::string const frameMark = "{\"seq\":";
    std::string pending;
    std::string event;
    char buffer[65536];
    for (;;) {
        ssize_t const n = ::recv(socket, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        pending.append(buffer, static_cast<std::size_t>(n));
        std::size_t start = 0;
        for (std::size_t end; (end = pending.find('\n', start)) != std::string::npos;
             start = end + 1) {
            std::string_view const line(pending.data() + start, end - start);
            if (line.rfind("event: ", 0) == 0) {
                event = std::string(line.substr(7));
            } else if (line.rfind("data: ", 0) == 0 && event == "traffic") {
                for (std::size_t at = line.find(frameMark); at != std::string_view::npos;
                     at = line.find(frameMark, at + frameMark.size())) {
                    ++m_frames;
                }
            } else if (line.rfind("data: ", 0) == 0 && event == "dropped") {
                m_dropped = std::stoull(std::string(line.substr(6)));
            } else if (line.rfind("data: ", 0) == 0 && event == "status") {
                std::string_view const mark = "\"lost\":";
                auto const at = line.find(mark);
                if (at != std::string_view::npos) {
                    m_lost = std::strtoull(std::string(line.substr(at + mark.size())).c_str(),
                                           nullptr, 10);
                }
                if (line.find("\"watching\":true") != std::string_view::npos) {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_watching = true;
                    m_changed.notify_all();
                }
            }
        }
        pending.erase(0, start);
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

}  // namespace Vellmark::Bench
