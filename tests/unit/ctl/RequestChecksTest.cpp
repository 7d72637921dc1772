// What vellmarkctl refuses before sending: masked values, the service's rules that a request
// shows, requests over the frame limit; each with the place in the document.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "VellmarkAdmin.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "admin/Sensitivity.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "tools/Command.h"
#include "tools/RequestChecks.h"

namespace Vellmark::Ctl {
namespace {

using namespace VellmarkPB;

class RequestChecks : public ::testing::Test {
protected:
    RequestChecks() {
        char pattern[] = "/tmp/vellmark-ctl-XXXXXX";
        m_folder = ::mkdtemp(pattern);
    }
    ~RequestChecks() override { std::filesystem::remove_all(m_folder); }

    // The refusal of `text` as a request under `id`; "" when it passes.
    template <class T>
    std::string Refusal(unsigned int id, std::string const& text) {
        std::string const path = m_folder + "/request.json";
        std::ofstream(path) << text;
        try {
            T request;
            auto const document = LoadDocument(path, request, RequestDocumentBytes());
            CheckRequest(id, request, &document);
        } catch (BadInput const& error) {
            return error.what();
        }
        return {};
    }
    std::string Place(std::string const& where) const {
        return m_folder + "/request.json:" + where;
    }

    std::string m_folder;
};

TEST_F(RequestChecks, PresetKeysMustBeThereAndEachOnlyOnce) {
    EXPECT_EQ(Refusal<VellmarkPresets>(VELLMARK_MESSAGE_STORE_PRESETS,
                                       R"({"presets": [{"key": "1"}, {"key": "2"}]})"),
              "");
    EXPECT_EQ(Refusal<VellmarkPresets>(VELLMARK_MESSAGE_STORE_PRESETS,
                                       "{\"presets\": [{\"key\": \"9\"},\n{\"key\": \"9\"}]}"),
              Place("2:2: presets[1].key: \"9\" is the key of presets[0] too; every preset "
                    "needs a key of its own (the service would store none of the list); nothing "
                    "was sent"));
    EXPECT_NE(
        Refusal<VellmarkPresets>(VELLMARK_MESSAGE_STORE_PRESETS, R"({"presets": [{"value": {}}]})")
            .find(Place("1:14: presets[0].key: empty")),
        std::string::npos);
}

TEST_F(RequestChecks, IdentifiersTheServiceNeedsMustNotBeEmpty) {
    EXPECT_NE(Refusal<serviceAccounts>(VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, R"({"name": "x"})")
                  .find("accountID: empty"),
              std::string::npos);
    EXPECT_NE(Refusal<serviceAccounts>(VELLMARK_MESSAGE_GVA_CREATE,
                                       R"({"tarvPersonID": "p", "providerAccountID": ""})")
                  .find(Place("1:23: providerAccountID: empty")),
              std::string::npos);
    EXPECT_NE(
        Refusal<VellmarkDeleteGVA>(VELLMARK_MESSAGE_GVA_DELETE, "{}").find("accountID: empty"),
        std::string::npos);
    EXPECT_EQ(Refusal<serviceAccounts>(VELLMARK_MESSAGE_GVA_CREATE,
                                       R"({"tarvPersonID": "p", "providerAccountID": "a"})"),
              "");
    // Made from the command line: no place to tell.
    VellmarkDeleteGVA request;
    try {
        CheckRequest(VELLMARK_MESSAGE_GVA_DELETE, request, nullptr);
        FAIL() << "an empty identifier passed";
    } catch (BadInput const& error) {
        EXPECT_STREQ(
            error.what(),
            "accountID: empty; the service refuses a request without it; nothing was sent");
    }
}

TEST_F(RequestChecks, AMaskedValueIsRefusedWithItsPlaceAndTheWayToTheClearOne) {
    std::string const refusal = Refusal<serviceAccounts>(
        VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
        "{\"accountID\": \"acct-new-1\",\n \"tokens\": {\"refresh_token\": \"" +
            Vellmark::Admin::Masked(Vellmark::Admin::Sensitivity::Token, std::string(40, 'r')) +
            "\"}}");
    EXPECT_EQ(refusal.rfind(Place("2:13: tokens.refresh_token holds a masked value"), 0), 0u)
        << refusal;
    EXPECT_NE(refusal.find("--show-secrets"), std::string::npos);
    EXPECT_NE(refusal.find("nothing was sent"), std::string::npos);
}

TEST_F(RequestChecks, AdminDocumentsFollowTheServicesRulesForAccounts) {
    std::string const path = m_folder + "/accounts.json";
    std::ofstream(path) << R"({"serviceAccounts": [{"accountID": "a"}, {"accountID": "a"}]})";
    Vellmark::Admin::ServiceAccountList list;
    auto const document = LoadDocument(path, list, AdminDocumentBytes());
    try {
        CheckAdminDocument(list, document);
        FAIL() << "two accounts with one identifier passed";
    } catch (BadInput const& error) {
        EXPECT_NE(std::string(error.what()).find(path + ":1:43: serviceAccounts[1].accountID"),
                  std::string::npos)
            << error.what();
    }
}

TEST_F(RequestChecks, ARequestOverTheFrameLimitIsRefused) {
    std::size_t const limit = IPCFrameLimit::MaxFrameBytes();
    IPCFrameLimit::SetMaxFrameBytes(IPCFrameLimit::kMinFrameBytes);
    std::string const refusal = Refusal<serviceAccounts>(
        VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT,
        R"({"accountID": "a", "name": ")" + std::string(8000, 'n') + "\"}");
    IPCFrameLimit::SetMaxFrameBytes(limit);
    EXPECT_NE(refusal.find("over the frame limit"), std::string::npos) << refusal;
}

}  // namespace
}  // namespace Vellmark::Ctl
