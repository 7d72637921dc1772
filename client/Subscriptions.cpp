// The eight subscriptions: storing the callback and attaching, or queuing, the handler.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "client/internal/StoreOnTask.h"

// The log texts of one subscription; null where it logs nothing at that step.
struct VellmarkClientAPI::SubscribeTexts {
    char const* function;  // the operation, as the prefix of its entry line
    char const* entry;
    char const* posted;
    char const* queued;
    DPrint::Level queuedLevel;
    char const* attaching;
};

template <class T>
void VellmarkClientAPI::Subscribe(SubscribeTexts const& texts, int id, Callback<T> const& callback,
                                  Callback<T> VellmarkClientAPI::*slot,
                                  void (VellmarkClientAPI::*handler)(T const&)) {
    StoreOnTask(texts.function, texts.entry, texts.posted, callback, slot,
                [this, texts, id, handler] {
                    if (!m_router) {
                        LogLine(texts.queuedLevel, "operator()", texts.queued);
                        m_pendingAttachIds.push_back(id);
                        return;
                    }
                    if (texts.attaching) LogLine(DPrint::Flow, "operator()", texts.attaching);
                    AttachHandler(id, handler);
                });
}

namespace {
char const kQueuedToServer[] = "Not connected, queuing Attach call to Server: ";
}  // namespace

void VellmarkClientAPI::SubscribeSourcesRequest(std::string const&,
                                                Callback<VellmarkPB::sources> const& callback) {
    Subscribe<VellmarkPB::sources>(
        {"SubscribeSourcesRequest", "SubscribeSourcesRequest",
         "lambda in void SubscribeSourcesRequest", kQueuedToServer, DPrint::Flow, nullptr},
        VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE, callback,
        &VellmarkClientAPI::m_sourcesSubscriber, &VellmarkClientAPI::AcceptSourcesSubscribe);
}

void VellmarkClientAPI::SubscribeVoiceAccountsRequest(
    Callback<VellmarkPB::sources> const& callback) {
    Subscribe<VellmarkPB::sources>(
        {"SubscribeVoiceAccountsRequest", nullptr, nullptr,
         "Not connected, queuing Attach call to AcceptVoiceAccountsSubscribe", DPrint::Flow,
         "connected, Attach request to AcceptVoiceAccountsSubscribe"},
        VellmarkPB::VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE, callback,
        &VellmarkClientAPI::m_voiceAccountsSubscriber,
        &VellmarkClientAPI::AcceptVoiceAccountsSubscribe);
}

void VellmarkClientAPI::SubscribeMspHostAccountsRequest(
    Callback<VellmarkPB::sources> const& callback) {
    Subscribe<VellmarkPB::sources>(
        {"SubscribeMspHostAccountsRequest", nullptr, nullptr,
         "Not connected, queuing Attach call to AcceptMspHostAccountsSubscribe", DPrint::Flow,
         "connected, Attach request to AcceptMspHostAccountsSubscribe"},
        VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE, callback,
        &VellmarkClientAPI::m_mspHostAccountsSubscriber,
        &VellmarkClientAPI::AcceptMspHostAccountsSubscribe);
}

void VellmarkClientAPI::SubscribeProductSettingsRequest(
    std::string const&, Callback<VellmarkPB::ProductSettings> const& callback) {
    // The queue line carries the posted text after it, on the same line.
    Subscribe<VellmarkPB::ProductSettings>(
        {"SubscribeProductSettingsRequest", "SubscribeProductSettingsRequest",
         " lambda in SubscribeProductSettingsRequest",
         "Not connected, queuing Attach call to Server:  lambda in "
         "SubscribeProductSettingsRequest",
         DPrint::Flow, nullptr},
        VellmarkPB::VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE, callback,
        &VellmarkClientAPI::m_productSettingsSubscriber,
        &VellmarkClientAPI::AcceptProductSettingsSubscribe);
}

void VellmarkClientAPI::SubscribePersonsInfoRequest(std::string const&,
                                                    Callback<VellmarkPB::persons> const& callback) {
    Subscribe<VellmarkPB::persons>(
        {"SubscribePersonsInfoRequest", "SubscribePersonsInfoRequest",
         "lambda in SubscribePersonsInfoRequest",
         "Not connected, queuing Attach call to AcceptPersonsInfoSubscribe", DPrint::Flow,
         "connected, Attach request to AcceptPersonsInfoSubscribe"},
        VellmarkPB::VELLMARK_MESSAGE_PERSONS_UPDATE, callback,
        &VellmarkClientAPI::m_personsInfoSubscriber,
        &VellmarkClientAPI::AcceptPersonsInfoSubscribe);
}

void VellmarkClientAPI::SubscribeGroupsRequest(
    Callback<VellmarkPB::VellmarkGroups> const& callback) {
    // Announces its registration with the host-account text, as it always has.
    Subscribe<VellmarkPB::VellmarkGroups>(
        {"SubscribeGroupsRequest", nullptr, nullptr,
         "Not connected, queuing Attach call to AcceptGroupsSubscribe", DPrint::Flow,
         "connected, Attach request to AcceptMspHostAccountsSubscribe"},
        VellmarkPB::VELLMARK_MESSAGE_GROUPS_UPDATE, callback,
        &VellmarkClientAPI::m_groupsSubscriber, &VellmarkClientAPI::AcceptGroupsSubscribe);
}

void VellmarkClientAPI::SubscribePresetsRequest(
    std::string const&, Callback<VellmarkPB::VellmarkPresets> const& callback) {
    Subscribe<VellmarkPB::VellmarkPresets>(
        {"SubscribePresetsRequest", nullptr, nullptr,
         "Not connected, queuing Attach call to AcceptPresetsSubscribe", DPrint::Flow,
         "connected, Attach request to AcceptPresetsSubscribe"},
        VellmarkPB::VELLMARK_MESSAGE_PRESETS_UPDATE, callback,
        &VellmarkClientAPI::m_presetsSubscriber, &VellmarkClientAPI::AcceptPresetsSubscribe);
}

void VellmarkClientAPI::SubscribeIsAssociatedWithAccountRequest(
    Callback<VellmarkPB::AccountAssociated> const& callback) {
    Subscribe<VellmarkPB::AccountAssociated>(
        {"SubscribeIsAssociatedWithAccountRequest", "SubscribeIsAssociatedWithAccountRequest",
         " lambda in SubscribeIsAssociatedWithAccountRequest",
         "Not connected, queuing Attach call to Server:  lambda in "
         "SubscribeIsAssociatedWithAccountRequest",
         DPrint::Info, nullptr},
        VellmarkPB::VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE, callback,
        &VellmarkClientAPI::m_isAssociatedSubscriber,
        &VellmarkClientAPI::AcceptIsAssociatedWithAccountSubscribe);
}
