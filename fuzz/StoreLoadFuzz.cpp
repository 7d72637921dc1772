// libFuzzer target for loading a store file.
#include "fuzz/StoreLoadExercise.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Vellmark::Fuzz::ExerciseStoreLoad(data, size);
    return 0;
}
