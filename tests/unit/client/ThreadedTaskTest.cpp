// The client on a real task thread: where callbacks run, and that work left on the task
// does nothing once the client is gone.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "client/VellmarkClientAPI.h"
#include "platform/task/BreakThread.h"
#include "platform/task/Task.h"
#include "platform/testing/ConnectionDriver.h"
#include "platform/testing/Latch.h"
#include "platform/testing/TaskBlocker.h"

using namespace Tarv::Testing;

namespace {

// Waits until the task has run everything queued so far, and what that posted in turn.
bool Drain(IL::Task& task, int rounds = 3) {
    for (int i = 0; i < rounds; ++i) {
        Latch done;
        IL::BreakThread([&done] { done.CountDown(); }, &task);
        if (!done.Wait()) return false;
    }
    return true;
}

class ThreadedTask : public ::testing::Test {
protected:
    // Records the thread of each callback, under a lock, since callbacks run on the task.
    void Record(std::string const& what) {
        std::lock_guard<std::mutex> lock(mutex);
        threads.emplace_back(what, std::this_thread::get_id());
    }
    std::vector<std::pair<std::string, std::thread::id>> Recorded() {
        std::lock_guard<std::mutex> lock(mutex);
        return threads;
    }

    ConnectionDriver driver;
    IL::Task task{"client-task"};
    std::mutex mutex;
    std::vector<std::pair<std::string, std::thread::id>> threads;
};

TEST_F(ThreadedTask, CallbacksRunOnTheTaskAndInputErrorsOnTheCallersThread) {
    VellmarkClientAPI client(&task);
    driver.Connect();
    ASSERT_TRUE(Drain(task));
    auto router = driver.Router();
    ASSERT_NE(router, nullptr);

    client.GetSources([this](VellmarkPB::sources const&) { Record("query"); });
    client.SubscribeSourcesRequest("", [this](VellmarkPB::sources const&) { Record("update"); });
    client.CreateServiceAccount(
        {}, [this](VellmarkPB::serviceAccounts const&) { Record("account"); }, {});
    client.DeleteGVAAccount("", {}, [this](VellmarkPB::Error const&) { Record("refused"); });
    ASSERT_TRUE(Drain(task));
    ASSERT_EQ(router->Sends().size(), 2u);

    // The router's own thread answers and pushes.
    std::thread routerThread([&] {
        router->Respond(0, VellmarkPB::sources());
        router->Push(8, VellmarkPB::sources());
        VellmarkPB::VellmarkAcctOpEnvelope reply;
        reply.set_success(true);
        router->Respond(1, reply);
    });
    auto const routerId = routerThread.get_id();
    routerThread.join();
    ASSERT_TRUE(Drain(task));

    auto recorded = Recorded();
    ASSERT_EQ(recorded.size(), 4u);
    EXPECT_EQ(recorded[0].first, "refused");
    EXPECT_EQ(recorded[0].second, std::this_thread::get_id());
    for (std::size_t i = 1; i < recorded.size(); ++i) {
        EXPECT_EQ(recorded[i].second, task.ThreadId()) << recorded[i].first;
        EXPECT_NE(recorded[i].second, routerId);
    }
    EXPECT_TRUE(client.IsConnected());
}

TEST_F(ThreadedTask, WorkQueuedForADestroyedClientDoesNothing) {
    auto client = std::make_unique<VellmarkClientAPI>(&task);
    driver.Connect();
    ASSERT_TRUE(Drain(task));
    auto router = driver.Router();
    client->GetPresets([this](VellmarkPB::VellmarkPresets const&) { Record("answer"); });
    ASSERT_TRUE(Drain(task));
    {
        TaskBlocker blocker(task);
        ASSERT_TRUE(blocker.Entered());
        // Behind the blocker: a reply delivery, a posted call and a connection.
        router->Respond(0, VellmarkPB::VellmarkPresets());
        client->GetSources([this](VellmarkPB::sources const&) { Record("late"); });
        driver.Connect();
        client.reset();
    }
    ASSERT_TRUE(Drain(task));
    EXPECT_TRUE(Recorded().empty());
    EXPECT_EQ(driver.RouterRequests().size(), 1u) << "the late connection was not handled";
    EXPECT_EQ(router->Sends().size(), 1u);
}

}  // namespace
