#include <gtest/gtest.h>

#include <set>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"

namespace {

using namespace Vellmark::Admin;

TEST(ResourceTableTest, EveryQueryLeadsBackToItsResource) {
    int queries = 0;
    for (auto const& resource : Resources()) {
        if (resource.queryId == 0) continue;
        ++queries;
        ASSERT_EQ(ResourceOfQuery(resource.queryId), &resource) << resource.name;
    }
    EXPECT_EQ(queries, 7);
}

TEST(ResourceTableTest, IdentifierZeroIsNoQuery) {
    // The association is marked 0 for "no query"; a request under 0 must not read it.
    ASSERT_NE(FindResource("association"), nullptr);
    EXPECT_EQ(FindResource("association")->queryId, 0u);
    EXPECT_EQ(ResourceOfQuery(0), nullptr);
}

TEST(ResourceTableTest, UpdatesAndOtherRequestsAreNotQueries) {
    for (auto const& resource : Resources()) {
        EXPECT_EQ(ResourceOfQuery(resource.updateId), nullptr) << resource.name;
    }
    EXPECT_EQ(ResourceOfQuery(VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS), nullptr);
    EXPECT_EQ(ResourceOfQuery(99999), nullptr);
}

TEST(ResourceTableTest, NamesFindTheirResourcesAndUnknownNamesNothing) {
    std::set<std::string> names;
    for (auto const& resource : Resources()) {
        EXPECT_EQ(FindResource(resource.name), &resource);
        names.insert(resource.name);
    }
    EXPECT_EQ(names.size(), Resources().size());
    EXPECT_EQ(FindResource("Sources"), nullptr);
    EXPECT_EQ(FindResource(""), nullptr);
}

TEST(ResourceTableTest, NamesForQueriesLeaveOutTheAssociation) {
    EXPECT_EQ(ResourceNames(true),
              "sources, voice-accounts, msp-host-accounts, product-settings, persons, groups, "
              "presets");
    EXPECT_EQ(ResourceNames(false),
              "sources, voice-accounts, msp-host-accounts, product-settings, persons, groups, "
              "presets, association");
}

}  // namespace
