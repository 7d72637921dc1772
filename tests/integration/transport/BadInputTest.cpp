// Bytes no router would send: each closes its own connection with one log line, and the
// other connections, and the server, go on.
#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

std::string Varint(std::uint64_t value) {
    std::string out;
    while (value >= 0x80) {
        out.push_back(static_cast<char>(value | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<char>(value));
    return out;
}

class BadInput : public ::testing::Test {
protected:
    // The server still answers a well-behaved client.
    void ExpectServerStillServes() {
        ClientEnd client;
        auto router = client.Connect();
        ASSERT_NE(router, nullptr);
        Inbox<std::string> answers;
        router->SendEnvelopeRequest(1, Bytes("ok?"),
                                    [&](auto const& e) { answers.Put(e.payload()); });
        ASSERT_TRUE(answers.WaitFor(1));
        EXPECT_EQ(answers.At(0), "ok?");
    }

    RuntimeFolder folder;
    LogCapture log{IPCLog()};
    ScriptedServer service{{}, Echo};
};

TEST_F(BadInput, FrameOverTheLimitClosesTheConnectionAtItsLength) {
    RawClient raw;
    ASSERT_TRUE(raw.connected);
    // Only the length is sent: the server must not wait for a body it will not take.
    ASSERT_TRUE(raw.Write(Varint(Tarv::kMaxFrameBytes + 1)));
    EXPECT_TRUE(raw.SeesEnd());
    ASSERT_TRUE(log.WaitForText("is over the limit of 1048576 bytes; closing"));
    EXPECT_EQ(log.CountText("over the limit"), 1u);
    EXPECT_EQ(service.requests.Size(), 0u);
    ExpectServerStillServes();
}

TEST_F(BadInput, FrameThatDoesNotParseClosesTheConnection) {
    RawClient raw;
    ASSERT_TRUE(raw.connected);
    std::string const garbage = "\xff\xff\xff\xff\xff\xff\xff\xff";
    ASSERT_TRUE(raw.Write(Varint(garbage.size()) + garbage));
    EXPECT_TRUE(raw.SeesEnd());
    ASSERT_TRUE(log.WaitForText("frame does not parse; closing"));
    EXPECT_EQ(log.CountText("does not parse"), 1u);
    ExpectServerStillServes();
}

TEST_F(BadInput, FrameWithoutItsKindIsRefused) {
    RawClient raw;
    ASSERT_TRUE(raw.connected);
    Tarv::IPCFrame frame;
    frame.mutable_envelope()->set_message_id(1);
    std::string bytes;
    ASSERT_TRUE(Tarv::AppendFrame(frame, bytes));
    ASSERT_TRUE(raw.Write(bytes));
    EXPECT_TRUE(raw.SeesEnd());
    EXPECT_TRUE(log.WaitForText("frame does not parse; closing"));
    EXPECT_EQ(service.requests.Size(), 0u);
}

TEST_F(BadInput, TruncatedFrameIsDroppedWhenThePeerLeaves) {
    {
        RawClient raw;
        ASSERT_TRUE(raw.connected);
        ASSERT_TRUE(service.connected.WaitFor(1));
        ASSERT_TRUE(raw.Write(Varint(100) + std::string(10, 'x')));
    }
    ASSERT_TRUE(service.disconnected.WaitFor(1));
    EXPECT_TRUE(log.WaitForText("connection ended inside a frame (11 bytes)"));
    EXPECT_EQ(service.requests.Size(), 0u);
    EXPECT_TRUE(service.server->Sessions().empty());
    ExpectServerStillServes();
}

TEST_F(BadInput, FrameSplitAcrossWritesIsReassembled) {
    RawClient raw;
    ASSERT_TRUE(raw.connected);
    Tarv::IPCFrame frame;
    frame.set_kind(Tarv::IPCFrame::ONE_WAY);
    frame.mutable_envelope()->set_message_id(13);
    frame.mutable_envelope()->set_payload(std::string(300, 'p'));
    std::string bytes;
    ASSERT_TRUE(Tarv::AppendFrame(frame, bytes));
    for (char byte : bytes) ASSERT_TRUE(raw.Write(std::string(1, byte)));
    ASSERT_TRUE(service.messages.WaitFor(1));
    EXPECT_EQ(service.messages.At(0).payload, std::string(300, 'p'));
}

TEST_F(BadInput, OversizedFrameFromTheServerDropsTheClientsConnectionAndItReconnects) {
    // This server may send frames larger than a client takes.
    service.server.reset();
    IPCServer::Options generous;
    generous.limits.maxFrameBytes = 2 * Tarv::kMaxFrameBytes;
    ScriptedServer big(generous, [](IPCRequest const& request) {
        request.Respond(Bytes(std::string(Tarv::kMaxFrameBytes + 10, 'x')));
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    Inbox<int> answered;
    router->SendEnvelopeRequest(1, Bytes("big"), [&](auto const&) { answered.Put(1); });
    ASSERT_TRUE(client.disconnects.WaitFor(1));
    EXPECT_TRUE(log.WaitForText("over the limit of 1048576 bytes; closing"));
    EXPECT_EQ(answered.Size(), 0u);
    ASSERT_TRUE(client.sockets.WaitFor(2)) << "the listener connects again";
}

TEST_F(BadInput, FrameTooLargeToSendIsRefusedAndTheConnectionStays) {
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    EXPECT_FALSE(router->SendEnvelope(13, Bytes(std::string(Tarv::kMaxFrameBytes + 1, 'x'))));
    EXPECT_TRUE(log.WaitForText("is over the limit of 1048576 bytes; not sent"));
    EXPECT_TRUE(router->IsOpen());
    EXPECT_TRUE(router->SendEnvelope(13, Bytes("small")));
    ASSERT_TRUE(service.messages.WaitFor(1));
    EXPECT_EQ(service.messages.At(0).payload, "small");
}

}  // namespace
}  // namespace Tarv::TransportTest
