#include "console/Assets.h"

namespace Vellmark::Console {

Asset const* FindAsset(std::string const& path) {
    std::string const wanted = path == "/" ? "/assets/index.html" : path;
    for (auto const& asset : Assets()) {
        if (wanted == asset.path) return &asset;
    }
    return nullptr;
}

}  // namespace Vellmark::Console
