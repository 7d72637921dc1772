// vellmarkctl call sends any request of the protocol from a JSON document of its request
// type, driven by the identifier table, and prints the reply or the refusal; describe
// tells each identifier's and each type's fields, and makes a document to fill.
#include <set>

#include "VellmarkMessageId.pb.h"
#include "admin/MessageTable.h"
#include "tests/e2e/ServiceFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::EndToEnd {
namespace {

using Admin::MessageRole;

class CallAndDescribe : public ServiceTest {
protected:
    static std::unique_ptr<google::protobuf::Message> New(
        google::protobuf::Descriptor const* type) {
        return std::unique_ptr<google::protobuf::Message>(
            google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    }
    static bool Callable(Admin::MessageInfo const& row) {
        return row.role == MessageRole::Request || row.role == MessageRole::OneWay;
    }
};

TEST_F(CallAndDescribe, DescribeTellsTheRequestAndReplyOfEveryIdentifier) {
    for (auto const& row : Admin::MessageTable()) {
        std::string const name = Admin::MessageName(row.id);
        SCOPED_TRACE(name);
        auto described = Ctl({"describe", name});
        ASSERT_EQ(described->ExitCode(), 0) << described->Errors();
        TestJson::Fields fields;
        ASSERT_TRUE(TestJson::ParseObject(described->Output(), fields)) << described->Output();
        EXPECT_EQ(fields.at("id").number_value(), row.id);
        EXPECT_EQ(fields.at("role").string_value(), Admin::RoleName(row.role));
        for (auto const& [key, type] : {std::pair{"request", row.request}, {"reply", row.reply}}) {
            if (!type) {
                EXPECT_EQ(fields.count(key), 0u) << key;
                continue;
            }
            auto const part = TestJson::FieldsOf(fields.at(key).struct_value());
            EXPECT_EQ(part.at("type").string_value(), type->full_name());
            EXPECT_EQ(part.at("fields").list_value().values_size(), type->field_count());
        }
        // The document to fill parses as the request; nothing to fill where nothing is sent.
        auto filled = Ctl({"describe", name, "--template"});
        if (!Callable(row)) {
            EXPECT_EQ(filled->ExitCode(), 2) << filled->Output();
            continue;
        }
        ASSERT_EQ(filled->ExitCode(), 0) << filled->Errors();
        EXPECT_EQ(Vellmark::Json::Parse(filled->Output(), *New(row.request)), "")
            << filled->Output();
    }
}

TEST_F(CallAndDescribe, DescribeNamesFieldsWithTheirSensitivityAndFillsAResource) {
    auto described = Ctl({"describe", "serviceAccounts"});
    ASSERT_EQ(described->ExitCode(), 0) << described->Errors();
    TestJson::Fields fields;
    ASSERT_TRUE(TestJson::ParseObject(described->Output(), fields));
    bool seen = false;
    for (auto const& value : fields.at("fields").list_value().values()) {
        auto const field = TestJson::FieldsOf(value.struct_value());
        if (field.at("name").string_value() != "accountID") continue;
        seen = true;
        EXPECT_EQ(field.at("sensitivity").string_value(), "account id");
        EXPECT_TRUE(field.at("masked").bool_value());
        EXPECT_EQ(field.at("label").string_value(), "optional");
        EXPECT_EQ(field.at("type").string_value(), "string");
    }
    EXPECT_TRUE(seen) << described->Output();
    // The tokens inside are described too.
    EXPECT_NE(described->Output().find("\"type\":\"VellmarkPB.Tokens\""), std::string::npos);

    // The association takes `status`: the template says so, and admin put takes it.
    StartService();
    auto filled = Ctl({"describe", "association", "--template"});
    ASSERT_EQ(filled->ExitCode(), 0) << filled->Errors();
    EXPECT_EQ(filled->Output(), "{\"status\":\"UNKNOWN\"}\n");
    auto put = Ctl({"admin", "put", "association",
                    WriteFile("association.json", R"({"status": "ASSOCIATED"})")});
    EXPECT_EQ(put->ExitCode(), 0) << put->Errors();
    EXPECT_EQ(AdminGet<VellmarkPB::AccountAssociated>("association").status(),
              VellmarkPB::ASSOCIATED);
    EXPECT_EQ(Ctl({"describe", "no-such-thing"})->ExitCode(), 2);
}

TEST_F(CallAndDescribe, CallSendsEveryRequestOfTheProtocol) {
    StartService();
    using namespace VellmarkPB;
    // A document for each operation that is not a query, in an order in which each works.
    std::vector<std::pair<unsigned int, std::string>> const operations = {
        {VELLMARK_MESSAGE_STORE_PRESETS, R"({"presets": [{"key": "7", "value": {}}]})"},
        {VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
         R"({"accountID": "acct-call-1", "provider": "HARBOR_PODCASTS", "name": "Call"})"},
        {VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
         R"({"accountID": "acct-call-1", "name": "Called"})"},
        {VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, R"({"accountID": "acct-call-1"})"},
        {VELLMARK_MESSAGE_GVA_CREATE,
         R"({"tarvPersonID": "person-a41d07bb", "providerAccountID": "jonas@example.com"})"},
        {VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID,
         R"({"attributes": {"assistantDeviceId": "dev-9"}})"},
        {VELLMARK_MESSAGE_GVA_DELETE, R"({"accountID": "gva-seeded-1"})"},
        {VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED,
         R"({"messageId": "VELLMARK_MESSAGE_PRESETS_UPDATE"})"},
    };
    std::set<unsigned int> called;
    for (auto const& [id, document] : operations) {
        auto const* row = Admin::FindMessage(id);
        SCOPED_TRACE(Admin::MessageName(id));
        auto ctl = Ctl({"call", Admin::MessageName(id), WriteFile("call.json", document)});
        ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
        called.insert(id);
        if (row->role == MessageRole::OneWay) {
            EXPECT_EQ(ctl->Output(), "");
            continue;
        }
        auto reply = New(row->reply);
        EXPECT_EQ(Vellmark::Json::Parse(ctl->Output(), *reply), "") << ctl->Output();
    }
    EXPECT_EQ(AdminGet<VellmarkPB::VellmarkPresets>("presets").presets_size(),
              SeedDocument().presets().presets_size() + 1);
    // Queries send their request empty, by number or by name.
    for (auto const& resource : Admin::Resources()) {
        if (resource.queryId == 0) continue;
        SCOPED_TRACE(resource.name);
        auto ctl = Ctl({"call", std::to_string(resource.queryId)});
        ASSERT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
        auto reply = New(resource.type);
        EXPECT_EQ(Vellmark::Json::Parse(ctl->Output(), *reply), "") << ctl->Output();
        auto got = Ctl({"get", resource.name});
        EXPECT_EQ(ctl->Output(), got->Output());
        called.insert(resource.queryId);
    }
    // Every identifier under which something is sent was called; the others are refused.
    for (auto const& row : Admin::MessageTable()) {
        if (Callable(row)) {
            EXPECT_EQ(called.count(row.id), 1u) << Admin::MessageName(row.id) << " not called";
        } else {
            EXPECT_EQ(Ctl({"call", std::to_string(row.id)})->ExitCode(), 2)
                << Admin::MessageName(row.id);
        }
    }
    // The one-way acknowledgement was taken as a client's.
    auto acks = Ctl({"admin", "acks"});
    Vellmark::Admin::AcknowledgementReport report;
    ASSERT_EQ(Vellmark::Json::Parse(acks->Output(), report), "") << acks->Output();
    ASSERT_EQ(report.counts_size(), 1) << acks->Output();
    EXPECT_EQ(report.counts(0).messageid(), VELLMARK_MESSAGE_PRESETS_UPDATE);
    EXPECT_EQ(report.counts(0).count(), 1u);
}

TEST_F(CallAndDescribe, CallPrintsARefusalFromEitherErrorPath) {
    StartService();
    // The Error notification of GVA_CREATE: the person has a GVA account.
    auto gva = Ctl({"call", "VELLMARK_MESSAGE_GVA_CREATE",
                    WriteFile("gva.json", R"({"tarvPersonID": "person-3c8e91f0",
                                              "providerAccountID": "x"})")});
    EXPECT_EQ(gva->ExitCode(), 1) << gva->Errors();
    EXPECT_EQ(gva->Output(), "");
    EXPECT_NE(
        gva->Errors().find("\"subcode\":" + std::to_string(VellmarkPB::CODE_GVA_ACCOUNT_EXISTS)),
        std::string::npos)
        << gva->Errors();
    // The Error inside the reply of CREATE_SERVICE_ACCOUNT: the account exists.
    std::string const account =
        WriteFile("account.json",
                  "{\"accountID\": \"" + SeedDocument().serviceaccounts(0).accountid() + "\"}");
    auto create = Ctl({"call", "23", account});
    EXPECT_EQ(create->ExitCode(), 1) << create->Errors();
    EXPECT_NE(create->Errors().find("vellmarkctl: refused: "), std::string::npos)
        << create->Errors();
}

}  // namespace
}  // namespace Vellmark::EndToEnd
