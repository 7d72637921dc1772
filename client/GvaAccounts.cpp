// Voice-assistant (GVA) accounts. Success is the direct reply; failure comes as an Error
// notification of its own, so both callbacks are kept in the client's slots.
#include <google/protobuf/generated_enum_reflection.h>

#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"

void VellmarkClientAPI::CreateGVAAccount(std::string const& tarvPersonID,
                                         std::string const& providerAccountID,
                                         std::string const& assistantDeviceId,
                                         Callback<VellmarkPB::serviceAccounts> const& onCreated,
                                         Callback<VellmarkPB::Error> const& onError) {
    if (tarvPersonID.empty() || providerAccountID.empty()) {
        RefuseInput(tarvPersonID.empty() ? VellmarkPB::CODE_EMPTY_PERSON_ID
                                         : VellmarkPB::CODE_EMPTY_ACCOUNT_ID,
                    onError);
        return;
    }
    LogLine(DPrint::Info, "CreateGVAAccount", "CreateGVAAccount");
    Post([this, tarvPersonID, providerAccountID, assistantDeviceId, created = onCreated,
          failed = onError]() mutable {
        m_gvaCreatedCallback.swap(created);
        m_gvaCreateErrorCallback.swap(failed);
        auto send = [this, tarvPersonID, providerAccountID, assistantDeviceId] {
            LogLine(DPrint::Info, "operator()", "do_enable");
            VellmarkPB::serviceAccounts request;
            request.set_tarvpersonid(tarvPersonID);
            request.set_provideraccountid(providerAccountID);
            request.set_accounttype("VPA");
            request.set_provider("GVA");
            request.set_disabled(false);
            request.mutable_attributes()->set_assistantdeviceid(assistantDeviceId);
            m_router->SendRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE, request,
                                  OnTask(&VellmarkClientAPI::GVACreated));
        };
        SendOrDefer(DPrint::Flow, "Not connected, queuing call to CreateGVAACcount", send);
    });
}

void VellmarkClientAPI::DeleteGVAAccount(std::string const& accountID,
                                         Callback<VellmarkPB::VellmarkDeleteGVA> const& onDeleted,
                                         Callback<VellmarkPB::Error> const& onError) {
    if (accountID.empty()) {
        RefuseInput(VellmarkPB::CODE_EMPTY_ACCOUNT_ID, onError);
        return;
    }
    LogLine(DPrint::Info, "DeleteGVAAccount", "DeleteGVAAccount");
    Post([this, accountID, deleted = onDeleted, failed = onError]() mutable {
        m_gvaDeletedCallback.swap(deleted);
        m_gvaDeleteErrorCallback.swap(failed);
        auto send = [this, accountID] {
            LogLine(DPrint::Info, "operator()", "do_enable");
            VellmarkPB::VellmarkDeleteGVA request;
            request.set_accountid(accountID);
            LogLine(DPrint::Detail, "operator()", "Send GVA delete request to IPCServer");
            m_router->SendRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE, request,
                                  OnTask(&VellmarkClientAPI::GVADeleted));
        };
        SendOrDefer(DPrint::Flow, "Not connected, queuing call to DeleteGVAAccount", send);
    });
}

void VellmarkClientAPI::UpdateGVAAssistantDeviceId(
    std::string const& assistantDeviceId, Callback<VellmarkPB::serviceAccounts> const& onUpdated,
    Callback<VellmarkPB::Error> const& onError) {
    if (assistantDeviceId.empty()) {
        RefuseInput(VellmarkPB::CODE_EMPTY_ASSISTANT_DEVICE_ID, onError);
        return;
    }
    LogLine(DPrint::Info, "UpdateGVAAssistantDeviceId", "UpdateGVAAssistantDeviceId");
    Post([this, assistantDeviceId, updated = onUpdated, failed = onError]() mutable {
        m_gvaUpdatedCallback.swap(updated);
        m_gvaUpdateErrorCallback.swap(failed);
        auto send = [this, assistantDeviceId] {
            LogLine(DPrint::Info, "operator()", "do_enable");
            VellmarkPB::serviceAccounts request;
            request.mutable_attributes()->set_assistantdeviceid(assistantDeviceId);
            m_router->SendRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, request,
                                  OnTask(&VellmarkClientAPI::GVAAssistantDeviceIdUpdated));
        };
        SendOrDefer(DPrint::Info, "Not connected, queuing call to UpdateGVAAssistantDeviceId",
                    send);
    });
}

void VellmarkClientAPI::GVACreated(VellmarkPB::serviceAccounts const& account) {
    LogLine(DPrint::Flow, "GVACreated", "GVACreated");
    if (!m_gvaCreatedCallback) return;
    PrintServiceAccountResponse(account);
    m_gvaCreatedCallback(account);
}

void VellmarkClientAPI::GVAAssistantDeviceIdUpdated(VellmarkPB::serviceAccounts const& account) {
    LogLine(DPrint::Info, "GVAAssistantDeviceIdUpdated", "GVAAssistantDeviceIdUpdated");
    if (!m_gvaUpdatedCallback) return;
    PrintServiceAccountResponse(account);
    m_gvaUpdatedCallback(account);
}

void VellmarkClientAPI::GVADeleted(VellmarkPB::VellmarkDeleteGVA const& result) {
    LogLine(DPrint::Info, "GVADeleted", "GVADeleted");
    if (!m_gvaDeletedCallback) return;
    PrintDeleteResponse(result);
    m_gvaDeletedCallback(result);
}

void VellmarkClientAPI::HandleGVACreateError(VellmarkPB::Error const& error) {
    HandleGVAError("HandleGVACreateError", m_gvaCreateErrorCallback, error);
}

void VellmarkClientAPI::HandleGVADeleteError(VellmarkPB::Error const& error) {
    HandleGVAError("HandleGVADeleteError", m_gvaDeleteErrorCallback, error);
}

void VellmarkClientAPI::HandleGVAUpdateError(VellmarkPB::Error const& error) {
    HandleGVAError("HandleGVAUpdateError", m_gvaUpdateErrorCallback, error);
}

// The error names the request that failed by its message id.
void VellmarkClientAPI::HandleGVAError(char const* function,
                                       Callback<VellmarkPB::Error> const& slot,
                                       VellmarkPB::Error const& error) {
    LogLine(DPrint::Info, function, function);
    if (!slot) return;
    LogLine(DPrint::Detail, function, "Received error from server - internal message: ",
            google::protobuf::internal::NameOfEnum(VellmarkPB::MessageId_descriptor(),
                                                   error.messageid()));
    slot(error);
}

namespace {

// The five lines of a delete result; both result types have the same fields.
template <class Result>
void PrintDeleteFields(Result const& result) {
    char const* const function = "PrintDeleteResponse";
    LogLine(DPrint::Detail, function, "accountID: ", result.accountid());
    LogLine(DPrint::Detail, function, "Code: ", result.code());
    LogLine(DPrint::Detail, function, "Subcode: ", result.subcode());
    LogLine(DPrint::Detail, function, "status: ", result.status());
    LogLine(DPrint::Detail, function, "message: ", result.message());
}

}  // namespace

void VellmarkClientAPI::PrintDeleteResponse(VellmarkPB::VellmarkDeleteGVA const& result) {
    PrintDeleteFields(result);
}

void VellmarkClientAPI::PrintDeleteResponse(VellmarkPB::VellmarkDeleteSrvcAccount const& result) {
    PrintDeleteFields(result);
}
