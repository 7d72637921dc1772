// The kit's fake service, reached by the real client over real sockets: it serves its
// seed, plays each fault, and keeps its folder private and to itself.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/task/Task.h"
#include "platform/testing/Inbox.h"
#include "testing/FakeService.h"

namespace Vellmark::KitTest {
namespace {

using namespace std::chrono_literals;
using Tarv::Testing::Inbox;
using Vellmark::Testing::FakeService;

constexpr auto kBound = std::chrono::milliseconds(20s);

// Two sources, one service account: a store document as `vellmarkctl admin seed` reads it.
constexpr char kSeed[] = R"({
  "sources": { "source": [
    { "id": "src-radio", "type": "CONTENT", "sourceproviderid": { "text": "AURORA_RADIO" },
      "accountid": { "text": "acct-radio-1" } },
    { "id": "src-podcasts", "type": "CONTENT", "sourceproviderid": { "text": "HARBOR" },
      "accountid": { "text": "acct-podcasts-2" } } ] },
  "serviceAccounts": [
    { "accountID": "acct-radio-1", "accountType": "CONTENT", "provider": "AURORA_RADIO" } ]
})";

class FakeServiceTest : public ::testing::Test {
protected:
    void TearDown() override {
        m_client.reset();
        m_task.Stop();
        m_fake.Stop();
    }

    // Seeds and starts the fake, then makes a client of it.
    void Start() {
        m_fake.Seed(kSeed);
        m_fake.Start();
        m_client = std::make_unique<VellmarkClientAPI>(&m_task);
    }

    std::vector<std::string> SourceIds() {
        Inbox<VellmarkPB::sources> answers;
        m_client->GetSources([&](VellmarkPB::sources const& list) { answers.Put(list); });
        EXPECT_TRUE(answers.WaitFor(1, kBound));
        std::vector<std::string> ids;
        if (answers.Size() == 0) return ids;
        VellmarkPB::sources const list = answers.At(0);
        for (auto const& source : list.source()) ids.push_back(source.id());
        return ids;
    }

    static VellmarkPB::serviceAccounts Account(std::string const& id) {
        VellmarkPB::serviceAccounts account;
        account.set_accountid(id);
        account.set_accounttype("CONTENT");
        account.set_provider("HARBOR");
        return account;
    }

    FakeService m_fake;
    IL::Task m_task{"kit-test"};
    std::unique_ptr<VellmarkClientAPI> m_client;
};

TEST_F(FakeServiceTest, AnswersGetSourcesFromItsSeed) {
    Start();
    EXPECT_EQ(SourceIds(), (std::vector<std::string>{"src-radio", "src-podcasts"}));
}

TEST_F(FakeServiceTest, SeedingWhileRunningReplacesTheStoreAndPushesTheUpdate) {
    Start();
    Inbox<VellmarkPB::sources> updates;
    Inbox<bool> connected;
    auto observer = m_client->AddConnectionObserver([&] { connected.Put(true); });
    ASSERT_TRUE(connected.WaitFor(1, kBound));
    m_client->SubscribeSourcesRequest("",
                                      [&](VellmarkPB::sources const& list) { updates.Put(list); });
    // The subscription is in place once a later request of the same connection is answered.
    ASSERT_EQ(SourceIds().size(), 2u);
    m_fake.Seed(R"({"sources": {"source": [{"id": "only", "sourceproviderid": {"text": "X"}}]}})");
    ASSERT_TRUE(updates.WaitFor(1, kBound));
    VellmarkPB::sources const update = updates.At(0);
    ASSERT_EQ(update.source_size(), 1);
    EXPECT_EQ(update.source(0).id(), "only");
    EXPECT_EQ(SourceIds(), (std::vector<std::string>{"only"}));
}

TEST_F(FakeServiceTest, FailNextGivesTheClientTheErrorOnce) {
    Start();
    VellmarkPB::Error planned;
    planned.set_code(5);
    planned.set_message("cloud down");
    m_fake.FailNext(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, planned);

    Inbox<VellmarkPB::Error> errors;
    Inbox<std::string> created;
    auto const onCreated = [&](VellmarkPB::serviceAccounts const& a) {
        created.Put(a.accountid());
    };
    auto const onError = [&](VellmarkPB::Error const& error) { errors.Put(error); };
    m_client->CreateServiceAccount(Account("acct-new-1"), onCreated, onError);
    ASSERT_TRUE(errors.WaitFor(1, kBound));
    VellmarkPB::Error const heard = errors.At(0);
    EXPECT_EQ(heard.code(), 5);
    EXPECT_EQ(heard.message(), "cloud down");
    EXPECT_EQ(heard.messageid(), VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT);

    // Only the next one failed.
    m_client->CreateServiceAccount(Account("acct-new-1"), onCreated, onError);
    ASSERT_TRUE(created.WaitFor(1, kBound));
    EXPECT_EQ(created.At(0), "acct-new-1");
    EXPECT_EQ(errors.Size(), 1u);
}

TEST_F(FakeServiceTest, LeaveUnansweredDropsOnlyTheNextAnswer) {
    Start();
    m_fake.LeaveUnanswered(VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS);
    Inbox<int> presets;
    m_client->GetPresets([&](VellmarkPB::VellmarkPresets const&) { presets.Put(1); });
    // Answers come in the order of the requests: once the sources are in, the presets'
    // answer would have been too.
    ASSERT_EQ(SourceIds().size(), 2u);
    EXPECT_EQ(presets.Size(), 0u);
    m_client->GetPresets([&](VellmarkPB::VellmarkPresets const&) { presets.Put(2); });
    ASSERT_TRUE(presets.WaitFor(1, kBound));
    EXPECT_EQ(presets.Values(), std::vector<int>{2});
}

TEST_F(FakeServiceTest, ADelayedAnswerComesAfterTheAnswersOfLaterRequests) {
    Start();
    ASSERT_EQ(SourceIds().size(), 2u);  // connected
    m_fake.Delay(1s, VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES);
    Inbox<std::string> events;
    m_client->GetSources([&](VellmarkPB::sources const&) { events.Put("sources"); });
    m_client->GetPresets([&](VellmarkPB::VellmarkPresets const&) { events.Put("presets"); });
    ASSERT_TRUE(events.WaitFor(2, kBound));
    EXPECT_EQ(events.Values(), (std::vector<std::string>{"presets", "sources"}));

    // A zero delay ends it: answers come in request order again.
    m_fake.Delay(0ms);
    m_client->GetSources([&](VellmarkPB::sources const&) { events.Put("sources"); });
    m_client->GetPresets([&](VellmarkPB::VellmarkPresets const&) { events.Put("presets"); });
    ASSERT_TRUE(events.WaitFor(4, kBound));
    EXPECT_EQ(events.At(2), "sources");
    EXPECT_EQ(events.At(3), "presets");
}

TEST_F(FakeServiceTest, DroppedConnectionsMakeTheClientReconnect) {
    Start();
    Inbox<bool> connections;
    auto observer = m_client->AddConnectionObserver([&] { connections.Put(true); });
    ASSERT_TRUE(connections.WaitFor(1, kBound));
    EXPECT_EQ(m_fake.DropConnections(), 1u);
    ASSERT_TRUE(connections.WaitFor(2, kBound));
    EXPECT_EQ(SourceIds().size(), 2u);
}

TEST_F(FakeServiceTest, ItsFolderIsPrivateAndGoesWithIt) {
    std::string const before = IPCDirectory::Get().RuntimeFolder();
    Start();
    std::string const folder = m_fake.RuntimeFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(IPCDirectory::Get().RuntimeFolder(), folder);
    struct stat status {};
    ASSERT_EQ(::stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_TRUE(m_fake.IsRunning());

    m_client.reset();
    m_fake.Stop();
    EXPECT_FALSE(m_fake.IsRunning());
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_EQ(IPCDirectory::Get().RuntimeFolder(), before);
    EXPECT_TRUE(m_fake.RuntimeFolder().empty());
}

TEST_F(FakeServiceTest, RefusesWhatItCannotDo) {
    EXPECT_THROW(m_fake.Seed("{\"sources\": 3"), std::invalid_argument);
    EXPECT_THROW(m_fake.SeedFromFile("/nonexistent/seed.json"), std::invalid_argument);
    EXPECT_THROW(m_fake.DropConnections(), std::logic_error);
    Start();
    EXPECT_THROW(m_fake.Start(), std::logic_error);
    // Queries have no error path.
    EXPECT_THROW(m_fake.FailNext(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, VellmarkPB::Error()),
                 std::invalid_argument);
    EXPECT_EQ(SourceIds().size(), 2u);
}

}  // namespace
}  // namespace Vellmark::KitTest
