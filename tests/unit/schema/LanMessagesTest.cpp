// The service library's messages the client relies on: message identifiers, error
// reasons, the error report and the cloud-sync acknowledgement.
#include <google/protobuf/generated_enum_reflection.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Errors.pb.h"
#include "VellmarkMessageId.pb.h"
#include "tests/unit/schema/SchemaTestSupport.h"

namespace {

using namespace Vellmark::SchemaTest;
using google::protobuf::internal::NameOfEnum;

TEST(LanMessages, MessageIdNamesMatchTheIdentifierTable) {
    const std::vector<std::pair<int, std::string>> table = {
        {1, "VELLMARK_MESSAGE_GET_SOURCES"},
        {2, "VELLMARK_MESSAGE_GET_PRESETS"},
        {3, "VELLMARK_MESSAGE_GET_PERSONS"},
        {4, "VELLMARK_MESSAGE_STORE_PRESETS"},
        {5, "VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS"},
        {6, "VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS"},
        {7, "VELLMARK_MESSAGE_PRESETS_UPDATE"},
        {8, "VELLMARK_MESSAGE_SOURCES_UPDATE"},
        {9, "VELLMARK_MESSAGE_PERSONS_UPDATE"},
        {10, "VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE"},
        {11, "VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE"},
        {12, "VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE"},
        {13, "VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED"},
        {15, "VELLMARK_MESSAGE_GVA_CREATE"},
        {17, "VELLMARK_MESSAGE_GVA_DELETE"},
        {19, "VELLMARK_MESSAGE_GVA_CREATE_ERROR"},
        {20, "VELLMARK_MESSAGE_GVA_DELETE_ERROR"},
        {21, "VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID"},
        {22, "VELLMARK_MESSAGE_GVA_UPDATE_ERROR"},
        {23, "VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT"},
        {24, "VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT"},
        {27, "VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT"},
        {29, "VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE"},
        {30, "VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS"},
        {31, "VELLMARK_MESSAGE_GET_GROUPS"},
        {32, "VELLMARK_MESSAGE_GROUPS_UPDATE"},
    };
    for (const auto& entry : table) {
        EXPECT_EQ(NameOfEnum(VellmarkPB::MessageId_descriptor(), entry.first), entry.second)
            << entry.first;
        EXPECT_TRUE(VellmarkPB::MessageId_IsValid(entry.first)) << entry.first;
    }
}

TEST(LanMessages, MessageIdConstantsCarryTheirTableValues) {
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES), 1);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS), 6);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED), 13);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR), 19);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE_ERROR), 20);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_ERROR), 22);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT), 27);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS), 30);
    EXPECT_EQ(static_cast<int>(VellmarkPB::VELLMARK_MESSAGE_GROUPS_UPDATE), 32);
}

TEST(LanMessages, RefusedInputCodesHaveDistinctNames) {
    std::set<std::string> names;
    for (int code : {1004, 1005, 1012}) {
        const std::string& name = NameOfEnum(VellmarkPB::Code_descriptor(), code);
        EXPECT_FALSE(name.empty()) << code;
        EXPECT_TRUE(VellmarkPB::Code_IsValid(code)) << code;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 3u);
}

TEST(LanMessages, ValueWithoutNameGivesEmptyName) {
    EXPECT_EQ(NameOfEnum(VellmarkPB::Code_descriptor(), 4242), "");
    EXPECT_FALSE(VellmarkPB::Code_IsValid(4242));
    EXPECT_EQ(NameOfEnum(VellmarkPB::MessageId_descriptor(), 4242), "");
    EXPECT_EQ(NameOfEnum(VellmarkPB::MessageId_descriptor(), -1), "");
}

TEST(LanMessages, ErrorFieldsAreInDescriptorOrder) {
    ExpectFields(VellmarkPB::Error::descriptor(),
                 {{1, "message", kOptional, kString, ""},
                  {2, "productGuid", kOptional, kString, ""},
                  {3, "messageId", kOptional, kEnum, "VellmarkPB.MessageId"},
                  {4, "code", kOptional, kInt32, ""},
                  {5, "subcode", kOptional, kInt32, ""}});
}

TEST(LanMessages, ErrorHasFlagsFollowEachFieldAlone) {
    VellmarkPB::Error error;
    EXPECT_FALSE(error.has_message());
    EXPECT_FALSE(error.has_productguid());
    EXPECT_FALSE(error.has_messageid());
    EXPECT_FALSE(error.has_code());
    EXPECT_FALSE(error.has_subcode());

    error.set_code(6);
    error.set_subcode(1005);
    const VellmarkPB::Error parsed = RoundTrip(error);
    EXPECT_FALSE(parsed.has_message());
    EXPECT_FALSE(parsed.has_productguid());
    EXPECT_FALSE(parsed.has_messageid());
    EXPECT_TRUE(parsed.has_code());
    EXPECT_TRUE(parsed.has_subcode());
    EXPECT_EQ(parsed.code(), 6);
    EXPECT_EQ(parsed.subcode(), 1005);
}

TEST(LanMessages, ZeroCodeSetExplicitlyIsPresent) {
    VellmarkPB::Error error;
    error.set_code(0);
    const VellmarkPB::Error parsed = RoundTrip(error);
    EXPECT_TRUE(parsed.has_code());
    EXPECT_EQ(parsed.code(), 0);
}

TEST(LanMessages, ErrorSurvivesRoundTrip) {
    VellmarkPB::Error error;
    error.set_message("Input data error: something");
    error.set_productguid("guid-1");
    error.set_messageid(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    error.set_code(6);
    error.set_subcode(1012);
    const VellmarkPB::Error parsed = ExpectSurvivesRoundTrip(error);
    EXPECT_EQ(parsed.messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    EXPECT_EQ(parsed.subcode(), 1012);
    EXPECT_EQ(parsed.productguid(), "guid-1");
}

TEST(LanMessages, CloudSyncReceivedCarriesAMessageId) {
    ExpectFields(VellmarkPB::CloudSyncReceived::descriptor(),
                 {{1, "messageId", kOptional, kEnum, "VellmarkPB.MessageId"}});
}

TEST(LanMessages, CloudSyncReceivedSurvivesRoundTrip) {
    VellmarkPB::CloudSyncReceived ack;
    ack.set_messageid(VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE);
    const VellmarkPB::CloudSyncReceived parsed = ExpectSurvivesRoundTrip(ack);
    EXPECT_EQ(parsed.messageid(), VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE);
}

}  // namespace
