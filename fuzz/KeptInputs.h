#pragma once
// The inputs kept beside a fuzz target (VELLMARK_FUZZ_DIR): its seed corpus and every input
// that once broke it, for the tests that replay them.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace Vellmark::Fuzz {

struct KeptInput {
    std::string name;
    std::string bytes;
};

// The files of `folder` (e.g. "regressions/store_load"), dot files left out.
inline std::vector<KeptInput> KeptInputs(std::string const& folder) {
    std::vector<KeptInput> inputs;
    auto const path = std::filesystem::path(VELLMARK_FUZZ_DIR) / folder;
    if (!std::filesystem::is_directory(path)) return inputs;
    for (auto const& entry : std::filesystem::directory_iterator(path)) {
        if (!entry.is_regular_file() || entry.path().filename().string()[0] == '.') continue;
        std::ifstream file(entry.path(), std::ios::binary);
        inputs.push_back({entry.path().string(), std::string(std::istreambuf_iterator<char>(file),
                                                             std::istreambuf_iterator<char>())});
    }
    return inputs;
}

}  // namespace Vellmark::Fuzz
