#pragma once
// The service's inputs under a fuzzer: frames of the product endpoint, through the request
// handlers, to the store; and the admin imports (put, seed; --seed at start parses and
// seeds the same way). One vellmarkd of the process serves every input, on a store in a
// memory-backed folder when the machine has one. A broken promise aborts: every request is
// answered (by a response, or for a GVA request by its error notification), and everything
// the service sends is a well-formed frame.
// Shared by the fuzz targets and by the tests that replay the kept inputs.
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "fuzz/FuzzInput.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "service/VellmarkService.h"

namespace Vellmark::Fuzz::ServiceExercise {

using Vellmark::Service::VellmarkService;

inline void Check(bool condition, char const* promise) {
    if (condition) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

// A new folder for the run: under /dev/shm when there is one, so that the store's syncs
// cost nothing.
inline std::string TemporaryFolder(std::string const& name) {
    std::string const base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string pattern = base + "/" + name + "-XXXXXX";
    char const* made = ::mkdtemp(pattern.data());
    Check(made != nullptr, "a temporary folder can be made");
    return made;
}

// The process's vellmarkd, made on first use, stopped and removed at exit.
class FuzzService {
public:
    static VellmarkService& Get() {
        static FuzzService instance;
        return *instance.m_service;
    }
    FuzzService(FuzzService const&) = delete;
    FuzzService& operator=(FuzzService const&) = delete;

private:
    FuzzService() : m_folder(TemporaryFolder("vellmark-fuzz-service")) {
        // Refusals of bad input are the normal case here.
        VellmarkService::Log().SetThreshold(DPrint::Error);
        IPCLog().SetThreshold(DPrint::Error);
        IPCDirectory::Get().SetRuntimeFolder(m_folder);
        m_service = std::make_unique<VellmarkService>(m_folder + "/store.db", std::nullopt);
    }
    ~FuzzService() {
        m_service.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string const m_folder;
    std::unique_ptr<VellmarkService> m_service;
};

// A connection as the service sees it (a session over one end of a socket pair), with the
// other end read here.
class Peer {
public:
    Peer() {
        static std::atomic<std::uint64_t> lastId{1u << 20};
        int fds[2];
        Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0, "a socket pair");
        session = std::make_shared<IPCServerSession>(
            ++lastId, Tarv::FramedConnection::Adopt(fds[0], "fuzz peer"));
        m_fd = fds[1];
    }
    ~Peer() {
        session->Close();
        ::close(m_fd);
    }
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;

    // The next `count` frames the service sent; aborts when they do not come within 20 s.
    std::vector<Tarv::IPCFrame> Read(std::size_t count) {
        std::vector<Tarv::IPCFrame> frames;
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        Tarv::IPCFrame frame;
        while (frames.size() < count) {
            auto const status = m_decoder.Next(frame);
            if (status == Tarv::FrameDecoder::Status::Frame) {
                frames.push_back(frame);
                continue;
            }
            Check(status == Tarv::FrameDecoder::Status::NeedMore, "the service sends frames");
            Check(std::chrono::steady_clock::now() < deadline, "every request is answered");
            pollfd readable{m_fd, POLLIN, 0};
            if (::poll(&readable, 1, 100) <= 0) continue;
            char buffer[64 * 1024];
            ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
            Check(n > 0, "the session stays open while it is answered");
            m_decoder.Feed(buffer, static_cast<std::size_t>(n));
        }
        return frames;
    }

    std::shared_ptr<IPCServerSession> session;

private:
    int m_fd = -1;
    Tarv::FrameDecoder m_decoder{IPCFrameLimit::kHardMaxFrameBytes};
};

inline bool IsGVARequest(unsigned int id) {
    return id == VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE ||
           id == VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE ||
           id == VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID;
}

}  // namespace Vellmark::Fuzz::ServiceExercise

namespace Vellmark::Fuzz {

// The input is a byte stream of frames, as a client's socket would carry them.
inline void ExerciseServiceRequests(std::uint8_t const* data, std::size_t size) {
    using namespace Vellmark::Fuzz::ServiceExercise;
    auto& service = FuzzService::Get();
    Peer peer;
    Tarv::FrameDecoder decoder(IPCFrameLimit::MaxFrameBytes());
    decoder.Feed(reinterpret_cast<char const*>(data), size);
    std::size_t requests = 0;
    std::size_t gvaRequests = 0;
    Tarv::IPCFrame frame;
    while (decoder.Next(frame) == Tarv::FrameDecoder::Status::Frame) {
        unsigned int const id = frame.envelope().message_id();
        IPCMessageEnvelope envelope(std::move(*frame.mutable_envelope()));
        if (frame.kind() == Tarv::IPCFrame::REQUEST) {
            ++requests;
            gvaRequests += IsGVARequest(id) ? 1 : 0;
            service.Receive(IPCRequest{peer.session, id, frame.request_number(), envelope});
        } else if (frame.kind() == Tarv::IPCFrame::ONE_WAY) {
            service.ReceiveOneWay(peer.session, id, envelope);
        }
    }
    service.WaitUntilIdle();
    std::size_t errors = 0;
    for (auto const& answer : peer.Read(requests)) {
        if (answer.kind() == Tarv::IPCFrame::NOTIFICATION) {
            ++errors;
            Check(answer.envelope().payload_type_name() == "Error",
                  "a GVA request fails with an Error notification");
            continue;
        }
        Check(answer.kind() == Tarv::IPCFrame::RESPONSE, "answers are responses");
        Check(answer.envelope().has_payload_type_name(), "answers name their payload type");
    }
    Check(errors <= gvaRequests, "only GVA requests fail by notification");
}

// The input's first byte picks what to import: the whole store (seed), or one resource
// (put); the rest is the JSON document.
inline void ExerciseAdminImport(std::uint8_t const* data, std::size_t size) {
    using namespace Vellmark::Fuzz::ServiceExercise;
    auto& service = FuzzService::Get();
    FuzzInput input(data, size);
    auto const& resources = Vellmark::Admin::Resources();
    std::size_t const which = input.Byte() % (resources.size() + 2);
    Vellmark::Admin::Request request;
    if (which == 0) {
        request.mutable_seed()->set_json(input.Rest());
    } else {
        request.mutable_put()->set_resource(which <= resources.size() ? resources[which - 1].name
                                                                      : "service-accounts");
        request.mutable_put()->set_json(input.Rest());
    }
    Peer peer;
    IPCMessageEnvelope envelope;
    envelope.SetPayload(request);
    if (!Vellmark::Admin::FitsOneFrame(request, IPCFrameLimit::MaxFrameBytes())) return;
    service.ReceiveAdmin(IPCRequest{peer.session, Vellmark::Admin::kCommandId, 1, envelope});
    service.WaitUntilIdle();
    auto const answers = peer.Read(1);
    Vellmark::Admin::Reply reply;
    Check(IPCMessageEnvelope(answers.at(0).envelope()).GetPayload(reply), "the reply parses");
    Check(reply.ok() || !reply.error().empty(), "a refusal says why");
}

}  // namespace Vellmark::Fuzz
