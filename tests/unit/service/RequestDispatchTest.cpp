// The service's dispatch seen from a client's connection: every request identifier is
// answered, and every refusal travels, where MessageTable says; an identifier without a row
// in the request table is refused with an Error, as it always was, and logged.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/MessageTable.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/testing/LogCapture.h"
#include "service/RequestTable.h"
#include "service/VellmarkService.h"
#include "tests/unit/service/ServiceTestSupport.h"

using namespace Vellmark::Service;

namespace {

using Tarv::IPCFrame;
using Tarv::Testing::LogCapture;
using Vellmark::Admin::MessageRole;

constexpr auto kBound = std::chrono::seconds(20);
// The query sent after each request: its answer closes what the request got.
constexpr unsigned int kSentinel = VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES;

// A payload that no request decodes.
IPCMessageEnvelope Undecodable() {
    IPCMessageEnvelope envelope;
    envelope.set_payload_type_name("NoSuchMessage");
    return envelope;
}

template <class Message>
Message PayloadOf(IPCFrame const& frame) {
    Message message;
    EXPECT_EQ(frame.envelope().payload_type_name(), Message::descriptor()->name());
    EXPECT_TRUE(IPCMessageEnvelope(frame.envelope()).GetPayload(message));
    return message;
}

class RequestDispatch : public ::testing::Test {
protected:
    RequestDispatch() : m_previousFolder(IPCDirectory::Get().RuntimeFolder()) {
        IPCDirectory::Get().SetRuntimeFolder(m_folder.Path());
        service = std::make_unique<VellmarkService>(m_folder.File("store.db"), std::nullopt);
        int fds[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        session = std::make_shared<IPCServerSession>(
            1, Tarv::FramedConnection::Adopt(fds[0], "dispatch test peer"));
        m_fd = fds[1];
    }
    ~RequestDispatch() override {
        session->Close();
        ::close(m_fd);
        service.reset();
        IPCDirectory::Get().SetRuntimeFolder(m_previousFolder);
    }

    // Sends a request under `id` as a client would, and returns every frame the service
    // sent for it.
    std::vector<IPCFrame> Exchange(unsigned int id, IPCMessageEnvelope const& payload) {
        std::uint64_t const number = ++m_number;
        service->Receive(IPCRequest{session, id, number, payload});
        std::uint64_t const sentinel = ++m_number;
        service->Receive(IPCRequest{session, kSentinel, sentinel, IPCMessageEnvelope()});
        std::vector<IPCFrame> frames;
        auto const deadline = std::chrono::steady_clock::now() + kBound;
        IPCFrame frame;
        for (;;) {
            auto const status = m_decoder.Next(frame);
            if (status == Tarv::FrameDecoder::Status::Frame) {
                if (frame.kind() == IPCFrame::RESPONSE && frame.request_number() == sentinel)
                    return frames;
                frames.push_back(frame);
                continue;
            }
            if (status != Tarv::FrameDecoder::Status::NeedMore ||
                std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "the service never answered the query after request " << id;
                return frames;
            }
            pollfd readable{m_fd, POLLIN, 0};
            if (::poll(&readable, 1, 100) <= 0) continue;
            char buffer[64 * 1024];
            ssize_t const n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n <= 0) {
                ADD_FAILURE() << "the session closed";
                return frames;
            }
            m_decoder.Feed(buffer, static_cast<std::size_t>(n));
        }
    }

    // The one response the service sent to request `id`.
    IPCFrame Response(unsigned int id, IPCMessageEnvelope const& payload) {
        auto const frames = Exchange(id, payload);
        EXPECT_EQ(frames.size(), 1u);
        if (frames.empty()) return IPCFrame();
        EXPECT_EQ(frames[0].kind(), IPCFrame::RESPONSE);
        EXPECT_EQ(frames[0].envelope().message_id(), id);
        return frames[0];
    }

    std::unique_ptr<VellmarkService> service;
    std::shared_ptr<IPCServerSession> session;

private:
    Vellmark::ServiceTest::TempFolder m_folder;
    std::string const m_previousFolder;
    int m_fd = -1;
    std::uint64_t m_number = 0;
    Tarv::FrameDecoder m_decoder{IPCFrameLimit::kHardMaxFrameBytes};
};

TEST_F(RequestDispatch, AnIdentifierWithoutARowIsRefusedWithAnErrorAndOneLogLine) {
    std::vector<unsigned int> ids{99};
    auto const* values = VellmarkPB::MessageId_descriptor();
    for (int i = 0; i < values->value_count(); ++i) {
        auto const id = static_cast<unsigned int>(values->value(i)->number());
        if (Vellmark::Admin::FindMessage(id)->role != MessageRole::Request) ids.push_back(id);
    }
    ASSERT_GT(ids.size(), 10u);
    LogCapture log(VellmarkService::Log(), DPrint::Warning);
    for (unsigned int id : ids) {
        SCOPED_TRACE(id);
        ASSERT_EQ(FindRequest(id), nullptr);
        auto const error = PayloadOf<VellmarkPB::Error>(Response(id, IPCMessageEnvelope()));
        EXPECT_EQ(error.code(), 6);
        EXPECT_EQ(error.subcode(), VellmarkPB::CODE_UNKNOWN_REQUEST);
        // A number that is no MessageId value cannot be named in the Error.
        EXPECT_EQ(static_cast<unsigned int>(error.messageid()),
                  VellmarkPB::MessageId_IsValid(static_cast<int>(id)) ? id : 0u);
        bool const reserved = Vellmark::Admin::FindMessage(id) &&
                              Vellmark::Admin::FindMessage(id)->role == MessageRole::Reserved;
        std::string const line = "request " + std::to_string(id) + (reserved ? " (reserved)" : "") +
                                 " from session 1: the service serves no request under this "
                                 "identifier; answered with an Error";
        EXPECT_EQ(log.CountText(line), 1u) << line;
    }
    EXPECT_EQ(log.CountText("the service serves no request"), ids.size());
}

// A client may send one-way messages the service has no use for as fast as it can: the log
// gets a line a minute, and the service keeps answering.
TEST_F(RequestDispatch, IgnoredOneWayMessagesAreLoggedOnceAMinute) {
    LogCapture log(VellmarkService::Log(), DPrint::Warning);
    for (int i = 0; i < 1000; ++i) service->ReceiveOneWay(session, 99, Undecodable());
    service->ReceiveOneWay(session, VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, Undecodable());
    // Answered, after every one-way message before it was handled.
    Response(kSentinel, IPCMessageEnvelope());
    EXPECT_EQ(log.CountText("ignored"), 1u);
    EXPECT_EQ(log.CountText("one-way message 99 from session 1 ignored"), 1u);
}

// Every request of MessageTable, with a payload that does not decode: a query is answered
// with its resource, a write is refused on its identifier's route.
TEST_F(RequestDispatch, ARequestThatDoesNotDecodeIsAnsweredOrRefusedOnItsRoute) {
    for (auto const& message : Vellmark::Admin::MessageTable()) {
        if (message.role != MessageRole::Request) continue;
        SCOPED_TRACE(message.id);
        auto const frames = Exchange(message.id, Undecodable());
        ASSERT_EQ(frames.size(), 1u);
        auto const& frame = frames[0];
        if (message.errorId != 0) {
            EXPECT_EQ(frame.kind(), IPCFrame::NOTIFICATION);
            EXPECT_EQ(frame.envelope().message_id(), message.errorId);
            auto const error = PayloadOf<VellmarkPB::Error>(frame);
            EXPECT_EQ(error.subcode(), VellmarkPB::CODE_INVALID_INPUT);
            EXPECT_EQ(static_cast<unsigned int>(error.messageid()), message.id);
            continue;
        }
        EXPECT_EQ(frame.kind(), IPCFrame::RESPONSE);
        EXPECT_EQ(frame.envelope().message_id(), message.id);
        EXPECT_EQ(frame.envelope().payload_type_name(), message.reply->name());
        if (message.errorInReply) {
            auto const reply = PayloadOf<VellmarkPB::VellmarkAcctOpEnvelope>(frame);
            EXPECT_FALSE(reply.success());
            EXPECT_EQ(reply.error().code(), 6);
            EXPECT_EQ(reply.error().subcode(), VellmarkPB::CODE_INVALID_INPUT);
            EXPECT_EQ(static_cast<unsigned int>(reply.error().messageid()), message.id);
        }
    }
}

// A refusal of the Catalog's takes the same road as one of the dispatch.
TEST_F(RequestDispatch, ACatalogRefusalTravelsOnItsIdentifiersRoute) {
    IPCMessageEnvelope nameless;
    nameless.SetPayload(VellmarkPB::serviceAccounts());
    auto const reply = PayloadOf<VellmarkPB::VellmarkAcctOpEnvelope>(
        Response(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, nameless));
    EXPECT_FALSE(reply.success());
    EXPECT_EQ(reply.error().subcode(), VellmarkPB::CODE_EMPTY_ACCOUNT_ID);

    auto const frames = Exchange(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE, nameless);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].kind(), IPCFrame::NOTIFICATION);
    EXPECT_EQ(frames[0].envelope().message_id(), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR);
    EXPECT_EQ(PayloadOf<VellmarkPB::Error>(frames[0]).subcode(), VellmarkPB::CODE_EMPTY_PERSON_ID);

    VellmarkPB::VellmarkPresets keyless;
    keyless.add_presets();
    IPCMessageEnvelope presets;
    presets.SetPayload(keyless);
    auto const stored = PayloadOf<VellmarkPB::VellmarkPresets>(
        Response(VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS, presets));
    EXPECT_EQ(stored.presets_size(), 0) << "the presets as stored, unchanged";
}

}  // namespace
