// The JSON vellmarkctl prints: 64-bit numbers as numbers, lists always there, and a
// document that reads back as the same message.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include "VellmarkAdmin.pb.h"
#include "VellmarkPresets.pb.h"
#include "admin/Json.h"
#include "tools/JsonOutput.h"

namespace Vellmark::Ctl {
namespace {

TEST(JsonOutput, SixtyFourBitNumbersAreNumbersAndListsAreAlwaysThere) {
    Vellmark::Admin::ClientList none;
    EXPECT_EQ(JsonOf(none, false), "{\"clients\":[],\"users\":[]}");
    Vellmark::Admin::ClientList list;
    auto* client = list.add_clients();
    client->set_session(3);
    client->set_pid(41);
    client->set_requests(18446744073709551615ull);
    client->set_connectedat("2026-11-24T10:15:30Z");
    EXPECT_EQ(JsonOf(list, false),
              "{\"clients\":[{\"session\":3,\"pid\":41,\"connectedAt\":\"2026-11-24T10:15:30Z\","
              "\"requests\":18446744073709551615}],\"users\":[]}");
    Vellmark::Admin::TrafficEvent event;
    event.set_timemicros(-5);
    EXPECT_EQ(JsonOf(event, false), "{\"timeMicros\":-5}");
}

TEST(JsonOutput, APrintedDocumentReadsBackAsTheSameMessage) {
    Vellmark::Admin::AcknowledgementReport report;
    auto* count = report.add_counts();
    count->set_messageid(7);
    count->set_count(12);
    report.add_latest()->set_session(9);
    for (bool const pretty : {false, true}) {
        Vellmark::Admin::AcknowledgementReport read;
        ASSERT_EQ(Vellmark::Json::Parse(JsonOf(report, pretty), read), "");
        EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(read, report));
    }
    VellmarkPB::VellmarkPresets presets;
    auto* preset = presets.add_presets();
    preset->set_key("1");
    preset->mutable_value()->add_actions()->set_actiontype("PLAY");
    // Lists inside are left as protobuf writes them; the document's own list is there.
    EXPECT_EQ(
        JsonOf(presets, false),
        "{\"presets\":[{\"value\":{\"actions\":[{\"actionType\":\"PLAY\"}]},\"key\":\"1\"}]}");
    EXPECT_EQ(JsonOf(VellmarkPB::VellmarkPresets(), false), "{\"presets\":[]}");
}

}  // namespace
}  // namespace Vellmark::Ctl
