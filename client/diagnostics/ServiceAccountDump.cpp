// The dump of a service account in a GVA reply; nothing is masked here.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::PrintServiceAccountResponse(VellmarkPB::serviceAccounts const& account) {
    char const* const function = "PrintServiceAccountResponse";
    auto const detail = DPrint::Detail;
    LogLine(detail, function, "accountType: ", account.accounttype());
    LogLine(detail, function, "tarvPersonID: ", account.tarvpersonid());
    LogLine(detail, function, "disabled: ", account.disabled());
    LogLine(detail, function, "provider: ", account.provider());
    LogLine(detail, function, "providerACcountID: ", account.provideraccountid());
    LogLine(detail, function, "accounID: ", account.accountid());
    LogLine(detail, function, "createdOn: ", account.createdon());
    LogLine(detail, function, "updatedOn: ", account.updatedon());
    LogLine(detail, function, "productID: ", account.productid());
}
