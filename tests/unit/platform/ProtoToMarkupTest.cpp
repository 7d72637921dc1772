#include <string>

#include <google/protobuf/any.pb.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include "IPCMessageEnvelopeBase.pb.h"
#include "platform/log/ProtoToMarkup.h"

namespace {

using google::protobuf::util::MessageDifferencer;

Tarv::IPCMessageEnvelopeBase SampleEnvelope() {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload_type_name("VellmarkPB.sources");
    envelope.set_payload("ab");
    return envelope;
}

Tarv::IPCMessageEnvelopeBase Parsed(std::string const& json) {
    Tarv::IPCMessageEnvelopeBase parsed;
    EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(json, &parsed).ok()) << json;
    return parsed;
}

TEST(ProtoToMarkupTest, PlainJsonIsCompactWithSchemaFieldNames) {
    std::string const json = ProtoToMarkup::ToJson(SampleEnvelope(), false, false, false);
    // bytes are rendered in base64: "ab" is "YWI="
    EXPECT_EQ(json, R"({"payload_type_name":"VellmarkPB.sources","payload":"YWI="})");
}

TEST(ProtoToMarkupTest, CamelCaseNamesUseJsonNames) {
    std::string const json = ProtoToMarkup::ToJson(SampleEnvelope(), false, false, true);
    EXPECT_EQ(json, R"({"payloadTypeName":"VellmarkPB.sources","payload":"YWI="})");
}

TEST(ProtoToMarkupTest, PrettyJsonBreaksLinesAndKeepsTheContent) {
    Tarv::IPCMessageEnvelopeBase const envelope = SampleEnvelope();
    std::string const compact = ProtoToMarkup::ToJson(envelope, false, false, false);
    std::string const pretty = ProtoToMarkup::ToJson(envelope, true, false, false);

    EXPECT_EQ(compact.find('\n'), std::string::npos);
    EXPECT_NE(pretty.find('\n'), std::string::npos);
    EXPECT_NE(pretty.find("\"payload_type_name\": \"VellmarkPB.sources\""), std::string::npos)
        << pretty;
    EXPECT_GT(pretty.size(), compact.size());
    EXPECT_TRUE(MessageDifferencer::Equals(Parsed(pretty), envelope));
    EXPECT_TRUE(MessageDifferencer::Equals(Parsed(compact), envelope));
}

TEST(ProtoToMarkupTest, UnsetFieldsArePrintedOnlyWithPrintDefaults) {
    Tarv::IPCMessageEnvelopeBase envelope;
    envelope.set_payload("ab");

    EXPECT_EQ(ProtoToMarkup::ToJson(envelope, false, false, false), R"({"payload":"YWI="})");
    EXPECT_EQ(ProtoToMarkup::ToJson(Tarv::IPCMessageEnvelopeBase(), false, false, false), "{}");

    std::string const json = ProtoToMarkup::ToJson(envelope, false, true, false);
    EXPECT_NE(json.find(R"("payload_type_name":"")"), std::string::npos) << json;
    EXPECT_NE(json.find(R"("payload":"YWI=")"), std::string::npos) << json;
    google::protobuf::Descriptor const* descriptor = envelope.GetDescriptor();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        std::string const key = '"' + descriptor->field(i)->name() + "\":";
        EXPECT_NE(json.find(key), std::string::npos) << key << " missing from " << json;
    }
}

TEST(ProtoToMarkupTest, MessageThatCannotBeRenderedGivesEmptyString) {
    google::protobuf::Any unknown;
    unknown.set_type_url("type.googleapis.com/Nowhere.NoSuchMessage");
    unknown.set_value("x");
    EXPECT_EQ(ProtoToMarkup::ToJson(unknown, false, false, false), "");
    EXPECT_EQ(ProtoToMarkup::ToJson(unknown, true, true, true), "");
}

}  // namespace
