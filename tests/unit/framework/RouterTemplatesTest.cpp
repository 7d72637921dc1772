// SendRequest, Attach and CallbackHelper over the fake router.
#include <gtest/gtest.h>

#include <vector>

#include "VellmarkGroups.pb.h"
#include "VellmarkSources.pb.h"
#include "framework/AsyncCallback.h"
#include "platform/testing/FakeRouter.h"
#include "platform/testing/ManualTask.h"

using namespace Tarv::Testing;

namespace {

VellmarkPB::sources SourcesWithId(std::string const& id) {
    VellmarkPB::sources list;
    auto* source = list.add_source();
    source->set_id(id);
    source->mutable_sourceproviderid()->set_text("provider");
    return list;
}

class RouterTemplates : public ::testing::Test {
protected:
    ManualTask task;
    FakeRouter router;
    std::vector<VellmarkPB::sources> received;
    AsyncCallback<VellmarkPB::sources> callback{
        [this](VellmarkPB::sources const& s) { received.push_back(s); }, &task};

    // Sends a sources request and answers it with a payload whose type name is `name`.
    void RequestAndRespondNamed(std::string const& name) {
        router.SendRequest(1u, VellmarkPB::sources(), callback);
        IPCMessageEnvelope response = EnvelopeOf(SourcesWithId("x"));
        response.set_payload_type_name(name);
        router.Respond(0, response);
        task.RunUntilIdle();
    }
};

TEST_F(RouterTemplates, SendRequestSendsTheTypedRequestUnderItsIdentifier) {
    VellmarkPB::sources request;
    router.SendRequest(1u, request, callback);
    auto sends = router.Sends();
    ASSERT_EQ(sends.size(), 1u);
    EXPECT_EQ(sends[0].id, 1u);
    EXPECT_TRUE(sends[0].expectsResponse);
    EXPECT_TRUE(sends[0].hasPayloadTypeName);
    EXPECT_EQ(sends[0].payloadTypeName, "sources");
    EXPECT_EQ(sends[0].payload, "");
    EXPECT_EQ(router.PendingRequests(), 1u);
}

TEST_F(RouterTemplates, ResponseIsDecodedAndDeliveredOnTheTask) {
    router.SendRequest(1u, VellmarkPB::sources(), callback);
    ASSERT_TRUE(router.Respond(0, SourcesWithId("abc")));
    EXPECT_TRUE(received.empty()) << "delivery goes through the task";
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].source(0).id(), "abc");
    EXPECT_EQ(router.PendingRequests(), 0u);
}

TEST_F(RouterTemplates, ResponseWithoutPayloadTypeNameIsDecodedAndDelivered) {
    router.SendRequest(1u, VellmarkPB::sources(), callback);
    IPCMessageEnvelope response = EnvelopeOf(SourcesWithId("no-name"));
    response.clear_payload_type_name();
    router.Respond(0, response);
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].source(0).id(), "no-name");
    EXPECT_EQ(router.MismatchCount(), 0);
}

TEST_F(RouterTemplates, CapitalisedTypeNameIsAMismatchReportedOnce) {
    RequestAndRespondNamed("Sources");
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_EQ(router.MismatchCount(), 1);
    ASSERT_TRUE(router.LastMismatch().has_value());
    EXPECT_EQ(router.LastMismatch()->payload_type_name(), "Sources");
    EXPECT_EQ(router.LastMismatch()->message_id(), 1u);
}

TEST_F(RouterTemplates, PresentButEmptyTypeNameIsAMismatch) {
    RequestAndRespondNamed("");
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(router.MismatchCount(), 1);
}

TEST_F(RouterTemplates, PackageQualifiedTypeNameIsAMismatch) {
    router.Attach(8u, callback);
    IPCMessageEnvelope update = EnvelopeOf(SourcesWithId("x"));
    update.set_payload_type_name("VellmarkPB.sources");
    router.Push(8u, update);
    task.RunUntilIdle();
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(router.MismatchCount(), 1);
}

TEST_F(RouterTemplates, UnparsablePayloadIsStillDelivered) {
    router.SendRequest(1u, VellmarkPB::sources(), callback);
    IPCMessageEnvelope response;
    response.set_payload_type_name("sources");
    // A length-delimited field 1 that claims more bytes than follow: not a valid message.
    response.set_payload(std::string("\x0a\x7f\x0a\x03", 4));
    router.Respond(0, response);
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(router.MismatchCount(), 0);
}

TEST_F(RouterTemplates, AttachDeliversEveryMessageUnderTheIdentifier) {
    router.Attach(8u, callback);
    EXPECT_EQ(router.AttachedIds(), (std::vector<unsigned int>{8u}));
    router.Push(8u, SourcesWithId("first"));
    router.Push(8u, SourcesWithId("second"));
    router.Push(10u, SourcesWithId("other identifier"));
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].source(0).id(), "first");
    EXPECT_EQ(received[1].source(0).id(), "second");
}

TEST_F(RouterTemplates, DroppedConnectionHandleDoesNotStopDeliveries) {
    { CallbackConnection dropped = router.Attach(8u, callback); }
    router.Push(8u, SourcesWithId("after"));
    task.RunUntilIdle();
    EXPECT_EQ(received.size(), 1u);
}

TEST_F(RouterTemplates, DisconnectEndsOneRegistration) {
    CallbackConnection connection = router.Attach(8u, callback);
    connection.Disconnect();
    EXPECT_EQ(router.Push(8u, SourcesWithId("after")), 0u);
    task.RunUntilIdle();
    EXPECT_TRUE(received.empty());
}

TEST_F(RouterTemplates, TwoAttachesUnderOneIdentifierAreIndependentRegistrations) {
    std::vector<VellmarkPB::sources> second;
    AsyncCallback<VellmarkPB::sources> other(
        [&](VellmarkPB::sources const& s) { second.push_back(s); }, &task);
    CallbackConnection first = router.Attach(8u, callback);
    router.Attach(8u, other);
    EXPECT_EQ(router.AttachedCount(8u), 2u);
    router.Push(8u, SourcesWithId("both"));
    first.Disconnect();
    router.Push(8u, SourcesWithId("second only"));
    task.RunUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[1].source(0).id(), "second only");
}

TEST_F(RouterTemplates, RegistrationKeepsTheCallbackImplementationAlive) {
    std::weak_ptr<AsyncCallbackImplBase> watch;
    {
        AsyncCallback<VellmarkPB::sources> scoped([](VellmarkPB::sources const&) {}, &task);
        watch = scoped.impl;
        router.Attach(8u, scoped);
    }
    EXPECT_FALSE(watch.expired());
    router.Stop();
    EXPECT_TRUE(watch.expired()) << "stopping the router drops its registrations";
}

TEST_F(RouterTemplates, ResponseForAnotherTypeReachesOnlyItsOwnHandler) {
    std::vector<VellmarkPB::VellmarkGroups> groups;
    AsyncCallback<VellmarkPB::VellmarkGroups> groupsCallback(
        [&](VellmarkPB::VellmarkGroups const& g) { groups.push_back(g); }, &task);
    router.SendRequest(31u, VellmarkPB::VellmarkGroups(), groupsCallback);
    router.Respond(0, SourcesWithId("wrong type"));
    task.RunUntilIdle();
    EXPECT_TRUE(groups.empty());
    EXPECT_EQ(router.MismatchCount(), 1);
}

}  // namespace

namespace {

// The identifier, not the payload type, decides which handler a message reaches: sources,
// voice-assistant accounts and MSP-host accounts all travel as `sources`.
TEST(RouterIdentifiers, SourcesReplyUnderTheVoiceAccountsIdentifierReachesOnlyItsHandler) {
    ManualTask task;
    FakeRouter router;
    int sourcesCalls = 0, voiceCalls = 0;
    AsyncCallback<VellmarkPB::sources> sources([&](VellmarkPB::sources const&) { ++sourcesCalls; },
                                               &task);
    AsyncCallback<VellmarkPB::sources> voice([&](VellmarkPB::sources const&) { ++voiceCalls; },
                                             &task);
    router.SendRequest(1u, VellmarkPB::sources(), sources);
    router.SendRequest(6u, VellmarkPB::sources(), voice);
    router.Respond(1, SourcesWithId("voice account"));
    task.RunUntilIdle();
    EXPECT_EQ(voiceCalls, 1);
    EXPECT_EQ(sourcesCalls, 0);
}

TEST(RouterIdentifiers, SourcesUpdateUnderTheVoiceAccountsIdentifierReachesOnlyItsHandler) {
    ManualTask task;
    FakeRouter router;
    int sourcesCalls = 0, voiceCalls = 0;
    router.Attach(8u, AsyncCallback<VellmarkPB::sources>(
                          [&](VellmarkPB::sources const&) { ++sourcesCalls; }, &task));
    router.Attach(10u, AsyncCallback<VellmarkPB::sources>(
                           [&](VellmarkPB::sources const&) { ++voiceCalls; }, &task));
    router.Push(10u, SourcesWithId("voice account"));
    task.RunUntilIdle();
    EXPECT_EQ(voiceCalls, 1);
    EXPECT_EQ(sourcesCalls, 0);
}

}  // namespace
