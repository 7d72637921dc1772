// The client end to end over the real transport, against a scripted service in this
// process: queries, subscriptions with their acknowledgement, calls made before the
// service exists, and a service restart.
#include <thread>

#include "VellmarkMessageId.pb.h"
#include "client/VellmarkClientAPI.h"
#include "client/VellmarkClientLog.h"
#include "platform/task/Task.h"
#include "platform/testing/LogCapture.h"
#include "tests/integration/transport/TransportTestSupport.h"

using namespace Tarv::Testing;

namespace Tarv::TransportTest {
namespace {

constexpr char kVellmark[] = "Vellmark";

VellmarkPB::sources Sources(std::vector<std::string> const& ids) {
    VellmarkPB::sources sources;
    for (auto const& id : ids) {
        auto* source = sources.add_source();
        source->set_id(id);
        source->set_type("Audio");
        source->mutable_name()->set_text("Source " + id);
    }
    return sources;
}

VellmarkPB::VellmarkPresets Presets(std::vector<std::string> const& keys) {
    VellmarkPB::VellmarkPresets presets;
    for (auto const& key : keys) presets.add_presets()->set_key(key);
    return presets;
}

IPCMessageEnvelope EnvelopeOf(google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return envelope;
}

// Answers the way the service does: the current sources and presets; stored presets
// become the current ones and are announced to every connection.
class Script {
public:
    void operator()(IPCRequest const& request) {
        std::lock_guard<std::mutex> lock(m_mutex);
        switch (request.id) {
            case VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES:
                request.Respond(EnvelopeOf(sources));
                break;
            case VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS:
                request.Respond(EnvelopeOf(presets));
                break;
            case VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS:
                request.envelope.GetPayload(presets);
                request.session->Notify(VellmarkPB::VELLMARK_MESSAGE_PRESETS_UPDATE,
                                        EnvelopeOf(presets));
                request.Respond(EnvelopeOf(presets));
                break;
            default:
                break;  // left unanswered
        }
    }

    VellmarkPB::sources sources = Sources({"1", "2"});
    VellmarkPB::VellmarkPresets presets = Presets({"1"});

private:
    std::mutex m_mutex;
};

class ClientOverSockets : public ::testing::Test {
protected:
    void StartService() {
        service = std::make_unique<ScriptedServer>(
            IPCServer::Options(), [this](IPCRequest const& r) { script(r); }, kVellmark);
    }
    void MakeClient() { client = std::make_unique<VellmarkClientAPI>(&task); }

    // Callbacks run on the client's task; they record what they got and where.
    template <class T>
    Callback<T> Into(Inbox<T>& inbox) {
        return [this, &inbox](T const& value) {
            if (!task.RunsOnCurrentThread()) ADD_FAILURE() << "callback off the client's task";
            inbox.Put(value);
        };
    }

    RuntimeFolder folder;
    LogCapture log{VellmarkClientLog(), DPrint::Flow};
    Script script;
    IL::Task task{"client"};
    std::unique_ptr<ScriptedServer> service;
    std::unique_ptr<VellmarkClientAPI> client;  // last: gone before the task and the service
};

TEST_F(ClientOverSockets, QueryIsAnswered) {
    StartService();
    MakeClient();
    Inbox<VellmarkPB::sources> got;
    client->GetSources(Into(got));
    ASSERT_TRUE(got.WaitFor(1));
    ASSERT_EQ(got.At(0).source_size(), 2);
    EXPECT_EQ(got.At(0).source(1).name().text(), "Source 2");
    EXPECT_TRUE(client->IsConnected());
    ASSERT_EQ(service->requests.Size(), 1u);
    EXPECT_EQ(service->requests.At(0).id, unsigned(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES));
}

TEST_F(ClientOverSockets, SubscriptionGetsUpdatesAndAcknowledgesEach) {
    StartService();
    MakeClient();
    Inbox<VellmarkPB::sources> updates, answered;
    client->SubscribeSourcesRequest("", Into(updates));
    // The task runs calls in order: once this is answered the subscription is attached.
    client->GetSources(Into(answered));
    ASSERT_TRUE(answered.WaitFor(1));

    EXPECT_EQ(service->server->Broadcast(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE,
                                         EnvelopeOf(Sources({"7"}))),
              1u);
    EXPECT_EQ(service->server->Broadcast(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE,
                                         EnvelopeOf(Sources({"8", "9"}))),
              1u);
    ASSERT_TRUE(updates.WaitFor(2));
    EXPECT_EQ(updates.At(0).source(0).id(), "7");
    EXPECT_EQ(updates.At(1).source_size(), 2);

    ASSERT_TRUE(service->messages.WaitFor(2));
    for (auto const& message : service->messages.Values()) {
        EXPECT_EQ(message.id, unsigned(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED));
        VellmarkPB::CloudSyncReceived acknowledgement;
        ASSERT_TRUE(acknowledgement.ParseFromString(message.payload));
        EXPECT_EQ(acknowledgement.messageid(), VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE);
    }
}

TEST_F(ClientOverSockets, CallsMadeBeforeTheServiceExistsAreSentOnceItStarts) {
    MakeClient();
    Inbox<VellmarkPB::VellmarkPresets> presets, stored, announced;
    Inbox<VellmarkPB::sources> sources;
    client->SubscribePresetsRequest("", Into(announced));
    client->GetPresets(Into(presets));
    client->StorePresets(Presets({"1", "2", "3"}), Into(stored));
    client->GetSources(Into(sources));
    ASSERT_TRUE(log.WaitForText("Not connected", 3)) << "the calls wait in the client";
    EXPECT_FALSE(client->IsConnected());

    StartService();
    ASSERT_TRUE(sources.WaitFor(1));
    ASSERT_TRUE(presets.WaitFor(1));
    ASSERT_TRUE(stored.WaitFor(1));
    ASSERT_TRUE(announced.WaitFor(1));
    EXPECT_EQ(presets.At(0).presets_size(), 1) << "asked before the store";
    EXPECT_EQ(stored.At(0).presets_size(), 3);
    EXPECT_EQ(announced.At(0).presets_size(), 3);
    std::vector<unsigned> order;
    for (auto const& request : service->requests.Values()) order.push_back(request.id);
    EXPECT_EQ(order, (std::vector<unsigned>{VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS,
                                            VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS,
                                            VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES}));
    ASSERT_TRUE(service->messages.WaitFor(1));
    EXPECT_EQ(service->messages.At(0).id,
              unsigned(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED));
}

TEST_F(ClientOverSockets, ServiceRestartIsSurvived) {
    StartService();
    MakeClient();
    Inbox<VellmarkPB::sources> before;
    client->GetSources(Into(before));
    ASSERT_TRUE(before.WaitFor(1));

    service.reset();
    ASSERT_TRUE(log.WaitForText("Received disconnect event. Disconnecting..."));
    Inbox<VellmarkPB::sources> during, updates;
    client->GetSources(Into(during));
    ASSERT_TRUE(log.WaitForText("Not connected"));

    script.sources = Sources({"after"});
    StartService();
    ASSERT_TRUE(during.WaitFor(1)) << "the queued call is sent on the new connection";
    EXPECT_EQ(during.At(0).source(0).id(), "after");

    // Subscriptions are renewed by subscribing again on the new connection.
    Inbox<VellmarkPB::sources> answered;
    client->SubscribeSourcesRequest("", Into(updates));
    client->GetSources(Into(answered));
    ASSERT_TRUE(answered.WaitFor(1));
    service->server->Broadcast(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE,
                               EnvelopeOf(Sources({"pushed"})));
    ASSERT_TRUE(updates.WaitFor(1));
    EXPECT_EQ(updates.At(0).source(0).id(), "pushed");
}

}  // namespace
}  // namespace Tarv::TransportTest
