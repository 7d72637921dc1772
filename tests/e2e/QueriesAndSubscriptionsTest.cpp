// Every query and every subscription against the real vellmarkd.
#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

using google::protobuf::Message;

class QueriesAndSubscriptions : public ServiceTest {
protected:
    void SetUp() override { StartService(); }
};

// Collects the messages a callback receives, as copies of their own.
template <class T>
std::shared_ptr<Inbox<T>> Collect(Callback<T>& callback) {
    auto inbox = std::make_shared<Inbox<T>>();
    callback = [inbox](T const& message) { inbox->Put(message); };
    return inbox;
}

TEST_F(QueriesAndSubscriptions, EveryQueryAnswersWithWhatTheServiceKeeps) {
    auto const seed = SeedDocument();
    Callback<VellmarkPB::sources> sources, voice, hosts;
    Callback<VellmarkPB::ProductSettings> settings;
    Callback<VellmarkPB::persons> persons;
    Callback<VellmarkPB::VellmarkGroups> groups;
    Callback<VellmarkPB::VellmarkPresets> presets;
    auto sourcesIn = Collect(sources);
    auto voiceIn = Collect(voice);
    auto hostsIn = Collect(hosts);
    auto settingsIn = Collect(settings);
    auto personsIn = Collect(persons);
    auto groupsIn = Collect(groups);
    auto presetsIn = Collect(presets);

    Client().GetSources(sources);
    Client().GetVoiceAccounts(voice);
    Client().GetMspHostAccounts(hosts);
    Client().GetProductSettings(settings);
    Client().GetPersonsInfo(persons);
    Client().GetGroups(groups);
    Client().GetPresets(presets);

    ASSERT_TRUE(sourcesIn->WaitFor(1, kBound));
    ASSERT_TRUE(voiceIn->WaitFor(1, kBound));
    ASSERT_TRUE(hostsIn->WaitFor(1, kBound));
    ASSERT_TRUE(settingsIn->WaitFor(1, kBound));
    ASSERT_TRUE(personsIn->WaitFor(1, kBound));
    ASSERT_TRUE(groupsIn->WaitFor(1, kBound));
    ASSERT_TRUE(presetsIn->WaitFor(1, kBound));
    EXPECT_TRUE(Same(sourcesIn->At(0), seed.sources()));
    EXPECT_TRUE(Same(voiceIn->At(0), seed.voiceaccounts()));
    EXPECT_TRUE(Same(hostsIn->At(0), seed.msphostaccounts()));
    EXPECT_TRUE(Same(settingsIn->At(0), seed.productsettings()));
    EXPECT_TRUE(Same(personsIn->At(0), seed.persons()));
    EXPECT_TRUE(Same(groupsIn->At(0), seed.groups()));
    EXPECT_TRUE(Same(presetsIn->At(0), seed.presets()));
    // The three lists of sources are told apart by identifier, not by type.
    EXPECT_FALSE(Same(sourcesIn->At(0), voiceIn->At(0)));
}

// Watches the product endpoint through the admin's monitor.
class Traffic {
public:
    Traffic() : m_admin(kBound) {
        m_admin.Monitor(
            [this](Vellmark::Admin::TrafficEvent const& event) { m_events.Put(event); });
    }
    // Waits for the acknowledgement of the update `updateId`, `count` times in all.
    bool WaitForAcknowledgement(unsigned int updateId, std::size_t count = 1) {
        auto const deadline = std::chrono::steady_clock::now() + kBound;
        std::size_t seen = 0;
        for (std::size_t next = 0; std::chrono::steady_clock::now() < deadline; ++next) {
            if (!m_events.WaitFor(next + 1, std::chrono::duration_cast<std::chrono::milliseconds>(
                                                deadline - std::chrono::steady_clock::now()))) {
                return false;
            }
            auto const event = m_events.At(next);
            if (event.direction() == "in" && event.messageid() == 13 &&
                event.payloadjson().find(Vellmark::Admin::MessageName(updateId)) !=
                    std::string::npos &&
                ++seen == count) {
                return true;
            }
        }
        return false;
    }
    AdminClient& Admin() { return m_admin; }

private:
    AdminClient m_admin;
    Inbox<Vellmark::Admin::TrafficEvent> m_events;
};

std::uint64_t AcknowledgementsOf(AdminClient& admin, unsigned int updateId) {
    Vellmark::Admin::Request request;
    request.set_listacknowledgements(true);
    Vellmark::Admin::AcknowledgementReport report;
    EXPECT_EQ(Vellmark::Json::Parse(admin.Command(request), report), "");
    for (auto const& count : report.counts()) {
        if (count.messageid() == updateId) return count.count();
    }
    return 0;
}

// One subscription: how to subscribe, and a new value of its resource.
struct Case {
    char const* resource;
    unsigned int updateId;
    std::function<void(VellmarkClientAPI&, Callback<Message>)> subscribe;
    std::function<void(Message&)> change;
};

void RenameFirstSource(Message& message) {
    auto& list = static_cast<VellmarkPB::sources&>(message);
    list.mutable_source(0)->mutable_name()->set_text("Renamed in the cloud");
}

std::vector<Case> Cases() {
    using C = VellmarkClientAPI;
    return {
        {"sources", 8, [](C& c, Callback<Message> f) { c.SubscribeSourcesRequest("any", f); },
         RenameFirstSource},
        {"voice-accounts", 10,
         [](C& c, Callback<Message> f) { c.SubscribeVoiceAccountsRequest(f); }, RenameFirstSource},
        {"msp-host-accounts", 29,
         [](C& c, Callback<Message> f) { c.SubscribeMspHostAccountsRequest(f); },
         RenameFirstSource},
        {"product-settings", 11,
         [](C& c, Callback<Message> f) { c.SubscribeProductSettingsRequest("", f); },
         [](Message& m) { static_cast<VellmarkPB::ProductSettings&>(m).set_name("Küche"); }},
        {"persons", 9, [](C& c, Callback<Message> f) { c.SubscribePersonsInfoRequest("", f); },
         [](Message& m) {
             auto* person = static_cast<VellmarkPB::persons&>(m).add_person();
             person->set_key("person-new");
             person->set_value("GUEST");
         }},
        {"groups", 32, [](C& c, Callback<Message> f) { c.SubscribeGroupsRequest(f); },
         [](Message& m) {
             static_cast<VellmarkPB::VellmarkGroups&>(m).mutable_groups(0)->set_grouptype("SOLO");
         }},
        {"presets", 7, [](C& c, Callback<Message> f) { c.SubscribePresetsRequest("", f); },
         [](Message& m) {
             static_cast<VellmarkPB::VellmarkPresets&>(m).mutable_presets(0)->set_key("6");
         }},
    };
}

std::unique_ptr<Message> Fresh(std::string const& resource) {
    auto const* info = Vellmark::Admin::FindResource(resource);
    return std::unique_ptr<Message>(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(info->type)->New());
}

TEST_F(QueriesAndSubscriptions, EverySubscriptionGetsTheUpdateOfAnAdminPutAndAcknowledgesIt) {
    Traffic traffic;
    WaitUntilConnected();
    for (auto const& c : Cases()) {
        SCOPED_TRACE(c.resource);
        auto updates = std::make_shared<Inbox<std::string>>();
        c.subscribe(Client(),
                    [updates](Message const& update) { updates->Put(update.SerializeAsString()); });
        WaitUntilConnected();  // the subscription's own step has run on the client's task

        auto const seed = SeedDocument();
        auto value = Fresh(c.resource);
        value->CopyFrom(seed.GetReflection()->GetMessage(
            seed, seed.GetDescriptor()->FindFieldByName(
                      Vellmark::Admin::FindResource(c.resource)->documentField)));
        c.change(*value);
        AdminPut(c.resource, *value);

        ASSERT_TRUE(updates->WaitFor(1, kBound));
        EXPECT_EQ(updates->At(0), value->SerializeAsString());
        ASSERT_TRUE(traffic.WaitForAcknowledgement(c.updateId));
        EXPECT_EQ(AcknowledgementsOf(traffic.Admin(), c.updateId), 1u);
    }
}

TEST_F(QueriesAndSubscriptions, AssociationUpdatesAreDeliveredButNotAcknowledged) {
    Traffic traffic;
    WaitUntilConnected();
    auto associations = std::make_shared<Inbox<int>>();
    Client().SubscribeIsAssociatedWithAccountRequest(
        [associations](VellmarkPB::AccountAssociated const& update) {
            associations->Put(update.status());
        });
    auto sources = std::make_shared<Inbox<bool>>();
    Client().SubscribeSourcesRequest("",
                                     [sources](VellmarkPB::sources const&) { sources->Put(true); });
    WaitUntilConnected();

    VellmarkPB::AccountAssociated removed;
    removed.set_status(VellmarkPB::REMOVED);
    AdminPut("association", removed);
    ASSERT_TRUE(associations->WaitFor(1, kBound));
    EXPECT_EQ(associations->At(0), VellmarkPB::REMOVED);

    // The client acknowledges in the order it handles updates: once the acknowledgement of
    // a later sources update is in, one for the association would have come before it.
    AdminPut("sources", SeedDocument().sources());
    ASSERT_TRUE(traffic.WaitForAcknowledgement(8));
    EXPECT_EQ(AcknowledgementsOf(traffic.Admin(), 12), 0u);
    EXPECT_EQ(AcknowledgementsOf(traffic.Admin(), 8), 1u);
}

TEST_F(QueriesAndSubscriptions, StoredPresetsReachTheSubscriberTheCallerAndOtherClients) {
    WaitUntilConnected();
    auto subscriber = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    Client().SubscribePresetsRequest(
        "", [subscriber](VellmarkPB::VellmarkPresets const& p) { subscriber->Put(p); });
    WaitUntilConnected();

    VellmarkPB::VellmarkPresets change;
    auto* preset = change.add_presets();
    preset->set_key("2");
    preset->mutable_value()->add_actions()->set_actiontype("PLAY_NEWS");
    auto* added = change.add_presets();
    added->set_key("5");
    added->mutable_value()->add_actions()->set_actiontype("PLAY");

    auto caller = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    Client().StorePresets(change,
                          [caller](VellmarkPB::VellmarkPresets const& p) { caller->Put(p); });
    ASSERT_TRUE(caller->WaitFor(1, kBound));
    auto const stored = caller->At(0);
    // Merged by key: 1 kept, 2 replaced in place, 5 added at the end.
    ASSERT_EQ(stored.presets_size(), 3);
    EXPECT_EQ(stored.presets(0).key(), "1");
    EXPECT_EQ(stored.presets(1).value().actions(0).actiontype(), "PLAY_NEWS");
    EXPECT_EQ(stored.presets(2).key(), "5");
    // The subscriber hears it from the reply and from the service's update.
    ASSERT_TRUE(subscriber->WaitFor(2, kBound));
    EXPECT_TRUE(Same(subscriber->At(0), stored));
    EXPECT_TRUE(Same(subscriber->At(1), stored));
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), stored));
}

TEST_F(QueriesAndSubscriptions, PresetsWithARepeatedKeyAreNotStored) {
    VellmarkPB::VellmarkPresets change;
    change.add_presets()->set_key("3");
    change.add_presets()->set_key("3");
    auto caller = std::make_shared<Inbox<VellmarkPB::VellmarkPresets>>();
    Client().StorePresets(change,
                          [caller](VellmarkPB::VellmarkPresets const& p) { caller->Put(p); });
    ASSERT_TRUE(caller->WaitFor(1, kBound));
    EXPECT_TRUE(Same(caller->At(0), SeedDocument().presets()));
    EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), SeedDocument().presets()));
}

TEST_F(QueriesAndSubscriptions, EachQueryAnswersWithTheLatestChangeAndNotWithARefusedOne) {
    Callback<VellmarkPB::sources> sources;
    Callback<VellmarkPB::VellmarkPresets> presets;
    auto sourcesIn = Collect(sources);
    auto presetsIn = Collect(presets);
    Client().GetSources(sources);
    ASSERT_TRUE(sourcesIn->WaitFor(1, kBound));
    EXPECT_TRUE(Same(sourcesIn->At(0), SeedDocument().sources()));

    for (int round = 1; round <= 3; ++round) {
        VellmarkPB::sources changed = SeedDocument().sources();
        changed.mutable_source(0)->mutable_sourcename()->set_text("renamed " +
                                                                  std::to_string(round));
        AdminPut("sources", changed);
        Client().GetSources(sources);
        ASSERT_TRUE(sourcesIn->WaitFor(1 + round, kBound));
        EXPECT_TRUE(Same(sourcesIn->At(round), changed)) << "round " << round;
    }

    VellmarkPB::VellmarkPresets refused;
    refused.add_presets()->set_key("3");
    refused.add_presets()->set_key("3");
    Client().StorePresets(refused, [](VellmarkPB::VellmarkPresets const&) {});
    Client().GetPresets(presets);
    ASSERT_TRUE(presetsIn->WaitFor(1, kBound));
    EXPECT_TRUE(Same(presetsIn->At(0), SeedDocument().presets()));
}

}  // namespace
}  // namespace Vellmark::EndToEnd
