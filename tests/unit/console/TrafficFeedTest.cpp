// The feed: every page gets every frame, numbered; a page that falls behind loses frames
// without holding back the others; new pages get the latest frames and states.
#include <gtest/gtest.h>

#include "console/TrafficFeed.h"

namespace Vellmark::Console {
namespace {

using namespace std::chrono_literals;

Vellmark::Admin::TrafficEvent Event(std::uint64_t session, std::string const& kind = "request") {
    Vellmark::Admin::TrafficEvent event;
    event.set_timemicros(1790000000000000);
    event.set_direction("in");
    event.set_session(session);
    event.set_kind(kind);
    event.set_messageid(1);
    event.set_messagename("VELLMARK_MESSAGE_GET_SOURCES");
    event.set_requestnumber(7);
    event.set_payloadtype("sources");
    event.set_payloadjson("{}");
    return event;
}

TrafficFeed::Limits Limits(std::size_t pageFrames, std::size_t pages = 4) {
    TrafficFeed::Limits limits;
    limits.page.frames = pageFrames;
    limits.pages = pages;
    limits.backlog = 2;
    limits.keptFrames = 3;
    return limits;
}

TEST(TrafficFeed, AFrameReachesThePageNumberedAsOneLineOfJson) {
    TrafficFeed feed(Limits(10));
    auto page = feed.Open();
    feed.Publish(Event(3));
    EXPECT_EQ(page->Next(0ms),
              "event: traffic\ndata: [{\"seq\":1,\"time\":\"2026-09-21T14:13:20.000000Z\","
              "\"direction\":\"in\",\"session\":3,\"kind\":\"request\",\"messageId\":1,"
              "\"messageName\":\"VELLMARK_MESSAGE_GET_SOURCES\",\"requestNumber\":7,"
              "\"payloadType\":\"sources\",\"payload\":{}}]\n\n");
}

TEST(TrafficFeed, APageThatFallsBehindLosesFramesAndTheOthersDoNot) {
    TrafficFeed feed(Limits(2));
    auto slow = feed.Open();
    auto fast = feed.Open();
    for (int i = 0; i < 5; ++i) {
        feed.Publish(Event(1));
        fast->Next(0ms);
    }
    EXPECT_EQ(slow->Dropped(), 3u);
    EXPECT_EQ(fast->Dropped(), 0u);
    EXPECT_EQ(feed.Published(), 5u);
}

TEST(TrafficFeed, PagesPastTheLimitAreRefusedUntilOneCloses) {
    TrafficFeed feed(Limits(10, 1));
    auto first = feed.Open();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(feed.Open(), nullptr);
    feed.Close(first);
    EXPECT_TRUE(first->Closed());
    EXPECT_NE(feed.Open(), nullptr);
}

TEST(TrafficFeed, ANewPageGetsTheLatestStatesAndFrames) {
    TrafficFeed feed(Limits(10));
    feed.PublishState("status", "{\"watching\":true}");
    for (std::uint64_t session = 1; session <= 3; ++session) feed.Publish(Event(session));
    auto page = feed.Open();
    std::string const text = page->Next(0ms);
    EXPECT_EQ(text.rfind("event: status\ndata: {\"watching\":true}\n\n", 0), 0u) << text;
    EXPECT_EQ(text.find("\"seq\":1,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"seq\":2,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"seq\":3,"), std::string::npos) << text;
    EXPECT_EQ(feed.State("status"), "{\"watching\":true}");
    EXPECT_EQ(feed.State("clients"), "");
}

TEST(TrafficFeed, KeptFramesAreBoundedAndFoundByTheirNumbers) {
    TrafficFeed feed(Limits(10));
    for (std::uint64_t session = 1; session <= 5; ++session) feed.Publish(Event(session));
    auto const kept = feed.Kept({5, 1, 3, 4, 4, 99});
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0].session(), 3u);
    EXPECT_EQ(kept[1].session(), 4u);
    EXPECT_EQ(kept[2].session(), 5u);
}

TEST(TrafficFeed, CloseAllEndsEveryPage) {
    TrafficFeed feed(Limits(10));
    auto a = feed.Open();
    auto b = feed.Open();
    feed.CloseAll();
    EXPECT_TRUE(a->Closed());
    EXPECT_TRUE(b->Closed());
}

}  // namespace
}  // namespace Vellmark::Console
