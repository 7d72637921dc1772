// Creating, updating and deleting service accounts. The callbacks travel with each request
// in its reply binding, so concurrent requests each get their own answer.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/AccountOperation.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"

using AcctOpEnvelope = VellmarkPB::VellmarkAcctOpEnvelope;

void VellmarkClientAPI::CreateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                             Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                             Callback<VellmarkPB::Error> const& onError) {
    ChangeServiceAccount(
        "CreateServiceAccount",
        {VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, DPrint::Flow,
         "Not connected, queuing call to CreateServiceAccountACcount", "do_enable", nullptr},
        account, onSuccess, onError);
}

void VellmarkClientAPI::UpdateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                             Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                             Callback<VellmarkPB::Error> const& onError) {
    ChangeServiceAccount(
        "UpdateServiceAccount",
        {VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT, DPrint::Info,
         "Not connected, queuing call to UpdateServiceAccountDeviceId", "do_update", nullptr},
        account, onSuccess, onError);
}

void VellmarkClientAPI::ChangeServiceAccount(char const* function,
                                             AccountOperation const& operation,
                                             VellmarkPB::serviceAccounts const& account,
                                             Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                             Callback<VellmarkPB::Error> const& onError) {
    LogLine(DPrint::Info, function, "");
    LogLine(DPrint::Info, function, function);
    SendAccountOperation<VellmarkPB::serviceAccounts, AcctOpEnvelope>(
        operation, account, [this, onSuccess, onError](AcctOpEnvelope const& reply) {
            HandleCreateOrUpdateResponse(reply, onSuccess, onError);
        });
}

void VellmarkClientAPI::DeleteServiceAccount(
    std::string const& accountID, Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
    Callback<VellmarkPB::Error> const& onError) {
    char const* const function = "DeleteServiceAccount";
    LogLine(DPrint::Info, function, "");
    if (accountID.empty()) {
        RefuseInput(VellmarkPB::CODE_EMPTY_ACCOUNT_ID, onError);
        return;
    }
    LogLine(DPrint::Info, function, function);
    VellmarkPB::VellmarkDeleteSrvcAccount request;
    request.set_accountid(accountID);
    // The delete reuses the create's send line, as it always has.
    SendAccountOperation<VellmarkPB::VellmarkDeleteSrvcAccount, AcctOpEnvelope>(
        {VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, DPrint::Flow,
         "Not connected, queuing call to DeleteServiceAccountAccount", "do_enable",
         "Send ServiceAccount delete request to IPCServer"},
        request, [this, onSuccess, onError](AcctOpEnvelope const& reply) {
            HandleDeleteResponse(reply, onSuccess, onError);
        });
}

// The reply handlers' one body: a line saying "Success" or "Failure" and the account
// concerned, then exactly one callback. A reply without `success` counts as a failure; an
// absent result or error is passed on as the empty message.
template <class T>
void VellmarkClientAPI::DeliverAccountReply(char const* function,
                                            VellmarkPB::VellmarkAcctOpEnvelope const& reply,
                                            T const& result, std::string const& accountID,
                                            Callback<T> const& onSuccess,
                                            Callback<VellmarkPB::Error> const& onError) {
    LogLine(DPrint::Info, function, reply.success() ? "Success" : "Failure",
            " for account: ", accountID);
    if (reply.success()) {
        CallIfSet(onSuccess, result);
    } else {
        CallIfSet(onError, reply.error());
    }
}

void VellmarkClientAPI::HandleCreateOrUpdateResponse(
    VellmarkPB::VellmarkAcctOpEnvelope const& reply,
    Callback<VellmarkPB::serviceAccounts> const& onSuccess,
    Callback<VellmarkPB::Error> const& onError) {
    DeliverAccountReply("HandleCreateOrUpdateResponse", reply, reply.account(),
                        reply.account().accountid(), onSuccess, onError);
}

void VellmarkClientAPI::HandleDeleteResponse(
    VellmarkPB::VellmarkAcctOpEnvelope const& reply,
    Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
    Callback<VellmarkPB::Error> const& onError) {
    DeliverAccountReply("HandleDeleteResponse", reply, reply.delaccount(),
                        reply.delaccount().accountid(), onSuccess, onError);
}
