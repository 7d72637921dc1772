// libFuzzer target for the client's receive path: envelopes, decoding, callbacks, handlers,
// dumps.
#include "fuzz/ClientReceiveExercise.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Vellmark::Fuzz::ExerciseClientReceive(data, size);
    return 0;
}
