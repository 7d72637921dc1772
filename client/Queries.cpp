// The seven one-shot queries and their reply handlers, on the rows of internal/Resources.h.
// The log texts here are part of the library's contract: tests assert them verbatim.
#include "client/VellmarkClientAPI.h"
#include "client/internal/CallIfSet.h"
#include "client/internal/LogLine.h"
#include "client/internal/Resources.h"
#include "client/internal/StoreOnTask.h"

template <class T>
void VellmarkClientAPI::Query(QueryRow<T> const& row, Callback<T> const& callback) {
    auto const& texts = row.texts;
    StoreOnTask(texts.operation, texts.entry, texts.posted, callback, row.slot, [this, &row] {
        SendOrDefer(DPrint::Flow, row.texts.queued, [this, &row] {
            if (row.texts.sending) LogLine(DPrint::Flow, "operator()", row.texts.sending);
            m_router->SendRequest(row.id, T(), OnTask(row.handler));
        });
    });
}

template <class T>
void VellmarkClientAPI::AcceptReply(QueryRow<T> const& row, T const& message) {
    auto const& texts = row.texts;
    if (texts.replyTellsIfEmpty) {
        LogLine(DPrint::Flow, texts.handler, texts.reply, !(this->*row.slot));
    } else {
        LogLine(DPrint::Flow, texts.handler, texts.reply);
    }
    row.dump(*this, message);
    CallIfSet(this->*row.slot, message);
}

void VellmarkClientAPI::GetSources(Callback<VellmarkPB::sources> const& callback) {
    Query(Resources::kSourcesQuery, callback);
}

void VellmarkClientAPI::GetVoiceAccounts(Callback<VellmarkPB::sources> const& callback) {
    Query(Resources::kVoiceAccountsQuery, callback);
}

void VellmarkClientAPI::GetMspHostAccounts(Callback<VellmarkPB::sources> const& callback) {
    Query(Resources::kMspHostAccountsQuery, callback);
}

void VellmarkClientAPI::GetProductSettings(Callback<VellmarkPB::ProductSettings> const& callback) {
    Query(Resources::kProductSettingsQuery, callback);
}

void VellmarkClientAPI::GetPersonsInfo(Callback<VellmarkPB::persons> const& callback) {
    Query(Resources::kPersonsQuery, callback);
}

void VellmarkClientAPI::GetGroups(Callback<VellmarkPB::VellmarkGroups> const& callback) {
    Query(Resources::kGroupsQuery, callback);
}

void VellmarkClientAPI::GetPresets(Callback<VellmarkPB::VellmarkPresets> const& callback) {
    Query(Resources::kPresetsQuery, callback);
}

void VellmarkClientAPI::AcceptSourcesAPI(VellmarkPB::sources const& message) {
    AcceptReply(Resources::kSourcesQuery, message);
}

void VellmarkClientAPI::AcceptVoiceAccountsAPI(VellmarkPB::sources const& message) {
    AcceptReply(Resources::kVoiceAccountsQuery, message);
}

void VellmarkClientAPI::AcceptMspHostAccountsAPI(VellmarkPB::sources const& message) {
    AcceptReply(Resources::kMspHostAccountsQuery, message);
}

void VellmarkClientAPI::AcceptProductSettingsAPI(VellmarkPB::ProductSettings const& message) {
    AcceptReply(Resources::kProductSettingsQuery, message);
}

void VellmarkClientAPI::AcceptPersonsInfoAPI(VellmarkPB::persons const& message) {
    AcceptReply(Resources::kPersonsQuery, message);
}

void VellmarkClientAPI::AcceptVellmarkGroupsAPI(VellmarkPB::VellmarkGroups const& message) {
    AcceptReply(Resources::kGroupsQuery, message);
}

void VellmarkClientAPI::AcceptPresetsAPI(VellmarkPB::VellmarkPresets const& message) {
    AcceptReply(Resources::kPresetsQuery, message);
}
