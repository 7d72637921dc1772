// Requests, responses, notifications and one-way messages over real sockets.
#include <thread>

#include "VellmarkSources.pb.h"
#include "framework/AsyncCallback.h"
#include "platform/ipc/IPCLog.h"
#include "platform/task/Task.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

class Messaging : public ::testing::Test {
protected:
    RuntimeFolder folder;
};

TEST_F(Messaging, ARequestGetsItsResponse) {
    ScriptedServer service({}, [](IPCRequest const& request) {
        request.Respond(Bytes("answer to " + request.envelope.payload()));
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);

    Inbox<std::pair<unsigned int, std::string>> responses;
    router->SendEnvelopeRequest(5, Bytes("question"), [&](IPCMessageEnvelope const& response) {
        responses.Put({response.message_id(), response.payload()});
    });
    ASSERT_TRUE(responses.WaitFor(1));
    EXPECT_EQ(responses.At(0).first, 5u);
    EXPECT_EQ(responses.At(0).second, "answer to question");
    EXPECT_EQ(service.requests.At(0).id, 5u);
    EXPECT_EQ(router->PendingRequests(), 0u);
    EXPECT_TRUE(router->IsOpen());
    EXPECT_EQ(router->Name(), "test-router");
}

TEST_F(Messaging, TypedRequestIsDeliveredOnTheCallbacksTask) {
    ScriptedServer service({}, [](IPCRequest const& request) {
        VellmarkPB::sources reply;
        reply.add_source();
        reply.add_source();
        IPCMessageEnvelope envelope;
        envelope.SetPayload(reply);
        request.Respond(envelope);
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    IL::Task task("typed");
    Inbox<std::pair<int, std::thread::id>> delivered;
    AsyncCallback<VellmarkPB::sources> callback(
        [&](VellmarkPB::sources const& s) {
            delivered.Put({s.source_size(), std::this_thread::get_id()});
        },
        &task);
    router->SendRequest(1, VellmarkPB::sources(), callback);
    ASSERT_TRUE(delivered.WaitFor(1));
    EXPECT_EQ(delivered.At(0).first, 2);
    EXPECT_EQ(delivered.At(0).second, task.ThreadId());
    EXPECT_EQ(service.requests.At(0).envelope.payload_type_name(), "sources");
}

TEST_F(Messaging, WrongPayloadTypeNameIsReportedAndNotDelivered) {
    LogCapture log(IPCLog());
    ScriptedServer service({}, [](IPCRequest const& request) {
        IPCMessageEnvelope envelope;
        envelope.SetPayload(VellmarkPB::sources());
        if (request.number == 1) envelope.set_payload_type_name("Sources");
        request.Respond(envelope);
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    IL::Task task("typed");
    Inbox<int> delivered;
    AsyncCallback<VellmarkPB::sources> first([&](auto const&) { delivered.Put(1); }, &task);
    AsyncCallback<VellmarkPB::sources> second([&](auto const&) { delivered.Put(2); }, &task);
    router->SendRequest(1, VellmarkPB::sources(), first);
    router->SendRequest(1, VellmarkPB::sources(), second);

    // Responses arrive in order, so once the second is in the first has been judged.
    ASSERT_TRUE(delivered.WaitFor(1));
    EXPECT_EQ(delivered.Values(), std::vector<int>{2});
    EXPECT_EQ(log.CountText("message 1: payload type \"Sources\" is not the expected one"), 1u);
}

TEST_F(Messaging, GarbagePayloadIsDeliveredAsWhatCouldBeParsed) {
    ScriptedServer service({}, [](IPCRequest const& request) {
        IPCMessageEnvelope envelope = Bytes("\x0a\xff\xff garbage");
        envelope.set_payload_type_name("sources");
        request.Respond(envelope);
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    IL::Task task("typed");
    Inbox<int> delivered;
    AsyncCallback<VellmarkPB::sources> callback(
        [&](VellmarkPB::sources const& s) { delivered.Put(s.source_size()); }, &task);
    router->SendRequest(1, VellmarkPB::sources(), callback);
    ASSERT_TRUE(delivered.WaitFor(1));
    EXPECT_TRUE(router->IsOpen()) << "a bad payload is the message's business, not the link's";
}

TEST_F(Messaging, ManyRequestsInFlightArePairedWithTheirOwnResponses) {
    constexpr int kThreads = 4;
    constexpr int kEach = 250;
    // The server holds every request, then answers them all in reverse order.
    std::mutex held;
    std::vector<IPCRequest> waiting;
    ScriptedServer service({}, [&](IPCRequest const& request) {
        std::lock_guard<std::mutex> lock(held);
        waiting.push_back(request);
        if (waiting.size() < kThreads * kEach) return;
        for (auto it = waiting.rbegin(); it != waiting.rend(); ++it) it->Respond(it->envelope);
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);

    Inbox<bool> matched;
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                std::string const mine = std::to_string(t) + "/" + std::to_string(i);
                router->SendEnvelopeRequest(7, Bytes(mine),
                                            [&matched, mine](IPCMessageEnvelope const& response) {
                                                matched.Put(response.payload() == mine);
                                            });
            }
        });
    }
    for (auto& sender : senders) sender.join();
    ASSERT_TRUE(matched.WaitFor(kThreads * kEach));
    auto const results = matched.Values();
    EXPECT_EQ(std::count(results.begin(), results.end(), true), kThreads * kEach);
    EXPECT_EQ(router->PendingRequests(), 0u);
}

TEST_F(Messaging, EveryRegistrationUnderAnIdentifierGetsEveryNotification) {
    ScriptedServer service;
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    Inbox<std::string> first, second, other;
    router->AttachEnvelopeHandler(8, [&](auto const& e) { first.Put(e.payload()); });
    auto secondHandle =
        router->AttachEnvelopeHandler(8, [&](auto const& e) { second.Put(e.payload()); });
    router->AttachEnvelopeHandler(9, [&](auto const& e) { other.Put(e.payload()); });
    ASSERT_TRUE(service.connected.WaitFor(1));
    auto session = service.connected.At(0);

    EXPECT_TRUE(session->Notify(8, Bytes("a")));
    EXPECT_TRUE(session->Notify(9, Bytes("b")));
    EXPECT_EQ(service.server->Broadcast(8, Bytes("c")), 1u);
    ASSERT_TRUE(first.WaitFor(2));
    ASSERT_TRUE(second.WaitFor(2));
    ASSERT_TRUE(other.WaitFor(1));
    EXPECT_EQ(first.Values(), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(second.Values(), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(other.Values(), std::vector<std::string>{"b"});

    // Ending one registration leaves the others; "e" arriving proves "d" was handled.
    secondHandle.Disconnect();
    session->Notify(8, Bytes("d"));
    session->Notify(9, Bytes("e"));
    ASSERT_TRUE(first.WaitFor(3));
    ASSERT_TRUE(other.WaitFor(2));
    EXPECT_EQ(second.Size(), 2u);
}

TEST_F(Messaging, OneWayMessagesReachTheServerInOrder) {
    ScriptedServer service;
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    for (std::string payload : {"1", "2", "3"})
        EXPECT_TRUE(router->SendEnvelope(13, Bytes(payload)));
    ASSERT_TRUE(service.messages.WaitFor(3));
    auto const messages = service.messages.Values();
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(messages[i].id, 13u);
        EXPECT_EQ(messages[i].payload, std::to_string(i + 1));
    }
    EXPECT_EQ(service.requests.Size(), 0u);
}

TEST_F(Messaging, AResponseWhoseRegistrationEndedIsDropped) {
    ScriptedServer service;  // answers nothing by itself
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    Inbox<std::string> responses;
    auto handle = router->SendEnvelopeRequest(
        3, Bytes("x"), [&](auto const& e) { responses.Put("x:" + e.payload()); });
    router->SendEnvelopeRequest(3, Bytes("y"),
                                [&](auto const& e) { responses.Put("y:" + e.payload()); });
    ASSERT_TRUE(service.requests.WaitFor(2));
    handle.Disconnect();
    EXPECT_EQ(router->PendingRequests(), 1u);
    for (auto const& request : service.requests.Values()) Echo(request);
    ASSERT_TRUE(responses.WaitFor(1));
    EXPECT_EQ(responses.Values(), std::vector<std::string>{"y:y"});
}

}  // namespace
}  // namespace Tarv::TransportTest
