#pragma once
// The client's resources, one row each: what a query or a subscription of that resource
// sends under which identifier, where it keeps the caller's callback, which handler takes
// its replies or updates and how it dumps them; its texts stand in internal/ResourceTexts.h.
// Query, Subscribe, the replay of subscriptions in Connected and the reply and update
// handlers read the rows, so each operation's own particulars stand here and nowhere else.
#include "client/VellmarkClientAPI.h"
#include "client/VellmarkClientLog.h"
#include "client/internal/ResourceRows.h"
#include "client/internal/ResourceTexts.h"

struct VellmarkClientAPI::Resources {
    using C = VellmarkClientAPI;

    // The dumps of replies and updates.
    static void DumpSources(C& client, VellmarkPB::sources const& message) {
        client.PrintSourcesProtobuf(message, kDumpLevel);
    }
    static void DumpGroups(C& client, VellmarkPB::VellmarkGroups const& message) {
        client.PrintGroupsProtobuf(message, kDumpLevel);
    }
    static void DumpProductSettings(C& client, VellmarkPB::ProductSettings const& message) {
        // The dump takes its own copy: made only when the dump's heading is logged.
        if (VellmarkClientLog().IsLog(DPrint::Flow)) client.PrintProductSettingsProtobuff(message);
    }
    static void DumpPersons(C& client, VellmarkPB::persons const& message) {
        client.PrintPersonsInfoProtobuff(message);
    }
    static void DumpPresets(C& client, VellmarkPB::VellmarkPresets const& message) {
        client.PrintPresets(message);
    }

    static constexpr auto kSourcesQuery =
        QueryRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES)
            .Slot(&C::m_getSourcesCallback)
            .Handler(&C::AcceptSourcesAPI)
            .Dump(&DumpSources)
            .Texts(Vellmark::Client::ResourceTexts::kSourcesQuery);
    static constexpr auto kVoiceAccountsQuery =
        QueryRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS)
            .Slot(&C::m_getVoiceAccountsCallback)
            .Handler(&C::AcceptVoiceAccountsAPI)
            .Dump(&DumpSources)
            .Texts(Vellmark::Client::ResourceTexts::kVoiceAccountsQuery);
    static constexpr auto kMspHostAccountsQuery =
        QueryRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS)
            .Slot(&C::m_getMspHostAccountsCallback)
            .Handler(&C::AcceptMspHostAccountsAPI)
            .Dump(&DumpSources)
            .Texts(Vellmark::Client::ResourceTexts::kMspHostAccountsQuery);
    static constexpr auto kProductSettingsQuery =
        QueryRow<VellmarkPB::ProductSettings>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS)
            .Slot(&C::m_getProductSettingsCallback)
            .Handler(&C::AcceptProductSettingsAPI)
            .Dump(&DumpProductSettings)
            .Texts(Vellmark::Client::ResourceTexts::kProductSettingsQuery);
    static constexpr auto kPersonsQuery =
        QueryRow<VellmarkPB::persons>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS)
            .Slot(&C::m_getPersonsInfoCallback)
            .Handler(&C::AcceptPersonsInfoAPI)
            .Dump(&DumpPersons)
            .Texts(Vellmark::Client::ResourceTexts::kPersonsQuery);
    static constexpr auto kGroupsQuery = QueryRow<VellmarkPB::VellmarkGroups>()
                                             .Id(VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS)
                                             .Slot(&C::m_getGroupsCallback)
                                             .Handler(&C::AcceptVellmarkGroupsAPI)
                                             .Dump(&DumpGroups)
                                             .Texts(Vellmark::Client::ResourceTexts::kGroupsQuery);
    static constexpr auto kPresetsQuery =
        QueryRow<VellmarkPB::VellmarkPresets>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GET_PRESETS)
            .Slot(&C::m_getPresetsCallback)
            .Handler(&C::AcceptPresetsAPI)
            .Dump(&DumpPresets)
            .Texts(Vellmark::Client::ResourceTexts::kPresetsQuery);

    static constexpr auto kSourcesSubscription =
        SubscriptionRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE)
            .Slot(&C::m_sourcesSubscriber)
            .Handler(&C::AcceptSourcesSubscribe)
            .Dump(&DumpSources)
            .Texts(Vellmark::Client::ResourceTexts::kSourcesSubscription);
    static constexpr auto kVoiceAccountsSubscription =
        SubscriptionRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE)
            .Slot(&C::m_voiceAccountsSubscriber)
            .Handler(&C::AcceptVoiceAccountsSubscribe)
            .Dump(&DumpSources)
            .Texts(Vellmark::Client::ResourceTexts::kVoiceAccountsSubscription);
    // A host-account subscription made while disconnected is never attached.
    static constexpr auto kMspHostAccountsSubscription =
        SubscriptionRow<VellmarkPB::sources>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE)
            .Slot(&C::m_mspHostAccountsSubscriber)
            .Handler(&C::AcceptMspHostAccountsSubscribe)
            .Dump(&DumpSources)
            .NotReplayed()
            .Texts(Vellmark::Client::ResourceTexts::kMspHostAccountsSubscription);
    static constexpr auto kProductSettingsSubscription =
        SubscriptionRow<VellmarkPB::ProductSettings>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE)
            .Slot(&C::m_productSettingsSubscriber)
            .Handler(&C::AcceptProductSettingsSubscribe)
            .Dump(&DumpProductSettings)
            .Texts(Vellmark::Client::ResourceTexts::kProductSettingsSubscription);
    static constexpr auto kPersonsSubscription =
        SubscriptionRow<VellmarkPB::persons>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_PERSONS_UPDATE)
            .Slot(&C::m_personsInfoSubscriber)
            .Handler(&C::AcceptPersonsInfoSubscribe)
            .Dump(&DumpPersons)
            .Texts(Vellmark::Client::ResourceTexts::kPersonsSubscription);
    // Asks for the current groups once its replay has attached it.
    static constexpr auto kGroupsSubscription =
        SubscriptionRow<VellmarkPB::VellmarkGroups>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_GROUPS_UPDATE)
            .Slot(&C::m_groupsSubscriber)
            .Handler(&C::AcceptGroupsSubscribe)
            .Dump(&DumpGroups)
            .AsksCurrentValueWhenReplayed()
            .Texts(Vellmark::Client::ResourceTexts::kGroupsSubscription);
    static constexpr auto kPresetsSubscription =
        SubscriptionRow<VellmarkPB::VellmarkPresets>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_PRESETS_UPDATE)
            .Slot(&C::m_presetsSubscriber)
            .Handler(&C::AcceptPresetsSubscribe)
            .Dump(&DumpPresets)
            .Texts(Vellmark::Client::ResourceTexts::kPresetsSubscription);
    // The association's updates are neither dumped nor acknowledged.
    static constexpr auto kAssociationSubscription =
        SubscriptionRow<VellmarkPB::AccountAssociated>()
            .Id(VellmarkPB::VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE)
            .Slot(&C::m_isAssociatedSubscriber)
            .Handler(&C::AcceptIsAssociatedWithAccountSubscribe)
            .Unacknowledged()
            .Texts(Vellmark::Client::ResourceTexts::kAssociationSubscription);

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
