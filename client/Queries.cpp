// The seven one-shot queries and their reply handlers.
#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"
#include "client/internal/StoreOnTask.h"

// The log texts of one query; null where the query logs nothing at that step.
struct VellmarkClientAPI::QueryTexts {
    char const* function;  // the operation, as the prefix of its entry line
    char const* entry;
    char const* posted;
    char const* queued;
    char const* sending;
};

template <class T>
void VellmarkClientAPI::Query(QueryTexts const& texts, unsigned int id, Callback<T> const& callback,
                              Callback<T> VellmarkClientAPI::*slot,
                              void (VellmarkClientAPI::*handler)(T const&)) {
    StoreOnTask(texts.function, texts.entry, texts.posted, callback, slot,
                [this, texts, id, handler] {
                    SendOrDefer(DPrint::Flow, texts.queued, [this, texts, id, handler] {
                        if (texts.sending) LogLine(DPrint::Flow, "operator()", texts.sending);
                        m_router->SendRequest(id, T(), OnTask(handler));
                    });
                });
}

void VellmarkClientAPI::GetSources(Callback<VellmarkPB::sources> const& callback) {
    Query<VellmarkPB::sources>({"GetSources", "GetSources", "lambda in GetSources",
                                "Not connected, queuing Attach call to AcceptSourcesAPI",
                                "connected, Attaching request to AcceptSourcesAPI"},
                               VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, callback,
                               &VellmarkClientAPI::m_getSourcesCallback,
                               &VellmarkClientAPI::AcceptSourcesAPI);
}

void VellmarkClientAPI::GetVoiceAccounts(Callback<VellmarkPB::sources> const& callback) {
    Query<VellmarkPB::sources>({"GetVoiceAccounts", "GetVoiceAccounts", nullptr,
                                "Not connected, queuing Attach call to AcceptVoiceAccountsAPI",
                                "connected, Attaching request to AcceptVoiceAccountsAPI"},
                               VellmarkPB::VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS, callback,
                               &VellmarkClientAPI::m_getVoiceAccountsCallback,
                               &VellmarkClientAPI::AcceptVoiceAccountsAPI);
}

void VellmarkClientAPI::GetMspHostAccounts(Callback<VellmarkPB::sources> const& callback) {
    Query<VellmarkPB::sources>({"GetMspHostAccounts", "GetMspHostAccounts", nullptr,
                                "Not connected, queuing Attach call to GetMspHostAccounts",
                                "connected, Attaching request to GetMspHostAccounts"},
                               VellmarkPB::VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS, callback,
                               &VellmarkClientAPI::m_getMspHostAccountsCallback,
                               &VellmarkClientAPI::AcceptMspHostAccountsAPI);
}

void VellmarkClientAPI::GetProductSettings(Callback<VellmarkPB::ProductSettings> const& callback) {
    Query<VellmarkPB::ProductSettings>(
        {"GetProductSettings", "GetProductSettings", "lambda in GetProductSettings",
         "Not connected, queuing Attach call to AcceptProductSettingsAPI",
         "connected, Attaching request to AcceptProductSettingsAPI"},
        VellmarkPB::VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS, callback,
        &VellmarkClientAPI::m_getProductSettingsCallback,
        &VellmarkClientAPI::AcceptProductSettingsAPI);
}

void VellmarkClientAPI::GetPersonsInfo(Callback<VellmarkPB::persons> const& callback) {
    Query<VellmarkPB::persons>(
        {"GetPersonsInfo", "GetPersonsInfo", "lambda function in GetPersonInfo",
         "Not connected, queuing Attach call to AcceptPersonsInfoAPI",
         "connected, Attaching request to AcceptPersonsInfoAPI"},
        VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS, callback,
        &VellmarkClientAPI::m_getPersonsInfoCallback, &VellmarkClientAPI::AcceptPersonsInfoAPI);
}

void VellmarkClientAPI::GetGroups(Callback<VellmarkPB::VellmarkGroups> const& callback) {
    Query<VellmarkPB::VellmarkGroups>(
        {"GetGroups", nullptr, nullptr, "Not connected, queuing Attach call to GetGroups", nullptr},
        VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS, callback, &VellmarkClientAPI::m_getGroupsCallback,
        &VellmarkClientAPI::AcceptVellmarkGroupsAPI);
}

void VellmarkClientAPI::GetPresets(Callback<VellmarkPB::VellmarkPresets> const& callback) {
    Query<VellmarkPB::VellmarkPresets>({"GetPresets", "GetPresets", nullptr,
                                        "Not connected, queuing Attach call to AcceptPresetsAPI",
                                        "connected, Attaching request to AcceptPresetsAPI"},
                                       VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS, callback,
                                       &VellmarkClientAPI::m_getPresetsCallback,
                                       &VellmarkClientAPI::AcceptPresetsAPI);
}

void VellmarkClientAPI::AcceptSourcesAPI(VellmarkPB::sources const& message) {
    LogLine(DPrint::Flow, "AcceptSourcesAPI", "AcceptSourcesAPI");
    PrintSourcesProtobuf(message, kDumpLevel);
    CallIfSet(m_getSourcesCallback, message);
}

void VellmarkClientAPI::AcceptVoiceAccountsAPI(VellmarkPB::sources const& message) {
    LogLine(DPrint::Flow, "AcceptVoiceAccountsAPI",
            "AcceptVoiceAccountsAPI. Printing received Voice Accounts");
    PrintSourcesProtobuf(message, kDumpLevel);
    CallIfSet(m_getVoiceAccountsCallback, message);
}

void VellmarkClientAPI::AcceptMspHostAccountsAPI(VellmarkPB::sources const& message) {
    LogLine(DPrint::Flow, "AcceptMspHostAccountsAPI",
            "AcceptMspHostAccountsAPI. Printing received MspHost Accounts. Cb.empty=",
            !m_getMspHostAccountsCallback);
    PrintSourcesProtobuf(message, kDumpLevel);
    CallIfSet(m_getMspHostAccountsCallback, message);
}

void VellmarkClientAPI::AcceptProductSettingsAPI(VellmarkPB::ProductSettings const& message) {
    LogLine(DPrint::Flow, "AcceptProductSettingsAPI", "AcceptProductSettingsAPI");
    PrintProductSettingsProtobuff(message);
    CallIfSet(m_getProductSettingsCallback, message);
}

void VellmarkClientAPI::AcceptPersonsInfoAPI(VellmarkPB::persons const& message) {
    LogLine(DPrint::Flow, "AcceptPersonsInfoAPI", "AcceptPersonsInfoAPI - persons info: ");
    PrintPersonsInfoProtobuff(message);
    CallIfSet(m_getPersonsInfoCallback, message);
}

void VellmarkClientAPI::AcceptVellmarkGroupsAPI(VellmarkPB::VellmarkGroups const& message) {
    LogLine(DPrint::Flow, "AcceptVellmarkGroupsAPI",
            "AcceptVellmarkGroupsAPI. Printing received Groups");
    PrintGroupsProtobuf(message, kDumpLevel);
    CallIfSet(m_getGroupsCallback, message);
}

void VellmarkClientAPI::AcceptPresetsAPI(VellmarkPB::VellmarkPresets const& message) {
    LogLine(DPrint::Flow, "AcceptPresetsAPI", "AcceptPresetsAPI");
    PrintPresets(message);
    CallIfSet(m_getPresetsCallback, message);
}
