// Creating, updating and deleting service accounts. The callbacks travel with each request
// in its reply binding, so concurrent requests each get their own answer.
#include <functional>

#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"

using AcctOpEnvelope = VellmarkPB::VellmarkAcctOpEnvelope;

void VellmarkClientAPI::CreateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                             Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                             Callback<VellmarkPB::Error> const& onError) {
    SendAccountChange("CreateServiceAccount", DPrint::Flow,
                      "Not connected, queuing call to CreateServiceAccountACcount", "do_enable",
                      VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, account, onSuccess,
                      onError);
}

void VellmarkClientAPI::UpdateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                             Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                             Callback<VellmarkPB::Error> const& onError) {
    SendAccountChange("UpdateServiceAccount", DPrint::Info,
                      "Not connected, queuing call to UpdateServiceAccountDeviceId", "do_update",
                      VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT, account, onSuccess,
                      onError);
}

void VellmarkClientAPI::SendAccountChange(char const* function, DPrint::Level queueLevel,
                                          char const* queueLine, char const* sendLine,
                                          unsigned int id,
                                          VellmarkPB::serviceAccounts const& account,
                                          Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                          Callback<VellmarkPB::Error> const& onError) {
    LogLine(DPrint::Info, function, "");
    LogLine(DPrint::Info, function, function);
    Post([=] {
        SendOrDefer(queueLevel, queueLine, [=] {
            LogLine(DPrint::Info, "operator()", sendLine);
            auto onReply =
                OnTask<AcctOpEnvelope>([this, onSuccess, onError](AcctOpEnvelope const& reply) {
                    HandleCreateOrUpdateResponse(reply, onSuccess, onError);
                });
            m_router->SendRequest(id, account, onReply);
        });
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
    Post([=] {
        SendOrDefer(
            DPrint::Flow, "Not connected, queuing call to DeleteServiceAccountAccount", [=] {
                LogLine(DPrint::Info, "operator()", "do_enable");
                VellmarkPB::VellmarkDeleteSrvcAccount request;
                request.set_accountid(accountID);
                LogLine(DPrint::Detail, "operator()",
                        "Send ServiceAccount delete request to IPCServer");
                auto onReply =
                    OnTask<AcctOpEnvelope>([this, onSuccess, onError](AcctOpEnvelope const& reply) {
                        HandleDeleteResponse(reply, onSuccess, onError);
                    });
                m_router->SendRequest(VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, request,
                                      onReply);
            });
    });
}

namespace {

// The handler's one line: "Success" or "Failure", then the account concerned.
void LogOutcome(char const* function, bool success, std::string const& accountID) {
    LogLine(DPrint::Info, function, success ? "Success" : "Failure", " for account: ", accountID);
}

}  // namespace

// A reply without `success` counts as a failure; an absent account or error is passed on
// as the empty message.
void VellmarkClientAPI::HandleCreateOrUpdateResponse(
    VellmarkPB::VellmarkAcctOpEnvelope const& reply,
    Callback<VellmarkPB::serviceAccounts> const& onSuccess,
    Callback<VellmarkPB::Error> const& onError) {
    LogOutcome("HandleCreateOrUpdateResponse", reply.success(), reply.account().accountid());
    if (reply.success()) {
        CallIfSet(onSuccess, reply.account());
    } else {
        CallIfSet(onError, reply.error());
    }
}

void VellmarkClientAPI::HandleDeleteResponse(
    VellmarkPB::VellmarkAcctOpEnvelope const& reply,
    Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
    Callback<VellmarkPB::Error> const& onError) {
    LogOutcome("HandleDeleteResponse", reply.success(), reply.delaccount().accountid());
    if (reply.success()) {
        CallIfSet(onSuccess, reply.delaccount());
    } else {
        CallIfSet(onError, reply.error());
    }
}
