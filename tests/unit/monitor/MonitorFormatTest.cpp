// What vellmarkctl monitor writes for an event: RFC 3339 times, JSON lines that parse as
// objects whatever the names hold, and the frame rebuilt with the masked payload.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "VellmarkMessageId.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSources.pb.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "tests/support/JsonFields.h"
#include "tools/MonitorFormat.h"

namespace Vellmark::Ctl {
namespace {

Vellmark::Admin::TrafficEvent Event() {
    Vellmark::Admin::TrafficEvent event;
    event.set_time("04:12:29.228");
    event.set_timemicros(1795493549228073);
    event.set_direction("out");
    event.set_session(3);
    event.set_kind("response");
    event.set_messageid(1);
    event.set_messagename("VELLMARK_MESSAGE_GET_SOURCES");
    event.set_requestnumber(7);
    event.set_payloadtype("sources");
    event.set_payloadjson(
        R"({"source":[{"id":"----------7d21","sourceproviderid":{"text":"AURORA_RADIO"}}]})");
    return event;
}

TestJson::Fields Parsed(std::string const& line) {
    TestJson::Fields fields;
    EXPECT_TRUE(TestJson::ParseObject(line, fields)) << line;
    return fields;
}

TEST(MonitorFormat, TimesAreRfc3339InUtcWithMicroseconds) {
    EXPECT_EQ(Rfc3339(0), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(Rfc3339(1795493549228073), "2026-11-24T04:12:29.228073Z");
    EXPECT_EQ(Rfc3339(951782400000001), "2000-02-29T00:00:00.000001Z");
    EXPECT_EQ(Rfc3339(-1), "1969-12-31T23:59:59.999999Z");
}

TEST(MonitorFormat, TheTextLineLeadsWithTheDate) {
    EXPECT_EQ(TextLine(Event()),
              "2026-11-24T04:12:29.228073Z -> #3 response 1 VELLMARK_MESSAGE_GET_SOURCES "
              "sources " +
                  Event().payloadjson() + "\n");
    auto older = Event();  // from a service that sends no date
    older.clear_timemicros();
    EXPECT_EQ(TextLine(older).rfind("04:12:29.228 -> #3", 0), 0u) << TextLine(older);
}

TEST(MonitorFormat, AJsonLineIsOneObjectWithEveryField) {
    std::string const line = JsonLine(Event());
    ASSERT_EQ(line.back(), '\n');
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    auto const fields = Parsed(line);
    EXPECT_EQ(fields.at("time").string_value(), "2026-11-24T04:12:29.228073Z");
    EXPECT_EQ(fields.at("direction").string_value(), "out");
    EXPECT_EQ(fields.at("session").number_value(), 3);
    EXPECT_EQ(fields.at("kind").string_value(), "response");
    EXPECT_EQ(fields.at("messageId").number_value(), 1);
    EXPECT_EQ(fields.at("messageName").string_value(), "VELLMARK_MESSAGE_GET_SOURCES");
    EXPECT_EQ(fields.at("requestNumber").number_value(), 7);
    EXPECT_EQ(fields.at("payloadType").string_value(), "sources");
    auto const payload = TestJson::FieldsOf(fields.at("payload").struct_value());
    auto const source = payload.at("source").list_value().values(0).struct_value();
    EXPECT_EQ(TestJson::FieldsOf(source).at("id").string_value(), "----------7d21");

    auto notification = Event();
    notification.set_kind("notification");
    notification.clear_requestnumber();
    EXPECT_EQ(Parsed(JsonLine(notification)).count("requestNumber"), 0u);
}

TEST(MonitorFormat, AJsonLineStaysValidWhateverANameHolds) {
    auto event = Event();
    // A payload type name is the client's to choose: quotes, controls, bytes that are not
    // UTF-8.
    event.set_payloadtype(std::string("a\"b\\c\n\x01\xff\xc3\xa9\xed\xa0\x80", 13));
    event.set_payloadjson("\"(12 bytes)\"");
    auto const object = Parsed(JsonLine(event));
    EXPECT_EQ(object.at("payloadType").string_value(),
              "a\"b\\c\n\x01\xef\xbf\xbd\xc3\xa9\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_EQ(object.at("payload").string_value(), "(12 bytes)");
    event.set_payloadjson("");
    EXPECT_EQ(Parsed(JsonLine(event)).at("payload").string_value(), "");
}

TEST(MonitorFormat, TheWireFrameIsTheFrameWithTheMaskedPayload) {
    auto const bytes = WireFrame(Event());
    Tarv::FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    Tarv::IPCFrame frame;
    ASSERT_EQ(decoder.Next(frame), Tarv::FrameDecoder::Status::Frame);
    EXPECT_EQ(decoder.Buffered(), 0u);
    EXPECT_EQ(frame.kind(), Tarv::IPCFrame::RESPONSE);
    EXPECT_EQ(frame.request_number(), 7u);
    EXPECT_EQ(frame.envelope().message_id(), 1u);
    EXPECT_EQ(frame.envelope().payload_type_name(), "sources");
    VellmarkPB::sources payload;
    ASSERT_TRUE(payload.ParseFromString(frame.envelope().payload()));
    ASSERT_EQ(payload.source_size(), 1);
    EXPECT_EQ(payload.source(0).id(), "----------7d21");
    EXPECT_EQ(payload.ByteSizeLong(), frame.envelope().payload().size());

    // A payload the service could not mask is left out; the header stays.
    auto unknown = Event();
    unknown.set_kind("one-way");
    unknown.set_payloadtype("NotInTheSchema");
    unknown.set_payloadjson("\"(12 bytes)\"");
    auto const header = WireFrame(unknown);
    decoder.Feed(header.data(), header.size());
    Tarv::IPCFrame oneWay;
    ASSERT_EQ(decoder.Next(oneWay), Tarv::FrameDecoder::Status::Frame);
    EXPECT_EQ(oneWay.kind(), Tarv::IPCFrame::ONE_WAY);
    EXPECT_FALSE(oneWay.has_request_number());
    EXPECT_FALSE(oneWay.envelope().has_payload());
    EXPECT_EQ(oneWay.envelope().payload_type_name(), "NotInTheSchema");
    // Nor is one that lacks a required field: it cannot be encoded whole.
    auto unparsed = Event();
    unparsed.set_payloadjson(R"({"source":[{"id":"----------7d21"}]})");
    auto const bare = WireFrame(unparsed);
    decoder.Feed(bare.data(), bare.size());
    Tarv::IPCFrame response;
    ASSERT_EQ(decoder.Next(response), Tarv::FrameDecoder::Status::Frame);
    EXPECT_FALSE(response.envelope().has_payload());

    unknown.set_kind("sideways");
    EXPECT_EQ(WireFrame(unknown), "");
}

TEST(MonitorFormat, TheWireFrameKeepsFieldsWhoseNamesLookAlike) {
    auto event = Event();
    event.set_payloadtype("Tokens");
    event.set_payloadjson(R"({"access_token":"a***1","accessToken":"b***2"})");
    auto const bytes = WireFrame(event);
    Tarv::FrameDecoder decoder;
    decoder.Feed(bytes.data(), bytes.size());
    Tarv::IPCFrame frame;
    ASSERT_EQ(decoder.Next(frame), Tarv::FrameDecoder::Status::Frame);
    VellmarkPB::Tokens tokens;
    ASSERT_TRUE(tokens.ParseFromString(frame.envelope().payload()));
    EXPECT_EQ(tokens.access_token(), "a***1");
    EXPECT_EQ(tokens.accesstoken(), "b***2");
}

// The dissector names identifiers from a table of its own: it must be the MessageId enum.
TEST(MonitorFormat, TheDissectorNamesEveryMessageIdAsTheSchemaDoes) {
    std::ifstream in(VELLMARK_DISSECTOR_PATH);
    std::ostringstream text;
    text << in.rdbuf();
    std::string const lua = text.str();
    ASSERT_FALSE(lua.empty()) << VELLMARK_DISSECTOR_PATH;
    std::regex const entry(R"re(\[(\d+)\] = "(VELLMARK_MESSAGE_\w+)")re");
    std::map<int, std::string> named;
    for (std::sregex_iterator it(lua.begin(), lua.end(), entry), end; it != end; ++it) {
        named[std::stoi((*it)[1])] = (*it)[2];
    }
    auto const* ids = VellmarkPB::MessageId_descriptor();
    EXPECT_EQ(named.size(), static_cast<std::size_t>(ids->value_count()));
    for (int i = 0; i < ids->value_count(); ++i) {
        EXPECT_EQ(named[ids->value(i)->number()], ids->value(i)->name());
    }
}

}  // namespace
}  // namespace Vellmark::Ctl
