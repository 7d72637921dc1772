// Acknowledgements: counted per update identifier, others refused without growing the
// table, and the refusals logged at most once a minute.
#include <gtest/gtest.h>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/MessageTable.h"
#include "service/Acknowledgements.h"

namespace Vellmark::ServiceTest {
namespace {

using Service::Acknowledgements;

TEST(Acknowledgements, CountsEveryUpdateIdentifierOfTheResourceTable) {
    Acknowledgements acks;
    std::size_t updates = 0;
    for (auto const& resource : Admin::Resources()) {
        if (resource.updateId == 0) continue;
        ++updates;
        EXPECT_TRUE(acks.Record(resource.updateId, 1)) << resource.name;
        EXPECT_TRUE(acks.Record(resource.updateId, 2)) << resource.name;
    }
    ASSERT_GT(updates, 0u);
    EXPECT_EQ(acks.CountedIdentifiers(), updates);
    EXPECT_EQ(acks.Refused(), 0u);

    auto const report = acks.Report();
    ASSERT_EQ(static_cast<std::size_t>(report.counts_size()), updates);
    for (auto const& count : report.counts()) {
        EXPECT_EQ(count.count(), 2u) << count.messagename();
        EXPECT_EQ(count.messagename(), Admin::MessageName(count.messageid()));
    }
    ASSERT_EQ(static_cast<std::size_t>(report.latest_size()), 2 * updates);
    EXPECT_EQ(report.latest(0).session(), 1u);
    EXPECT_EQ(report.latest(1).session(), 2u);
}

TEST(Acknowledgements, ManyDistinctOtherIdentifiersLeaveTheTableAsItWas) {
    Acknowledgements acks;
    ASSERT_TRUE(acks.Record(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE, 7));
    constexpr unsigned int kOthers = 200000;
    unsigned int refused = 0;
    for (unsigned int id = 0; id < kOthers; ++id) {
        if (id == VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE) continue;
        auto const* message = Admin::FindMessage(id);
        bool const update = message && message->role == Admin::MessageRole::Update;
        EXPECT_EQ(acks.Record(id, 8), update) << id;
        if (!update) ++refused;
    }
    // Queries, requests, the acknowledgement's own identifier and values the enum lacks.
    EXPECT_FALSE(acks.Record(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, 8));
    EXPECT_FALSE(acks.Record(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, 8));
    EXPECT_FALSE(acks.Record(4000000000u, 8));
    refused += 3;

    std::size_t updates = 0;
    for (auto const& resource : Admin::Resources()) {
        if (resource.updateId != 0) ++updates;
    }
    EXPECT_EQ(acks.CountedIdentifiers(), updates);
    EXPECT_EQ(acks.Refused(), refused);
    // The legitimate one is still there, counted once; nothing refused shows in the report.
    auto const report = acks.Report();
    for (auto const& count : report.counts()) {
        auto const* message = Admin::FindMessage(count.messageid());
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->role, Admin::MessageRole::Update);
        if (count.messageid() == VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE) {
            EXPECT_EQ(count.count(), 1u);
        }
    }
    EXPECT_LE(static_cast<std::size_t>(report.latest_size()), Acknowledgements::kKept);
    for (auto const& latest : report.latest()) {
        EXPECT_EQ(Admin::FindMessage(latest.messageid())->role, Admin::MessageRole::Update);
    }
}

TEST(Acknowledgements, RefusalsAreLoggedOnceAMinuteWithTheCountInBetween) {
    Acknowledgements acks;
    Acknowledgements::Clock::time_point const start{};
    auto const first = acks.RefusalLine(4000, 3, start);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(*first,
              "acknowledgement of 4000 from session 3 refused: the service pushes no update "
              "under this identifier");
    for (unsigned int id = 4001; id < 4101; ++id) {
        EXPECT_FALSE(acks.RefusalLine(id, 3, start + std::chrono::seconds(59)).has_value());
    }
    auto const next = acks.RefusalLine(5000, 4, start + Acknowledgements::kLogWindow);
    ASSERT_TRUE(next.has_value());
    EXPECT_EQ(*next,
              "acknowledgement of 5000 from session 4 refused: the service pushes no update "
              "under this identifier; 100 more refused since the last line");
    // The count starts again after each line.
    auto const later = acks.RefusalLine(5001, 4, start + 3 * Acknowledgements::kLogWindow);
    ASSERT_TRUE(later.has_value());
    EXPECT_EQ(later->find("more refused"), std::string::npos) << *later;
}

}  // namespace
}  // namespace Vellmark::ServiceTest
