// The handlers of pushed updates, and their acknowledgement to the service.
#include <google/protobuf/generated_enum_reflection.h>

#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "framework/ipc/IPCMessageEnvelope.h"

namespace {

// "<name> received update. Message id= <value>", the tail of the acknowledgement lines.
std::string UpdateDescription(VellmarkPB::MessageId id) {
    return google::protobuf::internal::NameOfEnum(VellmarkPB::MessageId_descriptor(), id) +
           " received update. Message id= " + std::to_string(static_cast<int>(id));
}

}  // namespace

void VellmarkClientAPI::SendCloudSyncReceived(VellmarkPB::MessageId id) {
    // The update's own connection may be gone by now (a later connection attempt failed);
    // then no service is there to hear the acknowledgement.
    if (!m_router) return;
    VellmarkPB::CloudSyncReceived acknowledgement;
    acknowledgement.set_messageid(id);
    IPCMessageEnvelope envelope;
    envelope.SetPayload(acknowledgement);
    m_router->SendEnvelope(VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, envelope);
}

void VellmarkClientAPI::AcceptSourcesSubscribe(VellmarkPB::sources const& update) {
    char const* const function = "AcceptSourcesSubscribe";
    LogLine(DPrint::Flow, function, "AcceptSourcesSubscribe. Printing received sources ");
    PrintSourcesProtobuf(update, kDumpLevel);
    if (!m_sourcesSubscriber) return;
    m_sourcesSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE;
    LogLine(DPrint::Flow, function, "subscriber with message: ", UpdateDescription(id));
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event");
}

void VellmarkClientAPI::AcceptPresetsSubscribe(VellmarkPB::VellmarkPresets const& update) {
    char const* const function = "AcceptPresetsSubscribe";
    LogLine(DPrint::Detail, function, "AcceptPresetsSubscribe");
    PrintPresets(update);
    if (!m_presetsSubscriber) return;
    m_presetsSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_PRESETS_UPDATE;
    LogLine(DPrint::Detail, function, "subscriber with message: ", UpdateDescription(id));
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event");
}

namespace {
char const kSentResponse[] = "Sent CloudSync received response to server: ";
}  // namespace

void VellmarkClientAPI::AcceptVoiceAccountsSubscribe(VellmarkPB::sources const& update) {
    char const* const function = "AcceptVoiceAccountsSubscribe";
    LogLine(DPrint::Flow, function,
            "AcceptVoiceAccountsSubscribe. Printing received Voice Accounts");
    PrintSourcesProtobuf(update, kDumpLevel);
    if (!m_voiceAccountsSubscriber) return;
    m_voiceAccountsSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE;
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, kSentResponse, UpdateDescription(id));
}

void VellmarkClientAPI::AcceptMspHostAccountsSubscribe(VellmarkPB::sources const& update) {
    char const* const function = "AcceptMspHostAccountsSubscribe";
    LogLine(DPrint::Flow, function,
            "AcceptMspHostAccountsSubscribe. Printing received MspHost Accounts");
    PrintSourcesProtobuf(update, kDumpLevel);
    if (!m_mspHostAccountsSubscriber) return;
    m_mspHostAccountsSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE;
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, kSentResponse, UpdateDescription(id));
}

void VellmarkClientAPI::AcceptProductSettingsSubscribe(VellmarkPB::ProductSettings const& update) {
    char const* const function = "AcceptProductSettingsSubscribe";
    LogLine(DPrint::Flow, function, "AcceptProductSettingsSubscribe");
    PrintProductSettingsProtobuff(update);
    if (!m_productSettingsSubscriber) return;
    m_productSettingsSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE;
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, kSentResponse, UpdateDescription(id));
}

void VellmarkClientAPI::AcceptPersonsInfoSubscribe(VellmarkPB::persons const& update) {
    char const* const function = "AcceptPersonsInfoSubscribe";
    LogLine(DPrint::Info, function, "AcceptPersonsInfoSubscribe");
    PrintPersonsInfoProtobuff(update);
    if (!m_personsInfoSubscriber) return;
    m_personsInfoSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_PERSONS_UPDATE;
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, kSentResponse, UpdateDescription(id));
}

void VellmarkClientAPI::AcceptGroupsSubscribe(VellmarkPB::VellmarkGroups const& update) {
    char const* const function = "AcceptGroupsSubscribe";
    LogLine(DPrint::Flow, function, "AcceptGroupsSubscribe. Printing received Groups");
    PrintGroupsProtobuf(update, kDumpLevel);
    if (!m_groupsSubscriber) return;
    m_groupsSubscriber(update);
    auto const id = VellmarkPB::VELLMARK_MESSAGE_GROUPS_UPDATE;
    SendCloudSyncReceived(id);
    LogLine(DPrint::Flow, function, kSentResponse, UpdateDescription(id));
}

// Association updates are neither logged, dumped nor acknowledged.
void VellmarkClientAPI::AcceptIsAssociatedWithAccountSubscribe(
    VellmarkPB::AccountAssociated const& update) {
    if (m_isAssociatedSubscriber) m_isAssociatedSubscriber(update);
}
