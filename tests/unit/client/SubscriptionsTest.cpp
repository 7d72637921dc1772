// The subscriptions: registration, update handling and the cloud-sync acknowledgement.
#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using Ids = std::vector<unsigned int>;

class Subscriptions : public ClientTest {
protected:
    void SetUp() override {
        router = Connect();
        log.Clear();
    }
    // The identifiers named by the acknowledgements sent so far.
    Ids Acknowledged() const {
        Ids ids;
        auto sends = router->Sends();
        for (std::size_t i = 0; i < sends.size(); ++i) {
            if (sends[i].id != 13) continue;
            EXPECT_FALSE(sends[i].expectsResponse);
            EXPECT_EQ(sends[i].payloadTypeName, "CloudSyncReceived");
            ids.push_back(router->SentPayload<VellmarkPB::CloudSyncReceived>(i).messageid());
        }
        return ids;
    }
    std::shared_ptr<FakeRouter> router;
};

TEST_F(Subscriptions, SubscribeSourcesIgnoresItsStringArgument) {
    client->SubscribeSourcesRequest("", {});
    task.RunUntilIdle();
    auto const withEmpty = Lines();
    log.Clear();
    client->SubscribeSourcesRequest("any text at all", {});
    task.RunUntilIdle();
    EXPECT_EQ(Lines(), withEmpty);
    EXPECT_EQ(
        withEmpty,
        (ClientLines{
            ClientLine(DPrint::Flow, "SubscribeSourcesRequest", "SubscribeSourcesRequest"),
            ClientLine(DPrint::Flow, "operator()", "lambda in void SubscribeSourcesRequest")}));
    EXPECT_EQ(router->AttachedCount(8), 2u);
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(Subscriptions, SourcesUpdateCallsTheCallbackThenAcknowledgesThenLogs) {
    std::size_t sendsDuringCallback = 99;
    int linesDuringCallback = -1;
    client->SubscribeSourcesRequest("", [&](VellmarkPB::sources const&) {
        sendsDuringCallback = router->Sends().size();
        linesDuringCallback = static_cast<int>(Lines().size());
    });
    task.RunUntilIdle();
    log.Clear();
    ASSERT_EQ(router->Push(8, OneSource("a")), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(sendsDuringCallback, 0u) << "the acknowledgement follows the callback";
    EXPECT_EQ(Acknowledged(), Ids{8});
    auto lines = Lines();
    ASSERT_GE(linesDuringCallback, 2);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "AcceptSourcesSubscribe",
                                   "AcceptSourcesSubscribe. Printing received sources "));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "PrintSourcesProtobuf", "PrintSourcesProtobuf"));
    EXPECT_EQ(ClientLines(lines.begin() + linesDuringCallback, lines.end()),
              (ClientLines{ClientLine(DPrint::Flow, "AcceptSourcesSubscribe",
                                      "subscriber with message: VELLMARK_MESSAGE_SOURCES_UPDATE "
                                      "received update. Message id= 8"),
                           ClientLine(DPrint::Flow, "AcceptSourcesSubscribe",
                                      "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event")}));
}

TEST_F(Subscriptions, ProductSettingsUpdateIsAcknowledgedWith11) {
    int calls = 0;
    client->SubscribeProductSettingsRequest("x",
                                            [&](VellmarkPB::ProductSettings const&) { ++calls; });
    task.RunUntilIdle();
    log.Clear();
    router->Push(11, VellmarkPB::ProductSettings());
    task.RunUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Acknowledged(), Ids{11});
    EXPECT_EQ(Lines().back(),
              ClientLine(DPrint::Flow, "AcceptProductSettingsSubscribe",
                         "Sent CloudSync received response to server: "
                         "VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE received update. Message id= "
                         "11"));
    EXPECT_EQ(Lines().front(), ClientLine(DPrint::Flow, "AcceptProductSettingsSubscribe",
                                          "AcceptProductSettingsSubscribe"));
}

TEST_F(Subscriptions, AssociationUpdateWithoutACallbackDoesNothingAtAll) {
    client->SubscribeIsAssociatedWithAccountRequest({});
    task.RunUntilIdle();
    log.Clear();
    ASSERT_EQ(router->Push(12, VellmarkPB::AccountAssociated()), 1u);
    task.RunUntilIdle();
    EXPECT_TRUE(Lines().empty());
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(Subscriptions, AssociationUpdateWithACallbackCallsItAndSendsNothing) {
    std::vector<int> statuses;
    client->SubscribeIsAssociatedWithAccountRequest(
        [&](VellmarkPB::AccountAssociated const& a) { statuses.push_back(a.status()); });
    task.RunUntilIdle();
    log.Clear();
    VellmarkPB::AccountAssociated update;
    update.set_status(VellmarkPB::ASSOCIATED);
    router->Push(12, update);
    task.RunUntilIdle();
    EXPECT_EQ(statuses, std::vector<int>{VellmarkPB::ASSOCIATED});
    EXPECT_TRUE(Lines().empty());
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(Subscriptions, HostAccountSubscriptionWhileDisconnectedIsQueuedAndNeverRegistered) {
    driver.Disconnect();
    task.RunUntilIdle();
    int calls = 0;
    client->SubscribeMspHostAccountsRequest([&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    auto second = Connect();
    EXPECT_EQ(second->AttachedCount(29), 0u);
    EXPECT_EQ(second->Push(29, OneSource("h")), 0u);
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
}

TEST_F(Subscriptions, GroupsSubscriptionWhileConnectedAnnouncesItselfWithTheHostAccountText) {
    client->SubscribeGroupsRequest({});
    task.RunUntilIdle();
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Flow, "operator()",
                                               "connected, Attach request to "
                                               "AcceptMspHostAccountsSubscribe")}));
    EXPECT_EQ(router->AttachedCount(32), 1u);
    EXPECT_TRUE(router->Sends().empty()) << "no groups query on a direct registration";
}

TEST_F(Subscriptions, SecondVoiceAccountsSubscriptionReplacesAndDestroysTheFirstCallback) {
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> first = token;
    int firstCalls = 0, secondCalls = 0;
    client->SubscribeVoiceAccountsRequest(
        [&firstCalls, token](VellmarkPB::sources const&) { ++firstCalls; });
    token.reset();
    task.RunUntilIdle();
    client->SubscribeVoiceAccountsRequest([&](VellmarkPB::sources const&) { ++secondCalls; });
    EXPECT_FALSE(first.expired()) << "replaced on the task, not on the caller's thread";
    task.RunUntilIdle();
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(router->Push(10, OneSource("v")), 2u);
    task.RunUntilIdle();
    EXPECT_EQ(firstCalls, 0);
    EXPECT_EQ(secondCalls, 2) << "both registrations call the one stored callback";
    EXPECT_EQ(Acknowledged(), (Ids{10, 10}));
}

TEST_F(Subscriptions, UpdateWithoutAStoredCallbackIsLoggedAndDumpedButNotAcknowledged) {
    client->SubscribeSourcesRequest("", {});
    task.RunUntilIdle();
    log.Clear();
    router->Push(8, OneSource("a"));
    task.RunUntilIdle();
    EXPECT_TRUE(router->Sends().empty());
    EXPECT_EQ(Lines().front(), ClientLine(DPrint::Flow, "AcceptSourcesSubscribe",
                                          "AcceptSourcesSubscribe. Printing received sources "));
    EXPECT_NE(IndexOf(ClientLine(DPrint::Detail, "PrintSourcesProtobuf", " source id: a")), -1);
}

TEST_F(Subscriptions, UpdateWithTheWrongPayloadTypeIsNeitherHandledNorAcknowledged) {
    int calls = 0;
    client->SubscribeSourcesRequest("", [&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    router->Push(8, VellmarkPB::persons());
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(router->MismatchCount(), 1);
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(Subscriptions, CallbackThatThrowsLeavesBeforeTheAcknowledgement) {
    client->SubscribeSourcesRequest(
        "", [](VellmarkPB::sources const&) { throw std::runtime_error("caller failed"); });
    task.RunUntilIdle();
    router->Push(8, OneSource("a"));
    EXPECT_THROW(task.RunUntilIdle(), std::runtime_error);
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(Subscriptions, QueuedGroupsSubscriptionIsAttachedAndGetsTheCurrentGroupsAtOnce) {
    driver.Disconnect();
    task.RunUntilIdle();
    std::vector<std::string> got;
    client->SubscribeGroupsRequest(
        [&](VellmarkPB::VellmarkGroups const& g) { got.push_back(g.groups(0).groupid()); });
    task.RunUntilIdle();
    log.Clear();
    auto second = Connect();
    EXPECT_NE(IndexOf(ClientLine(DPrint::Info, "AttachToIPCServer",
                                 "Attaching to SubscribeGroupsRequest")),
              -1);
    EXPECT_EQ(second->AttachedIds(), (Ids{32, 19, 20, 22}));
    ASSERT_EQ(second->Sends().size(), 1u);
    EXPECT_EQ(second->Sends()[0].id, 31u);
    VellmarkPB::VellmarkGroups current;
    current.add_groups()->set_groupid("g1");
    second->Respond(0, current);
    task.RunUntilIdle();
    EXPECT_EQ(got, std::vector<std::string>{"g1"});
}

struct UpdateCase {
    std::string name;
    std::function<void(VellmarkClientAPI&, int&)> subscribe;
    unsigned int id;
    std::function<IPCMessageEnvelope()> update;
    ClientLines handlerLines;  // the handler's own lines, in order, dump lines left out
};

void PrintTo(UpdateCase const& c, std::ostream* out) {
    *out << c.name;
}

std::vector<UpdateCase> UpdateCases() {
    using C = VellmarkClientAPI;
    using namespace VellmarkPB;
    auto line = [](DPrint::Level l, std::string f, std::string t) { return ClientLine(l, f, t); };
    auto sent = [](std::string name, int id) {
        return "Sent CloudSync received response to server: " + name +
               " received update. Message id= " + std::to_string(id);
    };
    return {
        {"VoiceAccounts",
         [](C& c, int& n) { c.SubscribeVoiceAccountsRequest(Counting<sources>(n)); },
         10,
         [] { return EnvelopeOf(sources()); },
         {line(DPrint::Flow, "AcceptVoiceAccountsSubscribe",
               "AcceptVoiceAccountsSubscribe. Printing received Voice Accounts"),
          line(DPrint::Flow, "AcceptVoiceAccountsSubscribe",
               sent("VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE", 10))}},
        {"MspHostAccounts",
         [](C& c, int& n) { c.SubscribeMspHostAccountsRequest(Counting<sources>(n)); },
         29,
         [] { return EnvelopeOf(sources()); },
         {line(DPrint::Flow, "AcceptMspHostAccountsSubscribe",
               "AcceptMspHostAccountsSubscribe. Printing received MspHost Accounts"),
          line(DPrint::Flow, "AcceptMspHostAccountsSubscribe",
               sent("VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE", 29))}},
        {"PersonsInfo",
         [](C& c, int& n) { c.SubscribePersonsInfoRequest("", Counting<persons>(n)); },
         9,
         [] { return EnvelopeOf(persons()); },
         {line(DPrint::Info, "AcceptPersonsInfoSubscribe", "AcceptPersonsInfoSubscribe"),
          line(DPrint::Flow, "AcceptPersonsInfoSubscribe",
               sent("VELLMARK_MESSAGE_PERSONS_UPDATE", 9))}},
        {"Groups",
         [](C& c, int& n) { c.SubscribeGroupsRequest(Counting<VellmarkGroups>(n)); },
         32,
         [] { return EnvelopeOf(VellmarkGroups()); },
         {line(DPrint::Flow, "AcceptGroupsSubscribe",
               "AcceptGroupsSubscribe. Printing received Groups"),
          line(DPrint::Flow, "AcceptGroupsSubscribe", sent("VELLMARK_MESSAGE_GROUPS_UPDATE", 32))}},
        {"Presets",
         [](C& c, int& n) { c.SubscribePresetsRequest("", Counting<VellmarkPresets>(n)); },
         7,
         [] { return EnvelopeOf(VellmarkPresets()); },
         {line(DPrint::Detail, "AcceptPresetsSubscribe", "AcceptPresetsSubscribe"),
          line(DPrint::Detail, "AcceptPresetsSubscribe",
               "subscriber with message: VELLMARK_MESSAGE_PRESETS_UPDATE received update. "
               "Message id= 7"),
          line(DPrint::Flow, "AcceptPresetsSubscribe",
               "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event")}},
    };
}

class EachUpdate : public Subscriptions, public ::testing::WithParamInterface<UpdateCase> {};

TEST_P(EachUpdate, IsHandedToTheCallbackAndAcknowledgedUnderItsOwnIdentifier) {
    int calls = 0;
    GetParam().subscribe(*client, calls);
    task.RunUntilIdle();
    EXPECT_EQ(router->AttachedCount(GetParam().id), 1u);
    log.Clear();
    ASSERT_EQ(router->Push(GetParam().id, GetParam().update()), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Acknowledged(), Ids{GetParam().id});
    ClientLines own;
    for (auto const& line : Lines()) {
        if (line.function == GetParam().handlerLines.front().function) own.push_back(line);
    }
    EXPECT_EQ(own, GetParam().handlerLines);
}

INSTANTIATE_TEST_SUITE_P(Subscriptions, EachUpdate, ::testing::ValuesIn(UpdateCases()),
                         [](auto const& info) { return info.param.name; });

}  // namespace
