// Voice-assistant (GVA) accounts. Success is the direct reply; failure comes as an Error
// notification of its own, so both callbacks are kept in the client's slots.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/AccountOperation.h"
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
    VellmarkPB::serviceAccounts request;
    request.set_tarvpersonid(tarvPersonID);
    request.set_provideraccountid(providerAccountID);
    request.set_accounttype("VPA");
    request.set_provider("GVA");
    request.set_disabled(false);
    request.mutable_attributes()->set_assistantdeviceid(assistantDeviceId);
    SendAccountOperation<VellmarkPB::serviceAccounts, VellmarkPB::serviceAccounts>(
        {VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE, DPrint::Flow,
         "Not connected, queuing call to CreateGVAACcount", "do_enable", nullptr},
        request, [this](VellmarkPB::serviceAccounts const& account) { GVACreated(account); },
        [this, created = onCreated, failed = onError]() mutable {
            m_gvaCreatedCallback.swap(created);
            m_gvaCreateErrorCallback.swap(failed);
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
    VellmarkPB::VellmarkDeleteGVA request;
    request.set_accountid(accountID);
    SendAccountOperation<VellmarkPB::VellmarkDeleteGVA, VellmarkPB::VellmarkDeleteGVA>(
        {VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE, DPrint::Flow,
         "Not connected, queuing call to DeleteGVAAccount", "do_enable",
         "Send GVA delete request to IPCServer"},
        request, [this](VellmarkPB::VellmarkDeleteGVA const& result) { GVADeleted(result); },
        [this, deleted = onDeleted, failed = onError]() mutable {
            m_gvaDeletedCallback.swap(deleted);
            m_gvaDeleteErrorCallback.swap(failed);
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
    VellmarkPB::serviceAccounts request;
    request.mutable_attributes()->set_assistantdeviceid(assistantDeviceId);
    SendAccountOperation<VellmarkPB::serviceAccounts, VellmarkPB::serviceAccounts>(
        {VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, DPrint::Info,
         "Not connected, queuing call to UpdateGVAAssistantDeviceId", "do_enable", nullptr},
        request,
        [this](VellmarkPB::serviceAccounts const& account) {
            GVAAssistantDeviceIdUpdated(account);
        },
        [this, updated = onUpdated, failed = onError]() mutable {
            m_gvaUpdatedCallback.swap(updated);
            m_gvaUpdateErrorCallback.swap(failed);
        });
}

// The success handlers: the reply is dumped and delivered only when a callback waits.
template <class T>
void VellmarkClientAPI::DeliverGVAReply(DPrint::Level level, char const* function,
                                        Callback<T> const& slot,
                                        void (VellmarkClientAPI::*dump)(T const&), T const& reply) {
    LogLine(level, function, function);
    if (!slot) return;
    (this->*dump)(reply);
    slot(reply);
}

void VellmarkClientAPI::GVACreated(VellmarkPB::serviceAccounts const& account) {
    DeliverGVAReply(DPrint::Flow, "GVACreated", m_gvaCreatedCallback,
                    &VellmarkClientAPI::PrintServiceAccountResponse, account);
}

void VellmarkClientAPI::GVAAssistantDeviceIdUpdated(VellmarkPB::serviceAccounts const& account) {
    DeliverGVAReply(DPrint::Info, "GVAAssistantDeviceIdUpdated", m_gvaUpdatedCallback,
                    &VellmarkClientAPI::PrintServiceAccountResponse, account);
}

void VellmarkClientAPI::GVADeleted(VellmarkPB::VellmarkDeleteGVA const& result) {
    using Dump = void (VellmarkClientAPI::*)(VellmarkPB::VellmarkDeleteGVA const&);
    DeliverGVAReply(DPrint::Info, "GVADeleted", m_gvaDeletedCallback,
                    static_cast<Dump>(&VellmarkClientAPI::PrintDeleteResponse), result);
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
    auto const* request = VellmarkPB::MessageId_descriptor()->FindValueByNumber(error.messageid());
    LogLine(DPrint::Detail, function, "Received error from server - internal message: ",
            request ? request->name() : std::string());
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
