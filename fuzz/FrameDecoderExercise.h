#pragma once
// Feeds arbitrary bytes to the frame decoder in arbitrary chunks. The decoder must never
// crash, never read outside its input, always make progress or ask for more, and every
// frame it accepts must survive a second encoding unchanged, by either encoder; a broken
// promise aborts.
// Shared by the fuzz target and by the test that replays the kept inputs.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/ipc/transport/FrameCodec.h"

namespace Vellmark::Fuzz::FrameDecoderExercise {

// A small limit as well, so that inputs reach the over-the-limit path cheaply.
constexpr std::size_t kSmallLimit = 4096;

inline void Check(bool condition) {
    if (!condition) std::abort();
}

inline void RoundTrip(Tarv::IPCFrame const& frame) {
    std::string bytes;
    Check(Tarv::AppendFrame(frame, bytes));
    Tarv::FrameDecoder again;
    again.Feed(bytes.data(), bytes.size());
    Tarv::IPCFrame copy;
    Check(again.Next(copy) == Tarv::FrameDecoder::Status::Frame);
    Check(copy.SerializeAsString() == frame.SerializeAsString());
    Check(again.Buffered() == 0);

    // What a send of the decoded parts writes decodes to the same frame (the request number
    // travels on requests and responses only).
    std::string direct;
    Check(Tarv::AppendFrame(frame.kind(), frame.envelope().message_id(), frame.envelope(),
                            frame.request_number(), direct));
    Tarv::FrameDecoder sent;
    sent.Feed(direct.data(), direct.size());
    Tarv::IPCFrame received;
    Check(sent.Next(received) == Tarv::FrameDecoder::Status::Frame);
    Tarv::IPCFrame expected = frame;
    bool const numbered =
        frame.kind() == Tarv::IPCFrame::REQUEST || frame.kind() == Tarv::IPCFrame::RESPONSE;
    if (!numbered) expected.clear_request_number();
    expected.mutable_unknown_fields()->Clear();  // a send writes the frame's known fields only
    Check(received.SerializeAsString() == expected.SerializeAsString());
}

}  // namespace Vellmark::Fuzz::FrameDecoderExercise

namespace Vellmark::Fuzz {

// Runs one input: its first byte picks the chunk size and the limit, the rest is the
// stream.
inline void ExerciseFrameDecoder(std::uint8_t const* data, std::size_t size) {
    if (size == 0) return;
    std::size_t const chunk = 1 + (data[0] & 0x3f);
    bool const small = (data[0] & 0x40) != 0;
    Tarv::FrameDecoder decoder(small ? Vellmark::Fuzz::FrameDecoderExercise::kSmallLimit
                                     : Tarv::kMaxFrameBytes);
    char const* stream = reinterpret_cast<char const*>(data + 1);
    std::size_t const length = size - 1;

    Tarv::IPCFrame frame;
    for (std::size_t offset = 0; offset < length; offset += chunk) {
        std::size_t const n = offset + chunk <= length ? chunk : length - offset;
        decoder.Feed(stream + offset, n);
        for (;;) {
            std::size_t const before = decoder.Buffered();
            auto const status = decoder.Next(frame);
            if (status == Tarv::FrameDecoder::Status::Frame) {
                Vellmark::Fuzz::FrameDecoderExercise::Check(decoder.Buffered() < before);
                Vellmark::Fuzz::FrameDecoderExercise::RoundTrip(frame);
                continue;
            }
            if (status == Tarv::FrameDecoder::Status::NeedMore) break;
            return;  // TooLarge or Malformed: the connection would be closed here
        }
    }
}

}  // namespace Vellmark::Fuzz
