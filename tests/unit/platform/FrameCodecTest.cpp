// The framing of IPC connections: length-delimited frames, cut from a byte stream.
#include <gtest/gtest.h>

#include "platform/ipc/transport/FrameCodec.h"

namespace {

using Tarv::FrameDecoder;
using Tarv::IPCFrame;
using Status = FrameDecoder::Status;

IPCFrame Request(std::uint64_t number, std::string payload) {
    IPCFrame frame;
    frame.set_kind(IPCFrame::REQUEST);
    frame.set_request_number(number);
    frame.mutable_envelope()->set_message_id(1);
    frame.mutable_envelope()->set_payload_type_name("sources");
    frame.mutable_envelope()->set_payload(std::move(payload));
    return frame;
}

std::string Encoded(IPCFrame const& frame) {
    std::string bytes;
    EXPECT_TRUE(Tarv::AppendFrame(frame, bytes));
    return bytes;
}

TEST(FrameCodec, FramesInOneFeedComeOutInOrder) {
    std::string const bytes = Encoded(Request(1, "a")) + Encoded(Request(2, "bb"));
    FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame frame;
    ASSERT_EQ(decoder.Next(frame), Status::Frame);
    EXPECT_EQ(frame.request_number(), 1u);
    EXPECT_EQ(frame.envelope().payload(), "a");
    ASSERT_EQ(decoder.Next(frame), Status::Frame);
    EXPECT_EQ(frame.request_number(), 2u);
    EXPECT_EQ(frame.envelope().payload(), "bb");
    EXPECT_EQ(frame.envelope().payload_type_name(), "sources");
    EXPECT_EQ(decoder.Next(frame), Status::NeedMore);
    EXPECT_EQ(decoder.Buffered(), 0u);
}

TEST(FrameCodec, AFrameFedByteByByteAppearsOnlyWhenWhole) {
    std::string const bytes = Encoded(Request(7, std::string(200, 'x')));  // two-byte length
    FrameDecoder decoder;
    IPCFrame frame;
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i) {
        decoder.Feed(&bytes[i], 1);
        ASSERT_EQ(decoder.Next(frame), Status::NeedMore) << "after byte " << i;
    }
    decoder.Feed(&bytes.back(), 1);
    ASSERT_EQ(decoder.Next(frame), Status::Frame);
    EXPECT_EQ(frame.envelope().payload(), std::string(200, 'x'));
}

TEST(FrameCodec, LengthOverTheLimitIsRefusedBeforeTheBodyArrives) {
    FrameDecoder decoder(100);
    std::string const length = "\x65";  // 101
    decoder.Feed(length.data(), length.size());
    IPCFrame frame;
    EXPECT_EQ(decoder.Next(frame), Status::TooLarge);
    EXPECT_EQ(decoder.RefusedLength(), 101u);
}

TEST(FrameCodec, FrameAtTheLimitPasses) {
    IPCFrame const frame = Request(1, std::string(50, 'y'));
    FrameDecoder decoder(frame.ByteSizeLong());
    std::string const bytes = Encoded(frame);
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame out;
    EXPECT_EQ(decoder.Next(out), Status::Frame);
}

TEST(FrameCodec, EncoderRefusesAFrameOverTheLimit) {
    std::string bytes = "kept";
    EXPECT_FALSE(Tarv::AppendFrame(Request(1, std::string(100, 'z')), bytes, 50));
    EXPECT_EQ(bytes, "kept");
    EXPECT_EQ(Tarv::kMaxFrameBytes, 1u << 20);
}

TEST(FrameCodec, LengthLongerThanFiveBytesIsMalformed) {
    std::string const bytes(5, '\x80');
    FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame frame;
    EXPECT_EQ(decoder.Next(frame), Status::Malformed);
}

TEST(FrameCodec, BodyThatDoesNotParseIsMalformed) {
    std::string const bytes = std::string("\x03") + "\xff\xff\xff";
    FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame frame;
    EXPECT_EQ(decoder.Next(frame), Status::Malformed);
}

TEST(FrameCodec, FramesMissingWhatTheyMustCarryAreMalformed) {
    IPCFrame noKind = Request(1, "p");
    noKind.clear_kind();
    IPCFrame noIdentifier = Request(1, "p");
    noIdentifier.mutable_envelope()->clear_message_id();
    IPCFrame unnumberedResponse = Request(1, "p");
    unnumberedResponse.set_kind(IPCFrame::RESPONSE);
    unnumberedResponse.clear_request_number();
    IPCFrame noEnvelope;
    noEnvelope.set_kind(IPCFrame::NOTIFICATION);
    for (IPCFrame const& bad : {noKind, noIdentifier, unnumberedResponse, noEnvelope}) {
        FrameDecoder decoder;
        std::string const bytes = Encoded(bad);
        decoder.Feed(bytes.data(), bytes.size());
        IPCFrame frame;
        EXPECT_EQ(decoder.Next(frame), Status::Malformed) << bad.ShortDebugString();
    }
    IPCFrame notification;
    notification.set_kind(IPCFrame::NOTIFICATION);
    notification.mutable_envelope()->set_message_id(8);
    FrameDecoder decoder;
    std::string const bytes = Encoded(notification);
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame frame;
    EXPECT_EQ(decoder.Next(frame), Status::Frame) << "a notification needs no number";
}

TEST(FrameCodec, MadeFramesCarryTheEnvelopeUnderTheirIdentifier) {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload("p");
    envelope.set_payload_type_name("sources");
    IPCFrame const response = Tarv::MakeFrame(IPCFrame::RESPONSE, 30, envelope, 9);
    EXPECT_EQ(response.kind(), IPCFrame::RESPONSE);
    EXPECT_EQ(response.request_number(), 9u);
    EXPECT_EQ(response.envelope().message_id(), 30u);
    EXPECT_EQ(response.envelope().payload(), "p");
    EXPECT_EQ(response.envelope().payload_type_name(), "sources");
    IPCFrame const notification = Tarv::MakeFrame(IPCFrame::NOTIFICATION, 8, envelope, 9);
    EXPECT_FALSE(notification.has_request_number());
    EXPECT_FALSE(envelope.has_message_id()) << "the caller's envelope is left as it was";
}

// The encoder every send uses writes MakeFrame's bytes, without copying the envelope.
TEST(FrameCodec, DirectEncodingWritesTheBytesOfTheMadeFrame) {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload(std::string(300, 'p'));
    envelope.set_payload_type_name("sources");
    for (auto kind :
         {IPCFrame::REQUEST, IPCFrame::RESPONSE, IPCFrame::NOTIFICATION, IPCFrame::ONE_WAY}) {
        for (std::uint64_t number :
             {std::uint64_t(0), std::uint64_t(1), std::uint64_t(300), ~std::uint64_t(0)}) {
            for (unsigned int id : {0u, 1u, 30u, 100000u}) {
                std::string direct = "kept";
                ASSERT_TRUE(Tarv::AppendFrame(kind, id, envelope, number, direct));
                EXPECT_EQ(direct, "kept" + Encoded(Tarv::MakeFrame(kind, id, envelope, number)))
                    << "kind " << kind << " number " << number << " id " << id;
            }
        }
    }
    Tarv::IPCMessageEnvelopeBase empty;
    std::string direct;
    ASSERT_TRUE(Tarv::AppendFrame(IPCFrame::ONE_WAY, 13, empty, 0, direct));
    EXPECT_EQ(direct, Encoded(Tarv::MakeFrame(IPCFrame::ONE_WAY, 13, empty)));
}

TEST(FrameCodec, DirectEncodingOfAnEnvelopeUnderAnotherIdentifierDecodesUnderTheNewOne) {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload("p");
    envelope.set_message_id(5);  // as delivered, then sent on under another identifier
    std::string bytes;
    ASSERT_TRUE(Tarv::AppendFrame(IPCFrame::RESPONSE, 7, envelope, 2, bytes));
    FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    IPCFrame frame;
    ASSERT_EQ(decoder.Next(frame), Status::Frame);
    EXPECT_EQ(frame.envelope().message_id(), 7u);
    EXPECT_EQ(frame.envelope().payload(), "p");
    EXPECT_EQ(frame.request_number(), 2u);
    // The same identifier again: the bytes are MakeFrame's exactly.
    std::string same;
    ASSERT_TRUE(Tarv::AppendFrame(IPCFrame::RESPONSE, 5, envelope, 2, same));
    EXPECT_EQ(same, Encoded(Tarv::MakeFrame(IPCFrame::RESPONSE, 5, envelope, 2)));
}

TEST(FrameCodec, DirectEncodingRefusesABodyOverTheLimitAndLeavesTheOutputAlone) {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload(std::string(100, 'z'));
    std::string const made = Encoded(Tarv::MakeFrame(IPCFrame::REQUEST, 1, envelope, 1));
    std::size_t const body = made.size() - 1;  // a one-byte length
    std::string bytes = "kept";
    EXPECT_FALSE(Tarv::AppendFrame(IPCFrame::REQUEST, 1, envelope, 1, bytes, body - 1));
    EXPECT_EQ(bytes, "kept");
    EXPECT_TRUE(Tarv::AppendFrame(IPCFrame::REQUEST, 1, envelope, 1, bytes, body));
}

TEST(FrameCodec, ManyFramesThroughOneDecoderKeepItsBufferSmall) {
    std::string const one = Encoded(Request(3, std::string(1000, 'q')));
    FrameDecoder decoder;
    IPCFrame frame;
    for (int i = 0; i < 1000; ++i) {
        decoder.Feed(one.data(), one.size() / 2);
        ASSERT_EQ(decoder.Next(frame), Status::NeedMore);
        decoder.Feed(one.data() + one.size() / 2, one.size() - one.size() / 2);
        ASSERT_EQ(decoder.Next(frame), Status::Frame);
    }
    EXPECT_EQ(decoder.Buffered(), 0u);
}

}  // namespace
