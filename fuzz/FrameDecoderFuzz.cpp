// libFuzzer target for the frame decoder.
#include "fuzz/FrameDecoderExercise.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Vellmark::Fuzz::ExerciseFrameDecoder(data, size);
    return 0;
}
