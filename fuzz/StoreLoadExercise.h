#pragma once
// Loading a store file under a fuzzer: the input is the file. Opening either refuses it
// with a StoreError or gives a store whose every resource and account reads, or is refused,
// without crashing; what opens can be written to and exported.
// Shared by the fuzz target and by the test that replays the kept inputs.
#include <cstdint>
#include <fstream>
#include <string>

#include "fuzz/ServiceExercise.h"
#include "service/Catalog.h"

namespace Vellmark::Fuzz::StoreLoadExercise {

using namespace Vellmark::Service;

inline std::string const& Folder() {
    static std::string const folder =
        Vellmark::Fuzz::ServiceExercise::TemporaryFolder("vellmark-fuzz-store");
    return folder;
}

inline void Remove(std::string const& path) {
    for (char const* suffix : {"", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
}

}  // namespace Vellmark::Fuzz::StoreLoadExercise

namespace Vellmark::Fuzz {

inline void ExerciseStoreLoad(std::uint8_t const* data, std::size_t size) {
    using namespace Vellmark::Fuzz::StoreLoadExercise;
    std::string const path = Folder() + "/store.db";
    Remove(path);
    {
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
    }
    try {
        Store store(path);
        Catalog catalog(store);
        for (auto const& resource : Vellmark::Admin::Resources()) {
            try {
                catalog.Read(resource);
            } catch (StoreError const&) {
            }
        }
        catalog.Accounts();
        catalog.Export();
        catalog.CheckEveryResourceFits();
        // What opened takes a write.
        Changes changed;
        VellmarkPB::VellmarkPresets presets;
        presets.add_presets()->set_key("1");
        catalog.StorePresets(presets, changed);
    } catch (StoreError const&) {
        // Refused, or damaged where it was read: said, not crashed.
    }
    Remove(path);
}

}  // namespace Vellmark::Fuzz
