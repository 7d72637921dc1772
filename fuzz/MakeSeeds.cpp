// make_fuzz_seeds FOLDER: writes the seed inputs of the fuzz targets made from the example
// store document, one folder a target (FOLDER/service_request, ...), one file a seed.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "fuzz/ClientSeeds.h"
#include "fuzz/ServiceSeeds.h"

namespace {

template <class Seeds>
void Write(std::filesystem::path const& folder, Seeds const& seeds) {
    std::filesystem::create_directories(folder);
    for (auto const& seed : seeds) {
        std::ofstream(folder / seed.name, std::ios::binary) << seed.bytes;
    }
    std::printf("%s: %zu seeds\n", folder.c_str(), seeds.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_fuzz_seeds FOLDER\n");
        return 2;
    }
    std::filesystem::path const folder = argv[1];
    Write(folder / "service_request", Vellmark::Fuzz::ServiceSeeds::ServiceRequestSeeds());
    Write(folder / "admin_import", Vellmark::Fuzz::ServiceSeeds::AdminImportSeeds());
    Write(folder / "store_load", Vellmark::Fuzz::ServiceSeeds::StoreLoadSeeds());
    Write(folder / "client_receive", Vellmark::Fuzz::ClientSeeds::ClientReceiveSeeds());
    return 0;
}
