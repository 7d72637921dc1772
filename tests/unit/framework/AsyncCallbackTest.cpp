#include "framework/AsyncCallback.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/ipc/ConnectorSocket.h"
#include "framework/task/WeakRef.h"
#include "platform/testing/ManualTask.h"

using namespace Tarv::Testing;

namespace {

// A socket that counts how many of it are alive.
class CountedSocket final : public Network::ConnectorSocket {
public:
    explicit CountedSocket(int& alive) : m_alive(alive) { ++m_alive; }
    ~CountedSocket() override { --m_alive; }
    bool IsOpen() const override { return true; }
    void Close() override {}

private:
    int& m_alive;
};

using SocketPtr = std::shared_ptr<Network::ConnectorSocket>;

TEST(AsyncCallback, NullTaskNeverCallsAndRegistersNothing) {
    ManualTask task;
    int calls = 0;
    AsyncCallback<int> callback([&](int const&) { ++calls; }, nullptr);
    callback(1);
    callback(2);
    EXPECT_EQ(callback.impl->target.load(), nullptr);
    EXPECT_FALSE(callback.impl->stopConnection.IsConnected());
    EXPECT_EQ(task.StopRegistrations(), 0u);
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_EQ(calls, 0);
}

TEST(AsyncCallback, ConstructionRegistersOneStopNotification) {
    ManualTask task;
    AsyncCallback<int> callback([](int const&) {}, &task);
    AsyncCallback<int> copy = callback;
    EXPECT_EQ(task.StopRegistrations(), 1u);
    EXPECT_EQ(copy.impl, callback.impl);
}

TEST(AsyncCallback, ThreeFiringsDeliverTheValuesAsTheyWereWhenFired) {
    ManualTask task;
    std::vector<std::string> seen;
    AsyncCallback<std::string> callback([&](std::string const& v) { seen.push_back(v); }, &task);
    std::string value = "one";
    callback(value);
    value = "two";
    callback(value);
    value = "three";
    callback(value);
    value = "changed";
    EXPECT_TRUE(seen.empty()) << "firing must not call the function inline";
    EXPECT_EQ(task.Pending(), 3u);
    EXPECT_EQ(task.RunUntilIdle(), 3u);
    EXPECT_EQ(seen, (std::vector<std::string>{"one", "two", "three"}));
}

TEST(AsyncCallback, CopiesPostToOneTaskAndGoInertWhenItStops) {
    ManualTask task;
    int calls = 0;
    AsyncCallback<int> original([&](int const&) { ++calls; }, &task);
    AsyncCallback<int> copy(original);
    original(1);
    copy(2);
    EXPECT_EQ(task.RunUntilIdle(), 2u);
    EXPECT_EQ(calls, 2);

    task.Stop();
    EXPECT_EQ(original.impl->target.load(), nullptr);
    original(3);
    copy(4);
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_EQ(calls, 2);
}

TEST(AsyncCallback, EntryFiredBeforeLastCopyIsDestroyedStillRuns) {
    ManualTask task;
    int seen = 0;
    {
        AsyncCallback<int> callback([&](int const& v) { seen = v; }, &task);
        callback(5);
    }
    EXPECT_EQ(task.StopRegistrations(), 0u) << "the last copy ends the stop registration";
    EXPECT_EQ(task.RunUntilIdle(), 1u);
    EXPECT_EQ(seen, 5);
}

TEST(AsyncCallback, EntryKeepsTheSocketAliveUntilDispatchedAndDropped) {
    ManualTask task;
    int alive = 0;
    int delivered = 0;
    AsyncCallback<SocketPtr> callback(
        [&](SocketPtr const& socket) {
            EXPECT_TRUE(socket->IsOpen());
            EXPECT_EQ(alive, 1);
            ++delivered;
        },
        &task);
    {
        SocketPtr socket = std::make_shared<CountedSocket>(alive);
        callback(socket);
    }
    EXPECT_EQ(alive, 1) << "the queued entry must share the socket";
    task.RunUntilIdle();
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(alive, 0) << "the entry must release the socket once dispatched";
}

TEST(AsyncCallback, VoidCallbackInStdFunctionBehavesLikeTheObjectAndShares) {
    ManualTask task;
    int calls = 0;
    AsyncCallback<void> callback([&] { ++calls; }, &task);
    std::function<void()> wrapped = callback;
    std::function<void()> wrappedCopy = wrapped;
    wrapped();
    wrappedCopy();
    callback();
    EXPECT_EQ(task.StopRegistrations(), 1u) << "copies share one implementation";
    EXPECT_EQ(task.RunUntilIdle(), 3u);
    EXPECT_EQ(calls, 3);
    task.Stop();
    wrapped();
    wrappedCopy();
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_EQ(calls, 3);
}

TEST(AsyncCallback, SocketCallbackInStdFunctionBehavesLikeTheObjectAndShares) {
    ManualTask task;
    int alive = 0;
    std::vector<Network::ConnectorSocket*> seen;
    AsyncCallback<SocketPtr> callback([&](SocketPtr const& s) { seen.push_back(s.get()); }, &task);
    std::function<void(SocketPtr const&)> wrapped = callback;
    auto wrappedCopy = wrapped;
    SocketPtr socket = std::make_shared<CountedSocket>(alive);
    wrapped(socket);
    wrappedCopy(socket);
    EXPECT_EQ(socket.use_count(), 3) << "each entry holds a second owner of the socket";
    EXPECT_EQ(task.StopRegistrations(), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(seen, (std::vector<Network::ConnectorSocket*>{socket.get(), socket.get()}));
    EXPECT_EQ(socket.use_count(), 1);
    task.Stop();
    wrappedCopy(socket);
    EXPECT_EQ(task.Pending(), 0u);
}

TEST(AsyncCallback, StopNotificationAfterLastCopyIsGoneHasNoEffect) {
    ManualTask task;
    std::weak_ptr<AsyncCallbackImplBase> weak;
    {
        AsyncCallback<int> callback([](int const&) {}, &task);
        weak = callback.impl;
        WeakRef ref(callback.impl);
        ref.notifyStopped();  // harmless while alive: the callback goes inert
        EXPECT_EQ(callback.impl->target.load(), nullptr);
    }
    EXPECT_TRUE(weak.expired());
    task.Stop();  // no registration is left; nothing may be touched
    EXPECT_TRUE(task.IsStopped());
}

// A task that keeps every stop notification it was given, even disconnected ones, so a
// test can deliver one late.
class RecordingTask final : public NotifyTargetTaskIF {
public:
    void PostCallbackEntry(std::shared_ptr<IL::CallbackEntry>) override { ++posts; }
    CallbackConnection RegisterStopNotification(std::function<void()> const& onStop) override {
        notifications.push_back(onStop);
        return CallbackConnection([] {});
    }
    std::vector<std::function<void()>> notifications;
    int posts = 0;
};

TEST(AsyncCallback, LateStopNotificationForAGoneCallbackHasNoEffect) {
    RecordingTask task;
    {
        AsyncCallback<int> callback([](int const&) {}, &task);
        callback(1);
    }
    ASSERT_EQ(task.notifications.size(), 1u);
    task.notifications[0]();  // reaches a WeakRef whose implementation is gone
    EXPECT_EQ(task.posts, 1);
}

TEST(AsyncCallback, WeakRefToDestroyedImplementationDoesNothing) {
    ManualTask task;
    std::unique_ptr<WeakRef> ref;
    {
        AsyncCallback<int> callback([](int const&) {}, &task);
        ref = std::make_unique<WeakRef>(callback.impl);
    }
    ref->notifyStopped();
    SUCCEED() << "a stop notification for a gone callback must not crash";
}

TEST(AsyncCallback, EmptyFunctionIsAcceptedAndThrowsOnDispatch) {
    ManualTask task;
    AsyncCallback<int> callback(std::function<void(int const&)>(), &task);
    callback(1);
    ASSERT_EQ(task.Pending(), 1u);
    EXPECT_THROW(task.RunOne(), std::bad_function_call);
}

TEST(AsyncCallback, CallbackBuiltOnAStoppedTaskIsInert) {
    ManualTask task;
    task.Stop();
    int calls = 0;
    AsyncCallback<int> callback([&](int const&) { ++calls; }, &task);
    callback(1);
    EXPECT_EQ(callback.impl->target.load(), nullptr);
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_EQ(calls, 0);
}

// A value that counts its copies, to show that one firing copies the argument once into
// its entry.
struct CopyCounter {
    static inline int copies = 0;
    CopyCounter() = default;
    CopyCounter(CopyCounter const&) { ++copies; }
    CopyCounter& operator=(CopyCounter const&) {
        ++copies;
        return *this;
    }
};

TEST(AsyncCallback, FiringCopiesTheArgumentOnceIntoItsEntry) {
    ManualTask task;
    AsyncCallback<CopyCounter> callback([](CopyCounter const&) {}, &task);
    CopyCounter value;
    CopyCounter::copies = 0;
    callback(value);
    EXPECT_EQ(CopyCounter::copies, 1);
    task.RunUntilIdle();
    EXPECT_EQ(CopyCounter::copies, 1) << "dispatch passes the entry's copy by reference";
}

}  // namespace
