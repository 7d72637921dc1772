// The service's request table against MessageTable: every request identifier of the schema
// has exactly one row, with the payload types and refusal route that MessageTable gives
// the tools, and a table that strays from it is caught.
#include "service/RequestTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "admin/MessageTable.h"

using namespace Vellmark::Service;

namespace {

using Vellmark::Admin::MessageInfo;
using Vellmark::Admin::MessageRole;

std::vector<unsigned int> SchemaIds() {
    std::vector<unsigned int> ids;
    auto const* values = VellmarkPB::MessageId_descriptor();
    for (int i = 0; i < values->value_count(); ++i)
        ids.push_back(static_cast<unsigned int>(values->value(i)->number()));
    return ids;
}

// True when some line of `lines` contains `part`.
bool Mentions(std::vector<std::string> const& lines, std::string const& part) {
    return std::any_of(lines.begin(), lines.end(), [&](std::string const& line) {
        return line.find(part) != std::string::npos;
    });
}

TEST(RequestTable, EveryRequestOfTheSchemaHasExactlyOneRowAgreeingWithMessageTable) {
    auto const& rows = RequestTable();
    std::size_t requests = 0;
    for (unsigned int id : SchemaIds()) {
        SCOPED_TRACE(id);
        MessageInfo const* message = Vellmark::Admin::FindMessage(id);
        ASSERT_NE(message, nullptr);
        auto const count = std::count_if(rows.begin(), rows.end(),
                                         [id](RequestRow const& row) { return row.id == id; });
        if (message->role != MessageRole::Request) {
            EXPECT_EQ(count, 0);
            EXPECT_EQ(FindRequest(id), nullptr);
            continue;
        }
        ++requests;
        ASSERT_EQ(count, 1);
        RequestRow const* row = FindRequest(id);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->id, id);
        EXPECT_EQ(row->request, message->request);
        EXPECT_EQ(row->reply, message->reply);
        if (message->errorInReply) {
            EXPECT_EQ(row->route, RefusalRoute::InReply);
            EXPECT_EQ(row->reply, VellmarkPB::VellmarkAcctOpEnvelope::descriptor());
        } else if (message->errorId != 0) {
            EXPECT_EQ(row->route, RefusalRoute::Notification);
            EXPECT_EQ(row->errorId, message->errorId);
        } else {
            EXPECT_EQ(row->route, RefusalRoute::None);
        }
        EXPECT_NE(row->query == nullptr, row->write == nullptr) << "a query or a write";
        if (row->query) {
            EXPECT_EQ(row->query->queryId, id);
        }
    }
    EXPECT_EQ(rows.size(), requests) << "a row for a request the schema does not have";
    // The seven queries, preset storage, three service-account and three GVA operations.
    EXPECT_EQ(requests, 14u);
}

TEST(RequestTable, IdentifiersOutsideTheSchemaHaveNoRow) {
    for (unsigned int id : {99u, 1000u, 0xffffffffu}) EXPECT_EQ(FindRequest(id), nullptr) << id;
}

TEST(RequestTable, TheServicesTableAgreesWithMessageTable) {
    auto const found = Disagreements(RequestTable());
    EXPECT_TRUE(found.empty()) << found.front();
}

TEST(RequestTable, DisagreementsNameEveryWayARowCanStray) {
    auto const& table = RequestTable();
    auto const rowOf = [&](unsigned int id) {
        return *std::find_if(table.begin(), table.end(),
                             [id](RequestRow const& row) { return row.id == id; });
    };
    auto without = [&](unsigned int id) {
        std::vector<RequestRow> rows;
        for (auto const& row : table)
            if (row.id != id) rows.push_back(row);
        return rows;
    };

    auto missing = without(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    EXPECT_TRUE(Mentions(Disagreements(missing), "request 15: 0 rows")) << "a row missing";

    auto twice = table;
    twice.push_back(rowOf(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES));
    EXPECT_TRUE(Mentions(Disagreements(twice), "request 1: 2 rows")) << "a row twice";

    auto reserved = table;
    auto stray = rowOf(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    stray.id = VellmarkPB::VELLMARK_MESSAGE_RESERVED_14;
    reserved.push_back(stray);
    EXPECT_TRUE(Mentions(Disagreements(reserved), "request 14: MessageTable has no request"))
        << "a row for what is no request";

    auto retyped = without(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    auto deletion = rowOf(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    deletion.request = VellmarkPB::serviceAccounts::descriptor();
    retyped.push_back(deletion);
    EXPECT_TRUE(Mentions(Disagreements(retyped), "request 17: decoded as serviceAccounts"))
        << "another payload type";

    auto rerouted = without(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT);
    auto creation = rowOf(VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT);
    creation.route = RefusalRoute::Notification;
    rerouted.push_back(creation);
    EXPECT_TRUE(Mentions(Disagreements(rerouted), "request 23: refused through"))
        << "another refusal route";

    auto silenced = without(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID);
    auto update = rowOf(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID);
    update.route = RefusalRoute::None;
    update.errorId = 0;
    silenced.push_back(update);
    EXPECT_TRUE(Mentions(Disagreements(silenced), "request 21: refused through"))
        << "an error path dropped";

    auto empty = without(VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS);
    auto groups = rowOf(VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS);
    groups.query = nullptr;
    empty.push_back(groups);
    EXPECT_TRUE(Mentions(Disagreements(empty), "request 31: needs either"))
        << "neither a resource nor a write";
}

}  // namespace
