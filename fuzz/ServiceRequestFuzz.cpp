// libFuzzer target for the service's request path: frames, through the handlers, to the store.
#include "fuzz/ServiceExercise.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Vellmark::Fuzz::ExerciseServiceRequests(data, size);
    return 0;
}
