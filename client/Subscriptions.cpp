// The eight subscriptions, their replay after a connection, and the handling and
// acknowledgement of their updates, on the rows of internal/Resources.h.
// The log texts here, irregular as some of them look, are part of the library's contract
// and asserted verbatim by the tests: keep them exactly as they are.
#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "client/internal/Resources.h"
#include "client/internal/StoreOnTask.h"
#include "framework/ipc/IPCMessageEnvelope.h"

namespace {

// "<name> received update. Message id= <value>", the tail of the acknowledgement lines; the
// name is empty for a value without one.
std::string UpdateDescription(VellmarkPB::MessageId id) {
    auto const* value = VellmarkPB::MessageId_descriptor()->FindValueByNumber(id);
    return (value ? value->name() : std::string()) +
           " received update. Message id= " + std::to_string(static_cast<int>(id));
}

}  // namespace

template <class T>
void VellmarkClientAPI::Subscribe(SubscriptionRow<T> const& row, Callback<T> const& callback) {
    auto const& texts = row.texts;
    StoreOnTask(texts.operation, texts.entry, texts.posted, callback, row.slot, [this, &row] {
        if (!m_router) {
            LogLine(row.texts.queued.level, "operator()", row.texts.queued.text);
            m_pendingAttachIds.push_back(row.id);
            return;
        }
        if (row.texts.attaching) LogLine(DPrint::Flow, "operator()", row.texts.attaching);
        AttachHandler(row.id, row.handler);
    });
}

template <class T>
void VellmarkClientAPI::AttachQueued(SubscriptionRow<T> const& row) {
    if (!row.replayed) return;
    LogLine(row.texts.replay.level, "AttachToIPCServer", row.texts.replay.text);
    AttachHandler(row.id, row.handler);
    // Hands the subscriber the current value at once, through the interface.
    if (row.asksCurrentValue)
        static_cast<VellmarkClientAPIIF*>(this)->GetGroups(m_groupsSubscriber);
}

template <class T>
void VellmarkClientAPI::AcceptUpdate(SubscriptionRow<T> const& row, T const& update) {
    auto const& texts = row.texts;
    if (texts.heading.text) LogLine(texts.heading.level, texts.handler, texts.heading.text);
    if (row.dump) row.dump(*this, update);
    Callback<T> const& callback = this->*row.slot;
    if (!callback) return;
    callback(update);
    if (!row.acknowledged) return;
    auto const id = static_cast<VellmarkPB::MessageId>(row.id);
    switch (texts.ack) {
        case Vellmark::Client::AckLines::AnnouncedThenSent:
            // The description looks the name up and builds a string: only for a written line.
            if (VellmarkClientLog().IsLog(texts.announceLevel)) {
                LogLine(texts.announceLevel, texts.handler,
                        "subscriber with message: ", UpdateDescription(id));
            }
            SendCloudSyncReceived(id);
            LogLine(DPrint::Flow, texts.handler, "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event");
            return;
        case Vellmark::Client::AckLines::SentToServer:
            SendCloudSyncReceived(id);
            if (VellmarkClientLog().IsLog(DPrint::Flow)) {
                LogLine(DPrint::Flow, texts.handler,
                        "Sent CloudSync received response to server: ", UpdateDescription(id));
            }
            return;
    }
}

void VellmarkClientAPI::AttachToIPCServer(int messageId) {
    Resources::ForEachSubscription([this, messageId](auto const& row) {
        if (row.id == messageId) AttachQueued(row);
    });
    for (auto const& row : Resources::kGvaErrors) {
        if (row.id != messageId) continue;
        LogLine(DPrint::Info, "AttachToIPCServer", row.attachLine);
        AttachHandler(row.id, row.handler);
    }
}

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

void VellmarkClientAPI::SubscribeSourcesRequest(std::string const&,
                                                Callback<VellmarkPB::sources> const& callback) {
    Subscribe(Resources::kSourcesSubscription, callback);
}

void VellmarkClientAPI::SubscribeVoiceAccountsRequest(
    Callback<VellmarkPB::sources> const& callback) {
    Subscribe(Resources::kVoiceAccountsSubscription, callback);
}

void VellmarkClientAPI::SubscribeMspHostAccountsRequest(
    Callback<VellmarkPB::sources> const& callback) {
    Subscribe(Resources::kMspHostAccountsSubscription, callback);
}

void VellmarkClientAPI::SubscribeProductSettingsRequest(
    std::string const&, Callback<VellmarkPB::ProductSettings> const& callback) {
    Subscribe(Resources::kProductSettingsSubscription, callback);
}

void VellmarkClientAPI::SubscribePersonsInfoRequest(std::string const&,
                                                    Callback<VellmarkPB::persons> const& callback) {
    Subscribe(Resources::kPersonsSubscription, callback);
}

void VellmarkClientAPI::SubscribeGroupsRequest(
    Callback<VellmarkPB::VellmarkGroups> const& callback) {
    Subscribe(Resources::kGroupsSubscription, callback);
}

void VellmarkClientAPI::SubscribePresetsRequest(
    std::string const&, Callback<VellmarkPB::VellmarkPresets> const& callback) {
    Subscribe(Resources::kPresetsSubscription, callback);
}

void VellmarkClientAPI::SubscribeIsAssociatedWithAccountRequest(
    Callback<VellmarkPB::AccountAssociated> const& callback) {
    Subscribe(Resources::kAssociationSubscription, callback);
}

void VellmarkClientAPI::AcceptSourcesSubscribe(VellmarkPB::sources const& update) {
    AcceptUpdate(Resources::kSourcesSubscription, update);
}

void VellmarkClientAPI::AcceptVoiceAccountsSubscribe(VellmarkPB::sources const& update) {
    AcceptUpdate(Resources::kVoiceAccountsSubscription, update);
}

void VellmarkClientAPI::AcceptMspHostAccountsSubscribe(VellmarkPB::sources const& update) {
    AcceptUpdate(Resources::kMspHostAccountsSubscription, update);
}

void VellmarkClientAPI::AcceptProductSettingsSubscribe(VellmarkPB::ProductSettings const& update) {
    AcceptUpdate(Resources::kProductSettingsSubscription, update);
}

void VellmarkClientAPI::AcceptPersonsInfoSubscribe(VellmarkPB::persons const& update) {
    AcceptUpdate(Resources::kPersonsSubscription, update);
}

void VellmarkClientAPI::AcceptGroupsSubscribe(VellmarkPB::VellmarkGroups const& update) {
    AcceptUpdate(Resources::kGroupsSubscription, update);
}

void VellmarkClientAPI::AcceptPresetsSubscribe(VellmarkPB::VellmarkPresets const& update) {
    AcceptUpdate(Resources::kPresetsSubscription, update);
}

void VellmarkClientAPI::AcceptIsAssociatedWithAccountSubscribe(
    VellmarkPB::AccountAssociated const& update) {
    AcceptUpdate(Resources::kAssociationSubscription, update);
}
