// The clients as the page lists them: the service's list with the names of this machine
// and what the traffic showed of each.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "VellmarkMessageId.pb.h"
#include "console/ClientRoster.h"

namespace Vellmark::Console {
namespace {

Vellmark::Admin::TrafficEvent Acknowledgement(std::uint64_t session, std::string const& update) {
    Vellmark::Admin::TrafficEvent event;
    event.set_time("10:15:02.347");
    event.set_direction("in");
    event.set_session(session);
    event.set_kind("one-way");
    event.set_messageid(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED);
    event.set_payloadjson("{\"messageId\":\"" + update + "\"}");
    return event;
}

Vellmark::Admin::ClientList Listed(std::vector<std::uint64_t> const& sessions) {
    Vellmark::Admin::ClientList list;
    for (auto const session : sessions) {
        auto* client = list.add_clients();
        client->set_session(session);
        client->set_pid(4000 + static_cast<std::int32_t>(session));
        client->set_uid(1000);
        client->set_connectedat("2026-11-24T10:15:00Z");
        client->set_requests(2);
    }
    return list;
}

// The same document, whatever the order of its fields.
void ExpectSameJson(std::string const& actual, std::string const& expected) {
    google::protobuf::Struct a;
    google::protobuf::Struct b;
    ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(actual, &a).ok()) << actual;
    ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(expected, &b).ok()) << expected;
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(a, b)) << actual;
}

ClientRoster Roster() {
    return ClientRoster([](std::uint32_t uid) { return uid == 1000 ? "lena" : ""; },
                        [](std::int32_t pid) { return "app-" + std::to_string(pid); });
}

TEST(ClientRoster, AClientIsListedWithItsNamesAndTheUpdatesItAcknowledged) {
    auto roster = Roster();
    roster.Count(Acknowledgement(3, "VELLMARK_MESSAGE_PRESETS_UPDATE"));
    roster.Count(Acknowledgement(3, "VELLMARK_MESSAGE_PRESETS_UPDATE"));
    roster.Count(Acknowledgement(3, "VELLMARK_MESSAGE_SOURCES_UPDATE"));
    ExpectSameJson(
        roster.Render(Listed({3})),
        "{\"clients\":[{\"acknowledged\":3,\"connectedAt\":\"2026-11-24T10:15:00Z\","
        "\"frames\":3,\"lastFrame\":\"10:15:02.347\",\"pid\":4003,\"program\":\"app-4003\","
        "\"requests\":2,\"session\":3,\"subscriptions\":{"
        "\"VELLMARK_MESSAGE_PRESETS_UPDATE\":2,\"VELLMARK_MESSAGE_SOURCES_UPDATE\":1},"
        "\"uid\":1000,\"user\":\"lena\"}]}");
}

TEST(ClientRoster, TheCountsOfAClientThatWentAreForgotten) {
    auto roster = Roster();
    roster.Count(Acknowledgement(3, "VELLMARK_MESSAGE_PRESETS_UPDATE"));
    // Not listed yet, but it sent frames since the last list: kept.
    roster.Render(Listed({}));
    EXPECT_NE(roster.Render(Listed({3})).find("\"acknowledged\":1"), std::string::npos);
    // Gone, and quiet since.
    roster.Render(Listed({}));
    EXPECT_NE(roster.Render(Listed({3})).find("\"acknowledged\":0"), std::string::npos);
}

TEST(ClientRoster, ThisProcessIsFoundByItsPid) {
    EXPECT_FALSE(ClientRoster::SystemProgramName(static_cast<std::int32_t>(::getpid())).empty());
    EXPECT_EQ(ClientRoster::SystemProgramName(0), "");
    EXPECT_EQ(ClientRoster::SystemUserName(0), "root");
}

}  // namespace
}  // namespace Vellmark::Console
