// Replays the inputs of the service's fuzz targets: their seeds, their kept corpora
// (fuzz/corpus/), some damage done to the store seeds, and every input that once broke a
// target (kept in fuzz/regressions/). Under the sanitizer builds this catches again what a
// fuzzing run found before.
#include <gtest/gtest.h>

#include "fuzz/KeptInputs.h"
#include "fuzz/ServiceSeeds.h"
#include "fuzz/StoreLoadExercise.h"

using namespace Vellmark::Fuzz;

namespace {

template <class Exercise>
void Replay(std::vector<Vellmark::Fuzz::ServiceSeeds::Seed> const& seeds, std::string const& target,
            Exercise exercise) {
    for (auto const& seed : seeds) {
        SCOPED_TRACE(seed.name);
        exercise(reinterpret_cast<std::uint8_t const*>(seed.bytes.data()), seed.bytes.size());
    }
    for (auto const& folder : {"corpus/", "regressions/"}) {
        for (auto const& kept : KeptInputs(folder + target)) {
            SCOPED_TRACE(kept.name);
            exercise(reinterpret_cast<std::uint8_t const*>(kept.bytes.data()), kept.bytes.size());
        }
    }
}

TEST(FuzzInputs, EveryRequestSeedIsAnsweredAndTheirRegressionsStayFixed) {
    auto const seeds = Vellmark::Fuzz::ServiceSeeds::ServiceRequestSeeds();
    ASSERT_GE(seeds.size(), 15u);
    ASSERT_FALSE(KeptInputs("corpus/service_request").empty());
    Replay(seeds, "service_request", ExerciseServiceRequests);
}

TEST(FuzzInputs, EveryAdminImportSeedIsAnswered) {
    auto const seeds = Vellmark::Fuzz::ServiceSeeds::AdminImportSeeds();
    ASSERT_EQ(seeds.size(), Vellmark::Admin::Resources().size() + 2);
    ASSERT_FALSE(KeptInputs("corpus/admin_import").empty());
    Replay(seeds, "admin_import", ExerciseAdminImport);
}

TEST(FuzzInputs, StoreFilesLoadOrAreRefusedWhateverTheDamage) {
    auto seeds = Vellmark::Fuzz::ServiceSeeds::StoreLoadSeeds();
    ASSERT_EQ(seeds.size(), 2u);
    auto const& seeded = seeds[1].bytes;
    ASSERT_GT(seeded.size(), 4096u);
    // Cut short, and single bytes changed, at the header and at page boundaries.
    std::vector<Vellmark::Fuzz::ServiceSeeds::Seed> damaged;
    for (std::size_t at : {std::size_t(0), std::size_t(16), std::size_t(100), std::size_t(4096),
                           seeded.size() / 2, seeded.size() - 1}) {
        damaged.push_back({"cut at " + std::to_string(at), seeded.substr(0, at)});
        std::string flipped = seeded;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x5a);
        damaged.push_back({"byte changed at " + std::to_string(at), flipped});
    }
    seeds.insert(seeds.end(), damaged.begin(), damaged.end());
    Replay(seeds, "store_load", ExerciseStoreLoad);
}

}  // namespace
