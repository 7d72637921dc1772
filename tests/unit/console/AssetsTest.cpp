// The page is compiled in whole and loads nothing from elsewhere.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>

#include "console/Assets.h"

namespace Vellmark::Console {
namespace {

std::string Text(Asset const& asset) {
    return std::string(reinterpret_cast<char const*>(asset.data), asset.size);
}

TEST(Assets, ThePageAndEveryFileItNamesAreCompiledIn) {
    Asset const* page = FindAsset("/");
    ASSERT_NE(page, nullptr);
    EXPECT_STREQ(page->path, "/assets/index.html");
    EXPECT_STREQ(page->contentType, "text/html");
    std::set<std::string> named;
    std::regex const reference(R"((?:href|src)="(/assets/[^"]+)\")");
    std::string const html = Text(*page);
    for (std::sregex_iterator it(html.begin(), html.end(), reference), end; it != end; ++it) {
        named.insert((*it)[1]);
    }
    // Modules name each other relative to /assets/.
    std::regex const import(R"(from '\./([^']+)')");
    for (auto const& asset : Assets()) {
        std::string const text = Text(asset);
        for (std::sregex_iterator it(text.begin(), text.end(), import), end; it != end; ++it) {
            named.insert("/assets/" + (*it)[1].str());
        }
    }
    EXPECT_GE(named.size(), 5u);
    for (auto const& path : named) EXPECT_NE(FindAsset(path), nullptr) << path;
    EXPECT_EQ(FindAsset("/assets/missing.js"), nullptr);
}

TEST(Assets, NothingIsLoadedFromAnotherPlace) {
    for (auto const& asset : Assets()) {
        std::string text = Text(asset);
        // The one URL the page holds names SVG's namespace; it is never fetched.
        for (std::string const allowed : {"http://www.w3.org/2000/svg"}) {
            for (auto at = text.find(allowed); at != std::string::npos; at = text.find(allowed)) {
                text.erase(at, allowed.size());
            }
        }
        EXPECT_EQ(text.find("http://"), std::string::npos) << asset.path;
        EXPECT_EQ(text.find("https://"), std::string::npos) << asset.path;
        EXPECT_EQ(text.find("//cdn"), std::string::npos) << asset.path;
        EXPECT_EQ(text.find("@import"), std::string::npos) << asset.path;
    }
}

TEST(Assets, EachFileHasTheTypeOfItsKind) {
    std::map<std::string, std::string> const types = {{".js", "text/javascript"},
                                                      {".css", "text/css"},
                                                      {".svg", "image/svg+xml"},
                                                      {".html", "text/html"}};
    for (auto const& asset : Assets()) {
        std::string const path = asset.path;
        auto const type = types.find(path.substr(path.rfind('.')));
        ASSERT_NE(type, types.end()) << path;
        EXPECT_EQ(asset.contentType, type->second) << path;
    }
}

}  // namespace
}  // namespace Vellmark::Console
