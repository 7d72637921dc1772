// The example's own logic, tested twice: against the kit's mock, where the test says what
// the client answers, and with the real client against the kit's fake service, seeded and
// told to fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include <VellmarkClient/VellmarkClientAPI.h>
#include <VellmarkClient/platform/task/Task.h>
#include <VellmarkClient/testing/FakeService.h>
#include <VellmarkClient/testing/MockVellmarkClientAPI.h>

#include "AccountsPanel.h"

namespace {

using ::testing::_;
using ::testing::InvokeArgument;
using Vellmark::Testing::FakeService;
using Vellmark::Testing::MockVellmarkClientAPI;

// A value handed over by the client's task; the test waits for it with a bound.
template <class T>
class Awaited {
public:
    void Set(T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_value = std::move(value);
        m_set.notify_all();
    }
    std::optional<T> Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_set.wait_for(lock, std::chrono::seconds(20), [this] { return m_value.has_value(); });
        return m_value;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_set;
    std::optional<T> m_value;
};

TEST(AccountsPanelWithMock, CountsTheSourcesTheClientAnswers) {
    MockVellmarkClientAPI client;
    VellmarkPB::sources sources;
    sources.add_source()->set_id("a");
    sources.add_source()->set_id("b");
    sources.add_source()->set_id("c");
    EXPECT_CALL(client, GetSources(_)).WillOnce(InvokeArgument<0>(sources));
    AccountsPanel panel(client);
    int counted = -1;
    panel.CountSources([&](int count) { counted = count; });
    EXPECT_EQ(counted, 3);
}

TEST(AccountsPanelWithMock, ShowsWhyTheServiceRefusedAnAccount) {
    MockVellmarkClientAPI client;
    VellmarkPB::Error refusal;
    refusal.set_code(6);
    refusal.set_message("account exists");
    EXPECT_CALL(client, CreateServiceAccount(_, _, _))
        .WillOnce([&](VellmarkPB::serviceAccounts const& account, auto const&,
                      Callback<VellmarkPB::Error> const& onError) {
            EXPECT_EQ(account.accountid(), "acct-1");
            EXPECT_EQ(account.provider(), "HARBOR");
            onError(refusal);
        });
    AccountsPanel panel(client);
    std::string shown;
    panel.AddAccount("acct-1", "HARBOR", [&](std::string const& line) { shown = line; });
    EXPECT_EQ(shown, "could not add acct-1: account exists (code 6)");
}

constexpr char kSeed[] = R"({
  "sources": { "source": [
    { "id": "src-radio", "sourceproviderid": { "text": "AURORA_RADIO" } },
    { "id": "src-podcasts", "sourceproviderid": { "text": "HARBOR" } } ] }
})";

class AccountsPanelWithFakeService : public ::testing::Test {
protected:
    AccountsPanelWithFakeService() {
        m_service.Seed(kSeed);
        m_service.Start();  // clients made from here on reach it
        m_client = std::make_unique<VellmarkClientAPI>(&m_task);
    }
    ~AccountsPanelWithFakeService() override {
        m_client.reset();
        m_task.Stop();
        m_service.Stop();
    }

    FakeService m_service;
    IL::Task m_task{"example-test"};
    std::unique_ptr<VellmarkClientAPI> m_client;
};

TEST_F(AccountsPanelWithFakeService, CountsTheSeededSources) {
    AccountsPanel panel(*m_client);
    Awaited<int> counted;
    panel.CountSources([&](int count) { counted.Set(count); });
    EXPECT_EQ(counted.Wait(), 2);
}

TEST_F(AccountsPanelWithFakeService, ShowsAFailureOfTheCloudThenAddsOnRetry) {
    VellmarkPB::Error cloudDown;
    cloudDown.set_code(5);
    cloudDown.set_message("cloud down");
    m_service.FailNext(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, cloudDown);
    AccountsPanel panel(*m_client);

    Awaited<std::string> first;
    panel.AddAccount("acct-new", "HARBOR", [&](std::string const& line) { first.Set(line); });
    EXPECT_EQ(first.Wait(), "could not add acct-new: cloud down (code 5)");

    Awaited<std::string> retry;
    panel.AddAccount("acct-new", "HARBOR", [&](std::string const& line) { retry.Set(line); });
    EXPECT_EQ(retry.Wait(), "added acct-new");
}

}  // namespace
