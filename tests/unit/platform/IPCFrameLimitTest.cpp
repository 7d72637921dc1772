// The frame limit: its bounds, and how big a frame a message needs.
#include "platform/ipc/IPCFrameLimit.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"

namespace {

class IPCFrameLimitTest : public ::testing::Test {
protected:
    ~IPCFrameLimitTest() override { IPCFrameLimit::SetMaxFrameBytes(m_before); }

private:
    std::size_t const m_before = IPCFrameLimit::MaxFrameBytes();
};

TEST_F(IPCFrameLimitTest, TheLimitStaysWithinItsBounds) {
    EXPECT_EQ(IPCFrameLimit::SetMaxFrameBytes(64 * 1024), 64u * 1024);
    EXPECT_EQ(IPCFrameLimit::MaxFrameBytes(), 64u * 1024);
    EXPECT_EQ(IPCFrameLimit::SetMaxFrameBytes(1), IPCFrameLimit::kMinFrameBytes);
    EXPECT_EQ(IPCFrameLimit::SetMaxFrameBytes(std::numeric_limits<std::size_t>::max()),
              IPCFrameLimit::kHardMaxFrameBytes);
    EXPECT_EQ(IPCFrameLimit::kDefaultFrameBytes, std::size_t(1) << 20);
}

TEST_F(IPCFrameLimitTest, AConnectionTakesTheLimitOfWhenItIsMade) {
    IPCFrameLimit::SetMaxFrameBytes(8 * 1024);
    EXPECT_EQ(Tarv::ConnectionLimits().maxFrameBytes, 8u * 1024);
}

TEST_F(IPCFrameLimitTest, AMessageNeedsTheFrameOfItsLargestResponse) {
    IPCMessageEnvelope envelope;
    envelope.set_payload(std::string(1000, 'x'));
    envelope.set_payload_type_name("sources");
    std::size_t const bytes = IPCFrameLimit::FrameBytes(1, envelope);
    // Any response under that identifier fits it, whatever its number.
    for (std::uint64_t number : {std::uint64_t(1), std::uint64_t(1) << 40, ~std::uint64_t(0)}) {
        auto const frame = Tarv::MakeFrame(Tarv::IPCFrame::RESPONSE, 1, envelope.Base(), number);
        EXPECT_LE(frame.ByteSizeLong(), bytes) << number;
    }
    auto const largest =
        Tarv::MakeFrame(Tarv::IPCFrame::RESPONSE, 1, envelope.Base(), ~std::uint64_t(0));
    EXPECT_EQ(largest.ByteSizeLong(), bytes);
    std::string out;
    EXPECT_TRUE(Tarv::AppendFrame(largest, out, bytes));
    EXPECT_FALSE(Tarv::AppendFrame(largest, out, bytes - 1));
}

}  // namespace
