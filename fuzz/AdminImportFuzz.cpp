// libFuzzer target for the admin imports: put and seed (and --seed, which seeds the same way).
#include "fuzz/ServiceExercise.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Vellmark::Fuzz::ExerciseAdminImport(data, size);
    return 0;
}
