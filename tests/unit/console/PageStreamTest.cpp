// A page's stream: bounded, counting what it drops, states replaced rather than queued.
#include <gtest/gtest.h>

#include "console/PageStream.h"

namespace Vellmark::Console {
namespace {

using namespace std::chrono_literals;

std::shared_ptr<std::string const> Frame(std::string const& text) {
    return std::make_shared<std::string const>(text);
}

PageStream::Limits Limits(std::size_t frames, std::size_t bytes = 1u << 20,
                          std::size_t batch = 100) {
    PageStream::Limits limits;
    limits.frames = frames;
    limits.bytes = bytes;
    limits.batch = batch;
    return limits;
}

TEST(PageStream, FramesPastTheBoundAreDroppedCountedAndTheCountIsSent) {
    PageStream stream(Limits(3));
    for (int i = 1; i <= 5; ++i) stream.Offer(Frame("{\"n\":" + std::to_string(i) + "}"));
    EXPECT_EQ(stream.Dropped(), 2u);
    EXPECT_EQ(stream.Next(0ms),
              "event: dropped\ndata: 2\n\n"
              "event: traffic\ndata: [{\"n\":1},{\"n\":2},{\"n\":3}]\n\n");
    // Told once; room again for new frames.
    stream.Offer(Frame("{\"n\":6}"));
    EXPECT_EQ(stream.Next(0ms), "event: traffic\ndata: [{\"n\":6}]\n\n");
}

TEST(PageStream, TheBytesQueuedAreBoundedToo) {
    PageStream stream(Limits(100, 10));
    stream.Offer(Frame("123456"));
    stream.Offer(Frame("123456"));
    EXPECT_EQ(stream.Dropped(), 1u);
    stream.Next(0ms);
    stream.Offer(Frame("123456"));
    EXPECT_EQ(stream.Dropped(), 1u);
}

TEST(PageStream, OneEventCarriesABatchAtMost) {
    PageStream stream(Limits(100, 1u << 20, 2));
    for (char const* text : {"1", "2", "3"}) stream.Offer(Frame(text));
    EXPECT_EQ(stream.Next(0ms), "event: traffic\ndata: [1,2]\n\n");
    EXPECT_EQ(stream.Next(0ms), "event: traffic\ndata: [3]\n\n");
    EXPECT_EQ(stream.Next(0ms), "");
}

TEST(PageStream, AStateIsSentAsItsLatestValueBeforeTheFrames) {
    PageStream stream(Limits(10));
    stream.Offer(Frame("1"));
    stream.SetState("clients", "{\"clients\":[1]}");
    stream.SetState("clients", "{\"clients\":[2]}");
    stream.SetState("status", "{}");
    EXPECT_EQ(stream.Next(0ms),
              "event: clients\ndata: {\"clients\":[2]}\n\n"
              "event: status\ndata: {}\n\n"
              "event: traffic\ndata: [1]\n\n");
}

TEST(PageStream, AClosedStreamSendsNothingMoreAndTakesNothing) {
    PageStream stream(Limits(10));
    stream.Offer(Frame("1"));
    stream.Close();
    EXPECT_TRUE(stream.Closed());
    EXPECT_EQ(stream.Next(0ms), "");
    stream.Offer(Frame("2"));
    EXPECT_EQ(stream.Dropped(), 0u);
}

}  // namespace
}  // namespace Vellmark::Console
