// Replays every kept input of the frame decoder's fuzz target: the seed corpus, and each
// input that once broke the decoder (kept in fuzz/regressions/ when a fuzzing run finds
// one). Under the sanitizer build this catches a regression the fuzzer found before.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/FrameDecoderExercise.h"
#include "fuzz/KeptInputs.h"

using namespace Vellmark::Fuzz;

namespace {

TEST(FrameDecoderInputs, EveryKeptInputDecodesWithinTheDecodersPromises) {
    auto inputs = KeptInputs("corpus/frame_decoder");
    ASSERT_GE(inputs.size(), 10u) << "the seed corpus is missing";
    for (auto& regression : KeptInputs("regressions/frame_decoder")) {
        inputs.push_back(std::move(regression));
    }
    for (auto const& input : inputs) {
        SCOPED_TRACE(input.name);
        ExerciseFrameDecoder(reinterpret_cast<std::uint8_t const*>(input.bytes.data()),
                             input.bytes.size());
    }
}

TEST(FrameDecoderInputs, SeedsReachEveryOutcome) {
    // The corpus starts the fuzzer at each of the decoder's answers.
    auto decode = [](char const* name) {
        std::ifstream file(std::filesystem::path(VELLMARK_FUZZ_DIR) / "corpus/frame_decoder" / name,
                           std::ios::binary);
        std::string const bytes((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
        Tarv::FrameDecoder decoder((bytes.at(0) & 0x40) ? 4096 : Tarv::kMaxFrameBytes);
        decoder.Feed(bytes.data() + 1, bytes.size() - 1);
        Tarv::IPCFrame frame;
        return decoder.Next(frame);
    };
    using Status = Tarv::FrameDecoder::Status;
    EXPECT_EQ(decode("request"), Status::Frame);
    EXPECT_EQ(decode("response_sources"), Status::Frame);
    EXPECT_EQ(decode("notification"), Status::Frame);
    EXPECT_EQ(decode("one_way_ack"), Status::Frame);
    EXPECT_EQ(decode("truncated"), Status::NeedMore);
    EXPECT_EQ(decode("over_limit"), Status::TooLarge);
    EXPECT_EQ(decode("over_limit_small"), Status::TooLarge);
    EXPECT_EQ(decode("no_kind"), Status::Malformed);
    EXPECT_EQ(decode("garbage"), Status::Malformed);
    EXPECT_EQ(decode("long_length"), Status::Malformed);
}

}  // namespace
