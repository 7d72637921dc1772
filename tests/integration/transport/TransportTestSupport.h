#pragma once
// What the transport's integration tests share: a runtime folder of their own, values
// handed over by other threads, a scripted server, a client end made of the built-in
// listener and router, raw sockets for feeding bad bytes, and processes of other users.
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/ipc/ClientListener.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCMessageRouterFactory.h"
#include "platform/ipc/IPCServer.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/testing/Inbox.h"

namespace Tarv::TransportTest {

using namespace std::chrono_literals;

constexpr char kService[] = "Test";

// A temporary runtime folder that the directory uses while the object lives.
class RuntimeFolder {
public:
    RuntimeFolder() {
        char pattern[] = "/tmp/tarv-ipc-XXXXXX";
        char* made = ::mkdtemp(pattern);
        m_path = made ? made : "";
        IPCDirectory::Get().SetRuntimeFolder(m_path);
    }
    ~RuntimeFolder() {
        IPCDirectory::Get().SetRuntimeFolder("");
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    std::string const& Path() const { return m_path; }

private:
    std::string m_path;
};

using Tarv::Testing::Inbox;

// A Unix socket address for `path`.
inline sockaddr_un AddressOf(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

// A one-way frame under identifier 13 carrying `payload`.
inline Tarv::IPCFrame OneWay(std::string payload) {
    Tarv::IPCFrame frame;
    frame.set_kind(Tarv::IPCFrame::ONE_WAY);
    frame.mutable_envelope()->set_message_id(13);
    frame.mutable_envelope()->set_payload(std::move(payload));
    return frame;
}

inline IPCMessageEnvelope Bytes(std::string payload) {
    IPCMessageEnvelope envelope;
    envelope.set_payload(std::move(payload));
    return envelope;
}

// Sends `payload` as a request under `id` and returns the payload of its response, or
// nothing when none came within the bound.
inline std::optional<std::string> Ask(IPCMessageRouterIF& router, unsigned int id,
                                      std::string payload) {
    auto responses = std::make_shared<Inbox<std::string>>();
    router.SendEnvelopeRequest(
        id, Bytes(std::move(payload)),
        [responses](IPCMessageEnvelope const& response) { responses->Put(response.payload()); });
    if (!responses->WaitFor(1)) return std::nullopt;
    return responses->At(0);
}

struct Message {
    std::uint64_t session;
    unsigned int id;
    std::string payload;
};

// An IPCServer serving kService (or `name`) that records what happens; `answer` (if set) handles
// each request on the IO thread, after it has been recorded.
class ScriptedServer {
public:
    explicit ScriptedServer(IPCServer::Options options = IPCServer::Options(),
                            std::function<void(IPCRequest const&)> answer = nullptr,
                            std::string const& name = kService)
        : m_answer(std::move(answer)) {
        IPCServer::Handlers handlers;
        handlers.onConnected = [this](IPCServer::SessionPtr const& s) { connected.Put(s); };
        handlers.onRequest = [this](IPCRequest const& request) {
            requests.Put(request);
            if (m_answer) m_answer(request);
        };
        handlers.onMessage = [this](IPCServer::SessionPtr const& s, unsigned int id,
                                    IPCMessageEnvelope const& envelope) {
            messages.Put(Message{s->Id(), id, envelope.payload()});
        };
        handlers.onDisconnected = [this](IPCServer::SessionPtr const& s) {
            disconnected.Put(s->Id());
        };
        server = std::make_unique<IPCServer>(name, std::move(handlers), std::move(options));
    }

    Inbox<IPCServer::SessionPtr> connected;
    Inbox<IPCRequest> requests;
    Inbox<Message> messages;
    Inbox<std::uint64_t> disconnected;

private:
    std::function<void(IPCRequest const&)> m_answer;

public:
    std::unique_ptr<IPCServer> server;  // last: stopped before the inboxes go
};

// Echoes every request's payload back as its response.
inline void Echo(IPCRequest const& request) {
    request.Respond(request.envelope);
}

// The client side: the built-in listener on kService, and a built-in router on each
// connection it reports.
class ClientEnd {
public:
    explicit ClientEnd(std::chrono::milliseconds period = 10ms)
        : listener(IL::CreateClientListener("test-listener", period)) {
        listening = listener->Listen(
            IPCDirectory::Get().Lookup(kService),
            [this](std::shared_ptr<Network::ConnectorSocket> const& s) { sockets.Put(s); });
    }
    ~ClientEnd() {
        listening.Disconnect();
        if (router) router->Stop();
    }

    // Waits for the `nth` connection (from 1) and makes the router on it.
    std::shared_ptr<IPCMessageRouterIF> Connect(std::size_t nth = 1) {
        if (!sockets.WaitFor(nth)) return nullptr;
        auto socket = sockets.At(nth - 1);
        router = IPCMessageRouterFactory::CreateRouter("test-router", nullptr, socket);
        if (router) {
            int const which = static_cast<int>(nth);
            router->SetDisconnectHandler(socket, [this, which] { disconnects.Put(which); });
        }
        return router;
    }

    Inbox<std::shared_ptr<Network::ConnectorSocket>> sockets;
    // The connection (from 1) whose loss each disconnect handler call reported.
    Inbox<int> disconnects;
    std::shared_ptr<IL::ClientListenerIF> listener;
    CallbackConnection listening;
    std::shared_ptr<IPCMessageRouterIF> router;
};

// A plain connected socket to kService, for writing bytes no router would write.
class RawClient {
public:
    RawClient() {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = AddressOf(IPCDirectory::Get().Lookup(kService)->Path());
        connected = ::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { Close(); }
    void Close() {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
    }

    bool Write(std::string const& bytes) {
        return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // True when the peer has closed the connection within the bound.
    bool SeesEnd(std::chrono::milliseconds bound = 10s) {
        pollfd p{m_fd, POLLIN, 0};
        auto const deadline = std::chrono::steady_clock::now() + bound;
        while (std::chrono::steady_clock::now() < deadline) {
            int const left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                  deadline - std::chrono::steady_clock::now())
                                                  .count());
            if (::poll(&p, 1, left) <= 0) return false;
            char buffer[4096];
            ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n <= 0) return true;
        }
        return false;
    }

    bool connected = false;

private:
    int m_fd = -1;
};

// A process of its own running as another user: it takes `uid`, `gid` and the
// supplementary `groups`, runs `body`, then waits to be killed (when the object goes).
// Needs root. `body` runs in a forked child of a threaded process, so it may only make
// system calls: prepare everything else before.
class OtherUser {
public:
    static constexpr uid_t kNobody = 65534;

    OtherUser(uid_t uid, gid_t gid, std::vector<gid_t> const& groups,
              std::function<void()> const& body) {
        m_pid = ::fork();
        if (m_pid != 0) return;
        if (::setgroups(groups.size(), groups.data()) != 0 || ::setgid(gid) != 0 ||
            ::setuid(uid) != 0) {
            ::_exit(3);
        }
        body();
        for (;;) ::pause();
    }
    ~OtherUser() {
        if (m_pid <= 0) return;
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    OtherUser(OtherUser const&) = delete;
    OtherUser& operator=(OtherUser const&) = delete;

private:
    pid_t m_pid = -1;
};

// Makes the directory trust exactly `users` as servers while it lives.
class TrustedServers {
public:
    explicit TrustedServers(std::vector<uid_t> users) {
        IPCDirectory::Get().SetTrustedServerUsers(std::move(users));
    }
    ~TrustedServers() { IPCDirectory::Get().SetTrustedServerUsers({}); }
};

}  // namespace Tarv::TransportTest
