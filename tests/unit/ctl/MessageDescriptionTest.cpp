// describe's descriptions and templates, for every identifier and resource.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <memory>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/MessageTable.h"
#include "tools/MessageDescription.h"

namespace Vellmark::Ctl {
namespace {

std::unique_ptr<google::protobuf::Message> New(google::protobuf::Descriptor const* type) {
    return std::unique_ptr<google::protobuf::Message>(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
}

bool IsJson(std::string const& text) {
    google::protobuf::Struct object;
    return google::protobuf::util::JsonStringToMessage(text, &object).ok();
}

TEST(MessageDescription, FindsTypesByFullOrShortName) {
    EXPECT_EQ(FindMessageType("VellmarkPB.serviceAccounts")->full_name(),
              "VellmarkPB.serviceAccounts");
    EXPECT_EQ(FindMessageType("serviceAccounts")->full_name(), "VellmarkPB.serviceAccounts");
    EXPECT_EQ(FindMessageType("StoreDocument")->full_name(), "Vellmark.Admin.StoreDocument");
    EXPECT_EQ(FindMessageType("Nothing"), nullptr);
}

TEST(MessageDescription, EveryIdentifierIsDescribedAndEveryRequestHasATemplateThatParses) {
    for (auto const& row : Vellmark::Admin::MessageTable()) {
        SCOPED_TRACE(Vellmark::Admin::MessageName(row.id));
        std::string const description = DescribeMessage(row, false);
        EXPECT_TRUE(IsJson(description)) << description;
        if (row.request) {
            EXPECT_NE(description.find("\"request\":{\"type\":\"" + row.request->full_name()),
                      std::string::npos)
                << description;
        }
        std::string const document = RequestTemplateOf(row, true);
        EXPECT_EQ(document.empty(), row.request == nullptr);
        if (row.request) {
            EXPECT_EQ(Vellmark::Json::Parse(document, *New(row.request)), "");
        }
    }
    auto const* query = Vellmark::Admin::FindMessage(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES);
    EXPECT_EQ(RequestTemplateOf(*query, false), "{}");
}

TEST(MessageDescription, EveryResourceAndTheStoreHaveTemplatesThatParse) {
    for (auto const& resource : Vellmark::Admin::Resources()) {
        SCOPED_TRACE(resource.name);
        EXPECT_EQ(Vellmark::Json::Parse(TemplateOf(resource.type, false), *New(resource.type)), "");
        EXPECT_TRUE(IsJson(DescribeType(resource.type, true)));
    }
    auto const* store = FindMessageType("StoreDocument");
    EXPECT_EQ(Vellmark::Json::Parse(TemplateOf(store, false), *New(store)), "");
}

TEST(MessageDescription, FieldsTellLabelTypeDefaultAndSensitivity) {
    std::string const description = DescribeType(FindMessageType("serviceAccounts"), false);
    EXPECT_NE(
        description.find("{\"name\":\"accountID\",\"number\":2,\"label\":\"optional\","
                         "\"type\":\"string\",\"sensitivity\":\"account id\",\"masked\":true}"),
        std::string::npos)
        << description;
    EXPECT_NE(description.find("{\"name\":\"collectData\",\"number\":7,\"label\":\"optional\","
                               "\"type\":\"string\",\"default\":\"no\",\"sensitivity\":\"not "
                               "sensitive\",\"masked\":false}"),
              std::string::npos)
        << description;
    EXPECT_NE(description.find("{\"type\":\"VellmarkPB.Tokens\",\"fields\":["), std::string::npos);
    EXPECT_NE(description.find("\"name\":\"access_token\",\"jsonName\":\"accessToken\""),
              std::string::npos);
    std::string const association = DescribeType(FindMessageType("AccountAssociated"), false);
    EXPECT_NE(association.find("\"values\":[\"UNKNOWN\",\"OOB\",\"ASSOCIATED\",\"REMOVED\"]"),
              std::string::npos)
        << association;
}

}  // namespace
}  // namespace Vellmark::Ctl
