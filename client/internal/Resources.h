#pragma once
// The client's resources, one row each: what a query or a subscription of that resource
// sends, stores, logs, dumps and acknowledges. Query, Subscribe, the replay of
// subscriptions in Connected and the reply and update handlers read the rows, so each
// operation's own texts and exceptions stand here and nowhere else.
#include "client/VellmarkClientAPI.h"

// A one-shot query (GetSources and its six siblings) and its reply handler.
template <class T>
struct VellmarkClientAPI::QueryRow {
    unsigned int id;
    Callback<T> VellmarkClientAPI::*slot;
    // The reply handler, and its name: the function of its line.
    void (VellmarkClientAPI::*handler)(T const&);
    char const* handlerName;
    // The operation's name: the function of its entry line.
    char const* operation;
    // Lines of the operation at level 2; null where it logs nothing at that step.
    char const* entry;
    char const* posted;
    char const* queued;
    char const* sending;
    // The reply handler's line at level 2, and whether it ends with "is the stored
    // callback empty" (1 or 0).
    char const* reply;
    bool replyTellsIfEmpty;
    // The dump of a reply.
    void (*dump)(VellmarkClientAPI& client, T const& message);
};

// How the update handler tells of its acknowledgement.
enum class VellmarkClientAPI::AckLines {
    None,  // nothing is acknowledged
    // "subscriber with message: <name> received update. Message id= <id>" before it (at the
    // row's level), "Sent VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED event" after it
    AnnouncedThenSent,
    // "Sent CloudSync received response to server: <name> received update..." after it
    SentToServer,
};

// A subscription (SubscribeSourcesRequest and its seven siblings), its standing attachment
// and its update handler.
template <class T>
struct VellmarkClientAPI::SubscriptionRow {
    int id;
    Callback<T> VellmarkClientAPI::*slot;
    // The update handler, and its name: the function of its lines.
    void (VellmarkClientAPI::*handler)(T const&);
    char const* handlerName;
    // The operation's name: the function of its entry line.
    char const* operation;
    // Lines of the operation; null where it logs nothing at that step.
    char const* entry;
    char const* posted;
    char const* queued;
    DPrint::Level queuedLevel;
    char const* attaching;
    // The replay of a subscription made while disconnected (AttachToIPCServer): whether it
    // is replayed at all, its line, and whether it then asks for the current value.
    bool replayed;
    char const* replayLine;
    DPrint::Level replayLevel;
    bool asksCurrentValue;
    // The update handler: its first line (null: none), the dump (null: none), then, when
    // the caller's callback is set, the acknowledgement and its lines.
    char const* heading;
    DPrint::Level headingLevel;
    void (*dump)(VellmarkClientAPI& client, T const& update);
    AckLines ack;
    DPrint::Level announceLevel;  // of the line before it, for AnnouncedThenSent
};

// A standing attachment that is no subscription: the GVA error notifications.
struct VellmarkClientAPI::ErrorRow {
    int id;
    void (VellmarkClientAPI::*handler)(VellmarkPB::Error const&);
    char const* attachLine;
};

struct VellmarkClientAPI::Resources {
    using C = VellmarkClientAPI;

    static constexpr char kQueuedToServer[] = "Not connected, queuing Attach call to Server: ";

    static constexpr QueryRow<VellmarkPB::sources> kSourcesQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES,
        &C::m_getSourcesCallback,
        &C::AcceptSourcesAPI,
        "AcceptSourcesAPI",
        "GetSources",
        "GetSources",
        "lambda in GetSources",
        "Not connected, queuing Attach call to AcceptSourcesAPI",
        "connected, Attaching request to AcceptSourcesAPI",
        "AcceptSourcesAPI",
        false,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); }};
    static constexpr QueryRow<VellmarkPB::sources> kVoiceAccountsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS,
        &C::m_getVoiceAccountsCallback,
        &C::AcceptVoiceAccountsAPI,
        "AcceptVoiceAccountsAPI",
        "GetVoiceAccounts",
        "GetVoiceAccounts",
        nullptr,
        "Not connected, queuing Attach call to AcceptVoiceAccountsAPI",
        "connected, Attaching request to AcceptVoiceAccountsAPI",
        "AcceptVoiceAccountsAPI. Printing received Voice Accounts",
        false,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); }};
    static constexpr QueryRow<VellmarkPB::sources> kMspHostAccountsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS,
        &C::m_getMspHostAccountsCallback,
        &C::AcceptMspHostAccountsAPI,
        "AcceptMspHostAccountsAPI",
        "GetMspHostAccounts",
        "GetMspHostAccounts",
        nullptr,
        "Not connected, queuing Attach call to GetMspHostAccounts",
        "connected, Attaching request to GetMspHostAccounts",
        "AcceptMspHostAccountsAPI. Printing received MspHost Accounts. Cb.empty=",
        true,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); }};
    static constexpr QueryRow<VellmarkPB::ProductSettings> kProductSettingsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS, &C::m_getProductSettingsCallback,
        &C::AcceptProductSettingsAPI, "AcceptProductSettingsAPI", "GetProductSettings",
        "GetProductSettings", "lambda in GetProductSettings",
        "Not connected, queuing Attach call to AcceptProductSettingsAPI",
        "connected, Attaching request to AcceptProductSettingsAPI", "AcceptProductSettingsAPI",
        false,
        // The dump takes its own copy.
        [](C& c, VellmarkPB::ProductSettings const& m) { c.PrintProductSettingsProtobuff(m); }};
    static constexpr QueryRow<VellmarkPB::persons> kPersonsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS,
        &C::m_getPersonsInfoCallback,
        &C::AcceptPersonsInfoAPI,
        "AcceptPersonsInfoAPI",
        "GetPersonsInfo",
        "GetPersonsInfo",
        "lambda function in GetPersonInfo",
        "Not connected, queuing Attach call to AcceptPersonsInfoAPI",
        "connected, Attaching request to AcceptPersonsInfoAPI",
        "AcceptPersonsInfoAPI - persons info: ",
        false,
        [](C& c, VellmarkPB::persons const& m) { c.PrintPersonsInfoProtobuff(m); }};
    static constexpr QueryRow<VellmarkPB::VellmarkGroups> kGroupsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS,
        &C::m_getGroupsCallback,
        &C::AcceptVellmarkGroupsAPI,
        "AcceptVellmarkGroupsAPI",
        "GetGroups",
        nullptr,
        nullptr,
        "Not connected, queuing Attach call to GetGroups",
        nullptr,
        "AcceptVellmarkGroupsAPI. Printing received Groups",
        false,
        [](C& c, VellmarkPB::VellmarkGroups const& m) { c.PrintGroupsProtobuf(m, kDumpLevel); }};
    static constexpr QueryRow<VellmarkPB::VellmarkPresets> kPresetsQuery{
        VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS,
        &C::m_getPresetsCallback,
        &C::AcceptPresetsAPI,
        "AcceptPresetsAPI",
        "GetPresets",
        "GetPresets",
        nullptr,
        "Not connected, queuing Attach call to AcceptPresetsAPI",
        "connected, Attaching request to AcceptPresetsAPI",
        "AcceptPresetsAPI",
        false,
        [](C& c, VellmarkPB::VellmarkPresets const& m) { c.PrintPresets(m); }};

    static constexpr SubscriptionRow<VellmarkPB::sources> kSourcesSubscription{
        VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE,
        &C::m_sourcesSubscriber,
        &C::AcceptSourcesSubscribe,
        "AcceptSourcesSubscribe",
        "SubscribeSourcesRequest",
        "SubscribeSourcesRequest",
        "lambda in void SubscribeSourcesRequest",
        kQueuedToServer,
        DPrint::Flow,
        nullptr,
        true,
        "Attaching to AcceptSourcesSubscribe",
        DPrint::Flow,
        false,
        "AcceptSourcesSubscribe. Printing received sources ",
        DPrint::Flow,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); },
        AckLines::AnnouncedThenSent,
        DPrint::Flow};
    static constexpr SubscriptionRow<VellmarkPB::sources> kVoiceAccountsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE,
        &C::m_voiceAccountsSubscriber,
        &C::AcceptVoiceAccountsSubscribe,
        "AcceptVoiceAccountsSubscribe",
        "SubscribeVoiceAccountsRequest",
        nullptr,
        nullptr,
        "Not connected, queuing Attach call to AcceptVoiceAccountsSubscribe",
        DPrint::Flow,
        "connected, Attach request to AcceptVoiceAccountsSubscribe",
        true,
        "Attaching to AcceptVoiceAccountsSubscribe",
        DPrint::Flow,
        false,
        "AcceptVoiceAccountsSubscribe. Printing received Voice Accounts",
        DPrint::Flow,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); },
        AckLines::SentToServer,
        DPrint::Flow};
    // Not replayed: a host-account subscription made while disconnected is never attached.
    static constexpr SubscriptionRow<VellmarkPB::sources> kMspHostAccountsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE,
        &C::m_mspHostAccountsSubscriber,
        &C::AcceptMspHostAccountsSubscribe,
        "AcceptMspHostAccountsSubscribe",
        "SubscribeMspHostAccountsRequest",
        nullptr,
        nullptr,
        "Not connected, queuing Attach call to AcceptMspHostAccountsSubscribe",
        DPrint::Flow,
        "connected, Attach request to AcceptMspHostAccountsSubscribe",
        false,
        nullptr,
        DPrint::Flow,
        false,
        "AcceptMspHostAccountsSubscribe. Printing received MspHost Accounts",
        DPrint::Flow,
        [](C& c, VellmarkPB::sources const& m) { c.PrintSourcesProtobuf(m, kDumpLevel); },
        AckLines::SentToServer,
        DPrint::Flow};
    // The queue line carries the posted text after it, on the same line.
    static constexpr SubscriptionRow<VellmarkPB::ProductSettings> kProductSettingsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE,
        &C::m_productSettingsSubscriber,
        &C::AcceptProductSettingsSubscribe,
        "AcceptProductSettingsSubscribe",
        "SubscribeProductSettingsRequest",
        "SubscribeProductSettingsRequest",
        " lambda in SubscribeProductSettingsRequest",
        "Not connected, queuing Attach call to Server:  lambda in "
        "SubscribeProductSettingsRequest",
        DPrint::Flow,
        nullptr,
        true,
        "Attaching to AcceptProductSettingsSubscribe",
        DPrint::Flow,
        false,
        "AcceptProductSettingsSubscribe",
        DPrint::Flow,
        [](C& c, VellmarkPB::ProductSettings const& m) { c.PrintProductSettingsProtobuff(m); },
        AckLines::SentToServer,
        DPrint::Flow};
    static constexpr SubscriptionRow<VellmarkPB::persons> kPersonsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_PERSONS_UPDATE,
        &C::m_personsInfoSubscriber,
        &C::AcceptPersonsInfoSubscribe,
        "AcceptPersonsInfoSubscribe",
        "SubscribePersonsInfoRequest",
        "SubscribePersonsInfoRequest",
        "lambda in SubscribePersonsInfoRequest",
        "Not connected, queuing Attach call to AcceptPersonsInfoSubscribe",
        DPrint::Flow,
        "connected, Attach request to AcceptPersonsInfoSubscribe",
        true,
        "Attaching to AcceptPersonsInfoSubscribe",
        DPrint::Flow,
        false,
        "AcceptPersonsInfoSubscribe",
        DPrint::Info,
        [](C& c, VellmarkPB::persons const& m) { c.PrintPersonsInfoProtobuff(m); },
        AckLines::SentToServer,
        DPrint::Flow};
    // Announces its registration with the host-account text, and asks for the current
    // groups once its replay has attached it.
    static constexpr SubscriptionRow<VellmarkPB::VellmarkGroups> kGroupsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_GROUPS_UPDATE,
        &C::m_groupsSubscriber,
        &C::AcceptGroupsSubscribe,
        "AcceptGroupsSubscribe",
        "SubscribeGroupsRequest",
        nullptr,
        nullptr,
        "Not connected, queuing Attach call to AcceptGroupsSubscribe",
        DPrint::Flow,
        "connected, Attach request to AcceptMspHostAccountsSubscribe",
        true,
        "Attaching to SubscribeGroupsRequest",
        DPrint::Info,
        true,
        "AcceptGroupsSubscribe. Printing received Groups",
        DPrint::Flow,
        [](C& c, VellmarkPB::VellmarkGroups const& m) { c.PrintGroupsProtobuf(m, kDumpLevel); },
        AckLines::SentToServer,
        DPrint::Flow};
    static constexpr SubscriptionRow<VellmarkPB::VellmarkPresets> kPresetsSubscription{
        VellmarkPB::VELLMARK_MESSAGE_PRESETS_UPDATE,
        &C::m_presetsSubscriber,
        &C::AcceptPresetsSubscribe,
        "AcceptPresetsSubscribe",
        "SubscribePresetsRequest",
        nullptr,
        nullptr,
        "Not connected, queuing Attach call to AcceptPresetsSubscribe",
        DPrint::Flow,
        "connected, Attach request to AcceptPresetsSubscribe",
        true,
        "Attaching to AcceptPresetsSubscribe",
        DPrint::Flow,
        false,
        "AcceptPresetsSubscribe",
        DPrint::Detail,
        [](C& c, VellmarkPB::VellmarkPresets const& m) { c.PrintPresets(m); },
        AckLines::AnnouncedThenSent,
        DPrint::Detail};
    // The association's updates are neither logged, dumped nor acknowledged.
    static constexpr SubscriptionRow<VellmarkPB::AccountAssociated> kAssociationSubscription{
        VellmarkPB::VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE,
        &C::m_isAssociatedSubscriber,
        &C::AcceptIsAssociatedWithAccountSubscribe,
        "AcceptIsAssociatedWithAccountSubscribe",
        "SubscribeIsAssociatedWithAccountRequest",
        "SubscribeIsAssociatedWithAccountRequest",
        " lambda in SubscribeIsAssociatedWithAccountRequest",
        "Not connected, queuing Attach call to Server:  lambda in "
        "SubscribeIsAssociatedWithAccountRequest",
        DPrint::Info,
        nullptr,
        true,
        "Attaching to AcceptIsAssociatedWithAccountSubscribe",
        DPrint::Flow,
        false,
        nullptr,
        DPrint::Flow,
        nullptr,
        AckLines::None,
        DPrint::Flow};

    static constexpr ErrorRow kGvaErrors[] = {
        {VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR, &C::HandleGVACreateError,
         "Attaching to HandleGVACreateError"},
        {VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE_ERROR, &C::HandleGVADeleteError,
         "Attaching to HandleGVADeleteError"},
        {VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_ERROR, &C::HandleGVAUpdateError,
         "Attaching to HandleGVAUpdateError"},
    };

    // Calls `f` with each subscription row.
    template <class F>
    static void ForEachSubscription(F&& f) {
        f(kPresetsSubscription);
        f(kSourcesSubscription);
        f(kPersonsSubscription);
        f(kVoiceAccountsSubscription);
        f(kProductSettingsSubscription);
        f(kAssociationSubscription);
        f(kMspHostAccountsSubscription);
        f(kGroupsSubscription);
    }
};
