#include "framework/task/CallbackConnection.h"

#include <gtest/gtest.h>

#include "platform/task/CallbackList.h"

using namespace Tarv;

namespace {

TEST(CallbackConnection, EmptyHandleDisconnectsHarmlessly) {
    CallbackConnection empty;
    EXPECT_FALSE(empty.IsConnected());
    empty.Disconnect();
    empty.Disconnect();
}

TEST(CallbackConnection, DisconnectRunsOnceHoweverOftenCalled) {
    int calls = 0;
    CallbackConnection connection([&] { ++calls; });
    EXPECT_TRUE(connection.IsConnected());
    connection.Disconnect();
    connection.Disconnect();
    CallbackConnection copy = connection;
    copy.Disconnect();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(connection.IsConnected());
}

TEST(CallbackConnection, MoveAssignmentTakesTheRegistration) {
    int calls = 0;
    CallbackConnection target;
    target = CallbackConnection([&] { ++calls; });
    target.Disconnect();
    EXPECT_EQ(calls, 1);
}

TEST(CallbackConnection, DestroyingTheHandleLeavesTheRegistration) {
    auto list = CallbackList<int>::Create();
    { CallbackConnection dropped = list->Add(1); }
    EXPECT_EQ(list->Size(), 1u);
}

TEST(CallbackList, DisconnectRemovesOnlyItsOwnRegistration) {
    auto list = CallbackList<int>::Create();
    auto first = list->Add(1);
    auto second = list->Add(2);
    auto third = list->Add(3);
    second.Disconnect();
    EXPECT_EQ(list->Snapshot(), (std::vector<int>{1, 3}));
    EXPECT_FALSE(second.IsConnected());
}

TEST(CallbackList, DisconnectAfterTheListIsGoneDoesNothing) {
    CallbackConnection connection;
    {
        auto list = CallbackList<int>::Create();
        connection = list->Add(1);
    }
    connection.Disconnect();
    EXPECT_FALSE(connection.IsConnected());
}

TEST(CallbackList, TakeFirstRemovesTheFirstMatchOnly) {
    auto list = CallbackList<int>::Create();
    list->Add(4);
    list->Add(5);
    list->Add(5);
    auto taken = list->TakeFirst([](int v) { return v == 5; });
    ASSERT_TRUE(taken.has_value());
    EXPECT_EQ(*taken, 5);
    EXPECT_EQ(list->Snapshot(), (std::vector<int>{4, 5}));
    EXPECT_FALSE(list->TakeFirst([](int v) { return v == 9; }).has_value());
}

}  // namespace
