#pragma once
// The service's inputs under a fuzzer: frames of the product endpoint, through the request
// handlers, to the store; and the admin imports (put, seed; --seed at start parses and
// seeds the same way). One vellmarkd of the process, without endpoints, serves every input
// on the fuzzer's thread: a request goes straight to its handler and is answered before the
// next one is handed over, on one connection kept for the process. Its store is in memory
// and every input starts from the same one, the example store (VELLMARK_SEED_PATH), so an
// input costs what it asks for and does the same whenever it runs. A broken promise aborts:
// every request is answered at once, by a well-formed frame that pairs with it (a response,
// or for a GVA request its error notification), and nothing else is sent.
// Shared by the fuzz targets and by the tests that replay the kept inputs.
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "fuzz/FuzzInput.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "service/Catalog.h"
#include "service/VellmarkService.h"

namespace Vellmark::Fuzz::ServiceExercise {

using Vellmark::Service::VellmarkService;

inline void Check(bool condition, char const* promise) {
    if (condition) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

// A new folder for the run: under /dev/shm when there is one, so that a store's syncs
// cost nothing.
inline std::string TemporaryFolder(std::string const& name) {
    std::string const base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string pattern = base + "/" + name + "-XXXXXX";
    char const* made = ::mkdtemp(pattern.data());
    Check(made != nullptr, "a temporary folder can be made");
    return made;
}

inline Vellmark::Admin::StoreDocument ExampleDocument() {
    std::string text;
    Vellmark::Admin::StoreDocument document;
    Vellmark::Json::ReadFile(VELLMARK_SEED_PATH, text);
    Vellmark::Json::Parse(text, document);
    return document;
}

// The example store, as the bytes of its database.
inline std::string ExampleStoreImage() {
    using namespace Vellmark::Service;
    Store::Options options;
    options.inMemory = true;
    Store store("example store", options);
    Catalog catalog(store);
    Changes changed;
    catalog.Seed(ExampleDocument(), changed);
    return store.Image();
}

// The service's end of a connection (a session over one end of a socket pair), with the
// other end read here, as a client would.
class Peer {
public:
    Peer() {
        int fds[2];
        Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0, "a socket pair");
        session = std::make_shared<IPCServerSession>(
            1, Tarv::FramedConnection::Adopt(fds[0], "fuzz peer"));
        m_fd = fds[1];
    }
    ~Peer() {
        session->Close();
        ::close(m_fd);
    }
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;

    // The next frame the service sent; aborts when none comes within 20 s. An answer is
    // in the socket when its handler returns, unless it outgrew the socket's buffer: then
    // the IO thread sends the rest as this reads.
    Tarv::IPCFrame Next() {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        Tarv::IPCFrame frame;
        for (;;) {
            auto const status = m_decoder.Next(frame);
            if (status == Tarv::FrameDecoder::Status::Frame) return frame;
            Check(status == Tarv::FrameDecoder::Status::NeedMore, "the service sends frames");
            Check(std::chrono::steady_clock::now() < deadline, "every request is answered");
            pollfd readable{m_fd, POLLIN, 0};
            if (::poll(&readable, 1, 100) <= 0) continue;
            Check(Receive(0) > 0, "the session stays open while it is answered");
        }
    }
    // True when the service has sent nothing more than was read.
    bool Quiet() {
        if (m_decoder.Buffered() != 0) return false;
        ssize_t const n = Receive(MSG_DONTWAIT);
        return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }

    std::shared_ptr<IPCServerSession> session;

private:
    ssize_t Receive(int flags) {
        char buffer[16 * 1024];
        ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, flags);
        if (n > 0) m_decoder.Feed(buffer, static_cast<std::size_t>(n));
        return n;
    }

    int m_fd = -1;
    Tarv::FrameDecoder m_decoder{IPCFrameLimit::kHardMaxFrameBytes};
};

// The process's vellmarkd, made on first use and stopped at exit, and the connection its
// inputs come on.
class FuzzService {
public:
    // The service, its store the example store.
    static FuzzService& Get() {
        static FuzzService instance;
        if (!instance.m_peer->session->IsOpen()) instance.m_peer = std::make_unique<Peer>();
        return instance;
    }
    // Puts the store back to the example store at the end of an input rather than at the
    // start of the next: what the input's requests left there (pages read, a schema parsed)
    // is then freed by the input that made it, so that libFuzzer counts as many frees as
    // allocations and does not run the input again to look for a leak.
    void EndInput() { m_service->RestoreStore(m_image); }
    VellmarkService& Service() { return *m_service; }
    Peer& Connection() { return *m_peer; }

    FuzzService(FuzzService const&) = delete;
    FuzzService& operator=(FuzzService const&) = delete;

private:
    FuzzService() : m_image(ExampleStoreImage()), m_peer(std::make_unique<Peer>()) {
        // Refusals of bad input are the normal case here.
        VellmarkService::Log().SetThreshold(DPrint::Error);
        IPCLog().SetThreshold(DPrint::Error);
        VellmarkService::Settings settings;
        settings.store.inMemory = true;
        settings.endpoints.served = false;
        m_service = std::make_unique<VellmarkService>("fuzz store", std::nullopt, settings);
        EndInput();
    }

    std::string const m_image;
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<VellmarkService> m_service;
};

inline unsigned int GVAErrorId(unsigned int id) {
    switch (id) {
        case VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR;
        case VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE_ERROR;
        case VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID:
            return VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_ERROR;
        default:
            return 0;
    }
}

// Checks that `answer` answers the request numbered `number` under `id`.
inline void CheckAnswers(Tarv::IPCFrame const& answer, unsigned int id, std::uint64_t number) {
    if (answer.kind() == Tarv::IPCFrame::NOTIFICATION) {
        Check(GVAErrorId(id) != 0, "only GVA requests fail by notification");
        Check(answer.envelope().message_id() == GVAErrorId(id),
              "a GVA request fails under its error identifier");
        Check(answer.envelope().payload_type_name() == "Error",
              "a GVA request fails with an Error notification");
        return;
    }
    Check(answer.kind() == Tarv::IPCFrame::RESPONSE, "answers are responses");
    Check(answer.envelope().message_id() == id && answer.request_number() == number,
          "an answer pairs with its request");
    Check(answer.envelope().has_payload_type_name(), "answers name their payload type");
}

}  // namespace Vellmark::Fuzz::ServiceExercise

namespace Vellmark::Fuzz {

// The input is a byte stream of frames, as a client's socket would carry them.
inline void ExerciseServiceRequests(std::uint8_t const* data, std::size_t size) {
    using namespace Vellmark::Fuzz::ServiceExercise;
    auto& fuzz = FuzzService::Get();
    auto& service = fuzz.Service();
    auto& peer = fuzz.Connection();
    Tarv::FrameDecoder decoder(IPCFrameLimit::MaxFrameBytes());
    decoder.Feed(reinterpret_cast<char const*>(data), size);
    Tarv::IPCFrame frame;
    while (decoder.Next(frame) == Tarv::FrameDecoder::Status::Frame) {
        unsigned int const id = frame.envelope().message_id();
        std::uint64_t const number = frame.request_number();
        IPCMessageEnvelope envelope(std::move(*frame.mutable_envelope()));
        if (frame.kind() == Tarv::IPCFrame::REQUEST) {
            service.Receive(IPCRequest{peer.session, id, number, envelope});
            CheckAnswers(peer.Next(), id, number);
        } else if (frame.kind() == Tarv::IPCFrame::ONE_WAY) {
            service.ReceiveOneWay(peer.session, id, envelope);
        }
    }
    Check(peer.Quiet(), "the service sends nothing but answers");
    fuzz.EndInput();
}

// The input's first byte picks what to import: the whole store (seed), or one resource
// (put); the rest is the JSON document.
inline void ExerciseAdminImport(std::uint8_t const* data, std::size_t size) {
    using namespace Vellmark::Fuzz::ServiceExercise;
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
    if (!Vellmark::Admin::FitsOneFrame(request, IPCFrameLimit::MaxFrameBytes())) return;
    auto& fuzz = FuzzService::Get();
    auto& peer = fuzz.Connection();
    IPCMessageEnvelope envelope;
    envelope.SetPayload(request);
    fuzz.Service().ReceiveAdmin(IPCRequest{peer.session, Vellmark::Admin::kCommandId, 1, envelope});
    auto const answer = peer.Next();
    Check(answer.kind() == Tarv::IPCFrame::RESPONSE &&
              answer.envelope().message_id() == Vellmark::Admin::kCommandId &&
              answer.request_number() == 1,
          "the reply pairs with the command");
    Vellmark::Admin::Reply reply;
    Check(IPCMessageEnvelope(answer.envelope()).GetPayload(reply), "the reply parses");
    Check(reply.ok() || !reply.error().empty(), "a refusal says why");
    Check(peer.Quiet(), "the service sends nothing but the reply");
    fuzz.EndInput();
}

}  // namespace Vellmark::Fuzz
