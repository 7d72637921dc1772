#include "framework/ipc/IPCMessageEnvelope.h"

#include <gtest/gtest.h>

#include "VellmarkPresets.pb.h"
#include "VellmarkSources.pb.h"

namespace {

TEST(IPCMessageEnvelope, StartsWithoutPayloadTypeName) {
    IPCMessageEnvelope envelope;
    EXPECT_FALSE(envelope.has_payload_type_name());
    EXPECT_EQ(envelope.payload(), "");
}

TEST(IPCMessageEnvelope, SetPayloadRecordsTheShortTypeNameAndTheBytes) {
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key("1");
    IPCMessageEnvelope envelope;
    ASSERT_TRUE(envelope.SetPayload(presets));
    EXPECT_TRUE(envelope.has_payload_type_name());
    EXPECT_EQ(envelope.payload_type_name(), "VellmarkPresets");
    EXPECT_EQ(envelope.payload(), presets.SerializeAsString());
}

TEST(IPCMessageEnvelope, GetPayloadRestoresTheMessage) {
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key("1");
    presets.add_presets()->set_key("2");
    IPCMessageEnvelope envelope;
    envelope.SetPayload(presets);
    VellmarkPB::VellmarkPresets decoded;
    ASSERT_TRUE(envelope.GetPayload(decoded));
    ASSERT_EQ(decoded.presets_size(), 2);
    EXPECT_EQ(decoded.presets(1).key(), "2");
}

TEST(IPCMessageEnvelope, MessageMissingARequiredFieldTravelsAsIs) {
    VellmarkPB::sources list;
    list.add_source()->set_id("no provider");
    ASSERT_FALSE(list.IsInitialized());
    IPCMessageEnvelope envelope;
    ASSERT_TRUE(envelope.SetPayload(list));
    VellmarkPB::sources decoded;
    EXPECT_TRUE(envelope.GetPayload(decoded));
    EXPECT_EQ(decoded.source(0).id(), "no provider");
}

TEST(IPCMessageEnvelope, GetPayloadReportsBytesThatDoNotParse) {
    IPCMessageEnvelope envelope;
    envelope.set_payload(std::string("\x0a\x7f", 2));
    VellmarkPB::sources decoded;
    EXPECT_FALSE(envelope.GetPayload(decoded));
}

}  // namespace
