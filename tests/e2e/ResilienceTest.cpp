// The client and the service through restarts, kills, dropped connections and the
// failures a developer asks for.
#include <signal.h>

#include <algorithm>
#include <set>

#include "client/VellmarkClientLog.h"
#include "platform/log/Redact.h"
#include "platform/testing/LogCapture.h"
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class Resilience : public ServiceTest {};

template <class T>
Callback<T> Into(std::shared_ptr<Inbox<T>> const& inbox) {
    return [inbox](T const& value) { inbox->Put(value); };
}

TEST_F(Resilience, CallsMadeBeforeTheServiceStartsAreAnsweredOnceItStarts) {
    auto sources = std::make_shared<Inbox<VellmarkPB::sources>>();
    auto stored = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    auto updates = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    auto created = std::make_shared<Inbox<VellmarkPB::serviceAccounts>>();
    Client().SubscribePresetsRequest("", Into(updates));
    Client().GetSources(Into(sources));
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key("4");
    Client().StorePresets(presets, Into(stored));
    VellmarkPB::serviceAccounts account;
    account.set_accountid("acct-early");
    Client().CreateServiceAccount(account, Into(created), nullptr);

    StartService();
    ASSERT_TRUE(sources->WaitFor(1, kBound));
    EXPECT_TRUE(Same(sources->At(0), SeedDocument().sources()));
    ASSERT_TRUE(stored->WaitFor(1, kBound));
    EXPECT_EQ(stored->At(0).presets_size(), 3);
    ASSERT_TRUE(created->WaitFor(1, kBound));
    EXPECT_EQ(created->At(0).accountid(), "acct-early");
    // The queued subscription is in place too: the stored presets reached it.
    ASSERT_TRUE(updates->WaitFor(1, kBound));
}

TEST_F(Resilience, AKilledServiceRestartsWithItsDataAndAnswersWhatWasQueued) {
    LogCapture log(VellmarkClientLog(), DPrint::Flow);
    StartService();
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key("9");
    auto stored = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    Client().StorePresets(presets, Into(stored));
    auto created = std::make_shared<Inbox<VellmarkPB::serviceAccounts>>();
    VellmarkPB::serviceAccounts account;
    account.set_accountid("acct-before-kill");
    Client().CreateServiceAccount(account, Into(created), nullptr);
    ASSERT_TRUE(stored->WaitFor(1, kBound));
    ASSERT_TRUE(created->WaitFor(1, kBound));

    KillService();
    // Once the client has noticed the loss, what it is asked is queued.
    ASSERT_TRUE(log.WaitForText("Received disconnect event", 1, kBound));
    auto presetsAfter = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    auto accountsAfter = std::make_shared<Inbox<VellmarkPB::serviceAccounts>>();
    Client().GetPresets(Into(presetsAfter));
    account.set_accountid("acct-after-restart");
    Client().CreateServiceAccount(account, Into(accountsAfter), nullptr);
    ASSERT_TRUE(
        log.WaitForText("Not connected, queuing call to CreateServiceAccountACcount", 1, kBound));

    StartService(false);
    ASSERT_TRUE(presetsAfter->WaitFor(1, kBound));
    EXPECT_TRUE(Same(presetsAfter->At(0), stored->At(0)));
    ASSERT_TRUE(accountsAfter->WaitFor(1, kBound));

    auto const accounts = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    std::vector<std::string> ids;
    for (auto const& a : accounts.serviceaccounts()) ids.push_back(a.accountid());
    EXPECT_NE(std::find(ids.begin(), ids.end(), "acct-before-kill"), ids.end());
    EXPECT_NE(std::find(ids.begin(), ids.end(), "acct-after-restart"), ids.end());
}

TEST_F(Resilience, NothingAcknowledgedIsLostWhenTheServiceIsKilledDuringAStreamOfWrites) {
    StartService(false);
    // One account after another, each sent once the previous one was acknowledged; the
    // service is killed while they keep coming.
    struct Stream {
        std::mutex mutex;
        std::vector<std::string> acknowledged;
        int sent = 0;
    };
    auto stream = std::make_shared<Stream>();
    auto acknowledged = std::make_shared<Inbox<bool>>();
    auto const send = std::make_shared<std::function<void()>>();
    VellmarkClientAPI* client = &Client();
    *send = [stream, acknowledged, send, client] {
        VellmarkPB::serviceAccounts account;
        {
            std::lock_guard<std::mutex> lock(stream->mutex);
            account.set_accountid("acct-stream-" + std::to_string(++stream->sent));
        }
        std::weak_ptr<std::function<void()>> next = send;
        client->CreateServiceAccount(
            account,
            [stream, acknowledged, next](VellmarkPB::serviceAccounts const& stored) {
                {
                    std::lock_guard<std::mutex> lock(stream->mutex);
                    stream->acknowledged.push_back(stored.accountid());
                }
                acknowledged->Put(true);
                if (auto again = next.lock()) (*again)();
            },
            nullptr);
    };
    (*send)();
    ASSERT_TRUE(acknowledged->WaitFor(40, kBound));
    KillService();
    std::vector<std::string> confirmed;
    {
        std::lock_guard<std::mutex> lock(stream->mutex);
        confirmed = stream->acknowledged;
    }

    StartService(false);
    auto const kept = AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts");
    std::set<std::string> ids;
    for (auto const& account : kept.serviceaccounts()) ids.insert(account.accountid());
    EXPECT_GE(ids.size(), confirmed.size());
    for (auto const& id : confirmed) EXPECT_EQ(ids.count(id), 1u) << id << " was lost";
    *send = nullptr;
}

TEST_F(Resilience, DroppedConnectionsComeBack) {
    StartService();
    LogCapture log(VellmarkClientLog(), DPrint::Flow);
    WaitUntilConnected();
    {
        AdminClient admin(kBound);
        Vellmark::Admin::Request drop;
        drop.set_dropconnections(true);
        EXPECT_EQ(admin.Command(drop), "{\"dropped\":1}");
    }
    ASSERT_TRUE(log.WaitForText("Received disconnect event", 1, kBound));
    WaitUntilConnected();
    AdminClient admin(kBound);
    Vellmark::Admin::Request list;
    list.set_listclients(true);
    Vellmark::Admin::ClientList clients;
    ASSERT_EQ(Vellmark::Json::Parse(admin.Command(list), clients), "");
    ASSERT_EQ(clients.clients_size(), 1);
    EXPECT_EQ(clients.clients(0).pid(), ::getpid());
    EXPECT_EQ(clients.clients(0).uid(), ::getuid());
}

TEST_F(Resilience, PlannedFailuresAreAnsweredAsAskedThenServiceResumes) {
    StartService();
    WaitUntilConnected();
    AdminClient admin(kBound);
    Vellmark::Admin::Request plan;
    plan.mutable_failnext()->set_messageid(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    plan.mutable_failnext()->set_count(1);
    plan.mutable_failnext()->mutable_error()->set_code(5);
    plan.mutable_failnext()->mutable_error()->set_message("cloud unreachable");
    admin.Command(plan);

    auto created = std::make_shared<Inbox<VellmarkPB::serviceAccounts>>();
    auto errors = std::make_shared<Inbox<VellmarkPB::Error>>();
    Client().CreateGVAAccount("person-a41d07bb", "jonas@example.com", "d", Into(created),
                              Into(errors));
    ASSERT_TRUE(errors->WaitFor(1, kBound));
    EXPECT_EQ(errors->At(0).message(), "cloud unreachable");
    EXPECT_EQ(errors->At(0).messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    // The plan was for one request: the next is served.
    Client().CreateGVAAccount("person-a41d07bb", "jonas@example.com", "d", Into(created),
                              Into(errors));
    ASSERT_TRUE(created->WaitFor(1, kBound));
    EXPECT_EQ(errors->Size(), 1u);

    // A query left unanswered, then a delayed one: the delayed answer still arrives.
    plan.mutable_failnext()->set_messageid(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES);
    plan.mutable_failnext()->clear_error();
    admin.Command(plan);
    Vellmark::Admin::Request delay;
    delay.mutable_delay()->set_milliseconds(50);
    admin.Command(delay);
    auto sources = std::make_shared<Inbox<VellmarkPB::sources>>();
    Client().GetSources(Into(sources));
    Client().GetSources(Into(sources));
    ASSERT_TRUE(sources->WaitFor(1, kBound));
    WaitUntilConnected();  // a later answer: the dropped request will not come after all
    EXPECT_EQ(sources->Size(), 1u);

    // A query has no error path: an Error for it is refused.
    plan.mutable_failnext()->mutable_error()->set_code(5);
    EXPECT_FALSE(admin.Call(plan).ok());
}

TEST_F(Resilience, TheMonitorShowsFramesWithIdentifiersMasked) {
    StartService();
    AdminClient admin(kBound);
    auto events = std::make_shared<Inbox<Vellmark::Admin::TrafficEvent>>();
    admin.Monitor([events](Vellmark::Admin::TrafficEvent const& event) { events->Put(event); });
    auto sources = std::make_shared<Inbox<VellmarkPB::sources>>();
    Client().GetSources(Into(sources));
    ASSERT_TRUE(sources->WaitFor(1, kBound));
    ASSERT_TRUE(events->WaitFor(2, kBound));
    auto const request = events->At(0);
    EXPECT_EQ(request.direction(), "in");
    EXPECT_EQ(request.kind(), "request");
    EXPECT_EQ(request.messagename(), "VELLMARK_MESSAGE_GET_SOURCES");
    auto const response = events->At(1);
    EXPECT_EQ(response.direction(), "out");
    EXPECT_EQ(response.messageid(), 1u);
    EXPECT_EQ(response.payloadtype(), "sources");
    EXPECT_EQ(response.payloadjson().find("acct-aurora-55102938"), std::string::npos);
    EXPECT_NE(response.payloadjson().find(Redact::RedactID("acct-aurora-55102938", '-')),
              std::string::npos)
        << response.payloadjson();
    EXPECT_NE(response.payloadjson().find("Aurora Radio"), std::string::npos);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
