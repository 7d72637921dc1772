// PrintServiceAccountResponse: nine detail lines, identifiers in clear.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/DumpTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

VellmarkPB::serviceAccounts FullAccount() {
    VellmarkPB::serviceAccounts account;
    account.set_tarvpersonid("person-1234567890");
    account.set_accountid("account-1234567890");
    account.set_accounttype("VPA");
    account.set_provider("GVA");
    account.set_provideraccountid("provider-account-1234567890");
    account.set_name("account-display-name");
    account.mutable_tokens()->set_access_token("access-token-value");
    account.mutable_tokens()->set_refreshtoken("refresh-token-value");
    account.mutable_attributes()->set_email("anna@example.com");
    account.set_updatedon("account-updated");
    account.set_createdon("account-created");
    account.set_disabled(true);
    account.set_productid("product-42");
    return account;
}

LineList FullAccountLines() {
    return {kAccount(kDetail, "accountType: VPA"),
            kAccount(kDetail, "tarvPersonID: person-1234567890"),
            kAccount(kDetail, "disabled: 1"),
            kAccount(kDetail, "provider: GVA"),
            kAccount(kDetail, "providerACcountID: provider-account-1234567890"),
            kAccount(kDetail, "accounID: account-1234567890"),
            kAccount(kDetail, "createdOn: account-created"),
            kAccount(kDetail, "updatedOn: account-updated"),
            kAccount(kDetail, "productID: product-42")};
}

TEST_F(DiagnosticsTest, ServiceAccountDumpWritesNineDetailLinesWithIdentifiersInClear) {
    peer.PrintServiceAccountResponse(FullAccount());

    EXPECT_EQ(Lines(), FullAccountLines());
}

TEST_F(DiagnosticsTest, ServiceAccountDumpLeavesOutNameTokensAndAttributes) {
    peer.PrintServiceAccountResponse(FullAccount());

    ASSERT_FALSE(Lines().empty());
    for (std::string const value : {"account-display-name", "access-token-value",
                                    "refresh-token-value", "anna@example.com"}) {
        EXPECT_FALSE(AnyLineContains(Lines(), value)) << value;
    }
}

TEST_F(DiagnosticsTest, EmptyServiceAccountStillWritesAllNineLines) {
    peer.PrintServiceAccountResponse(VellmarkPB::serviceAccounts());

    EXPECT_EQ(Lines(),
              (LineList{kAccount(kDetail, "accountType: "), kAccount(kDetail, "tarvPersonID: "),
                        kAccount(kDetail, "disabled: 0"), kAccount(kDetail, "provider: "),
                        kAccount(kDetail, "providerACcountID: "), kAccount(kDetail, "accounID: "),
                        kAccount(kDetail, "createdOn: "), kAccount(kDetail, "updatedOn: "),
                        kAccount(kDetail, "productID: ")}));
}

TEST_F(DiagnosticsTest, ServiceAccountDumpWritesOnlyTheLinesTheThresholdAllows) {
    ExpectOnlyLinesTheThresholdAllows([&] { peer.PrintServiceAccountResponse(FullAccount()); },
                                      FullAccountLines());
}

}  // namespace
