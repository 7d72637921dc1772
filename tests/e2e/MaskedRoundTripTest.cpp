// What vellmarkctl prints masked is never written back: every command that sends a document
// refuses one holding masked values (exit 2, naming the field and how to get the clear
// value, nothing sent), and the service refuses the same on its admin endpoint and in the
// seed it is started with.
#include <fstream>

#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::EndToEnd {
namespace {

class MaskedRoundTrip : public ServiceTest {
protected:
    // Runs vellmarkctl with `command`, writes its output into `file` of the test's folder and
    // returns the path.
    std::string Save(std::vector<std::string> const& command, std::string const& file) {
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
        return WriteFile(file, ctl->Output());
    }
    // vellmarkctl must refuse `command` with exit 2, naming `field` and the way to the clear
    // value.
    void ExpectRefused(std::vector<std::string> const& command, std::string const& field) {
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 2) << ctl->Errors();
        std::string const errors = ctl->Errors();
        EXPECT_NE(errors.find(field + " holds a masked value"), std::string::npos) << errors;
        EXPECT_NE(errors.find("--show-secrets"), std::string::npos) << errors;
        EXPECT_NE(errors.find("admin export"), std::string::npos) << errors;
        EXPECT_NE(errors.find("nothing was sent"), std::string::npos) << errors;
    }
    void ExpectStoreAsSeeded() {
        auto const seed = SeedDocument();
        EXPECT_TRUE(Same(AdminGet<VellmarkPB::VellmarkPresets>("presets"), seed.presets()));
        EXPECT_TRUE(Same(AdminGet<VellmarkPB::sources>("sources"), seed.sources()));
        EXPECT_TRUE(Same(
            AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts(0),
            seed.serviceaccounts(0)));
    }
};

TEST_F(MaskedRoundTrip, GetThenStorePresetsIsRefusedAndTheStoreKeepsItsSecrets) {
    StartService();
    std::string const masked = Save({"get", "presets"}, "presets.json");
    ExpectRefused({"store-presets", masked}, "presets[0].value.actions[0].metadata.accountID");
    // The place in the file, as an editor takes it.
    auto ctl = Ctl({"store-presets", masked});
    EXPECT_NE(ctl->Errors().find(masked + ":1:"), std::string::npos) << ctl->Errors();
    ExpectStoreAsSeeded();

    // In clear, the same round trip goes through and changes nothing.
    std::string const clear = Save({"get", "presets", "--show-secrets"}, "clear.json");
    auto stored = Ctl({"store-presets", clear});
    EXPECT_EQ(stored->ExitCode(), 0) << stored->Errors();
    ExpectStoreAsSeeded();
}

TEST_F(MaskedRoundTrip, EveryCommandThatSendsADocumentRefusesMaskedValues) {
    StartService();
    ExpectRefused({"admin", "put", "sources", Save({"admin", "get", "sources"}, "sources.json")},
                  "source[0].id");
    ExpectRefused({"admin", "seed", Save({"admin", "export", "--redact"}, "export.json")},
                  "sources.source[0].id");
    // One service account, as `admin get service-accounts` prints it.
    VellmarkPB::serviceAccounts account = SeedDocument().serviceaccounts(0);
    account.set_accountid("acct-new-0f3c9a71");
    Vellmark::Admin::Mask(account);
    std::string const file = WriteFile("account.json", Vellmark::Json::Print(account, false));
    ExpectRefused({"account", "create", file}, "tarvPersonID");
    ExpectRefused({"account", "update", file}, "tarvPersonID");
    ExpectRefused({"call", "VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT", file}, "tarvPersonID");
    // An argument copied from masked output is no better.
    ExpectRefused({"gva", "create", "--------91f0", "lena@example.com", "device-1"},
                  "tarvPersonID");
    ExpectStoreAsSeeded();
}

TEST_F(MaskedRoundTrip, TheServiceRefusesMaskedDocumentsOnItsAdminEndpoint) {
    StartService();
    auto const seed = SeedDocument();
    AdminClient admin(kBound);
    auto const refusal = [&admin](Vellmark::Admin::Request const& request) {
        try {
            admin.Command(request);
        } catch (AdminError const& error) {
            EXPECT_EQ(error.kind(), AdminError::Kind::Refused);
            return std::string(error.what());
        }
        return std::string("accepted");
    };

    VellmarkPB::sources sources = seed.sources();
    Vellmark::Admin::Mask(sources);
    Vellmark::Admin::Request put;
    put.mutable_put()->set_resource("sources");
    put.mutable_put()->set_json(Vellmark::Json::Print(sources, false));
    std::string const why = refusal(put);
    EXPECT_NE(why.find("source[0].id holds a masked value"), std::string::npos) << why;
    EXPECT_NE(why.find("nothing was stored"), std::string::npos) << why;

    Vellmark::Admin::ServiceAccountList accounts;
    *accounts.add_serviceaccounts() = seed.serviceaccounts(0);
    Vellmark::Admin::Mask(accounts);
    put.mutable_put()->set_resource("service-accounts");
    put.mutable_put()->set_json(Vellmark::Json::Print(accounts, false));
    EXPECT_NE(refusal(put).find("holds a masked value"), std::string::npos);

    Vellmark::Admin::StoreDocument redacted = seed;
    Vellmark::Admin::Mask(redacted);
    Vellmark::Admin::Request seedRequest;
    seedRequest.mutable_seed()->set_json(Vellmark::Json::Print(redacted, false));
    EXPECT_NE(refusal(seedRequest).find("holds a masked value"), std::string::npos);

    EXPECT_TRUE(Same(AdminGet<VellmarkPB::sources>("sources"), seed.sources()));
    EXPECT_TRUE(
        Same(AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts(0),
             seed.serviceaccounts(0)));
    // The clear document is taken.
    put.mutable_put()->set_resource("sources");
    put.mutable_put()->set_json(Vellmark::Json::Print(seed.sources(), false));
    EXPECT_EQ(refusal(put), "accepted");
}

TEST_F(MaskedRoundTrip, TheServiceRefusesToStartFromAMaskedSeedAndWritesNothing) {
    auto const clear = SeedDocument();
    auto document = clear;
    auto masked = clear.serviceaccounts(0);
    Vellmark::Admin::Mask(masked);
    ASSERT_NE(masked.accountid(), clear.serviceaccounts(0).accountid());
    document.mutable_serviceaccounts(0)->set_accountid(masked.accountid());
    std::string const seed = WriteFile("masked-seed.json", Vellmark::Json::Print(document, true));
    auto const expectRefused = [this, &seed] {
        ChildProcess service(VELLMARKD_PATH,
                             {"--db", StorePath(), "--seed", seed, "--runtime-dir", Folder()});
        EXPECT_EQ(service.ExitCode(), 2) << service.Errors();
        std::string const errors = service.Errors();
        EXPECT_NE(errors.find(seed + ": serviceAccounts[0].accountID holds a masked value"),
                  std::string::npos)
            << errors;
        EXPECT_NE(errors.find("nothing was stored"), std::string::npos) << errors;
    };

    // Without a store, none is made.
    expectRefused();
    EXPECT_FALSE(std::filesystem::exists(StorePath()));

    // A store is left as it was, byte for byte.
    StartService();
    StopService();
    std::string before;
    ASSERT_EQ(Vellmark::Json::ReadFile(StorePath(), before), "");
    expectRefused();
    std::string after;
    ASSERT_EQ(Vellmark::Json::ReadFile(StorePath(), after), "");
    EXPECT_EQ(after, before);
    StartService(false);
    EXPECT_TRUE(
        Same(AdminGet<Vellmark::Admin::ServiceAccountList>("service-accounts").serviceaccounts(0),
             clear.serviceaccounts(0)));
}

}  // namespace
}  // namespace Vellmark::EndToEnd
