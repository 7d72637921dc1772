#pragma once
// What each query and subscription logs, and under which function names. These texts,
// irregular as they look (capitals, slips, blanks at either end, a line naming another
// operation), are part of the library's contract and asserted verbatim by the tests: keep
// them exactly as they are.
#include "client/internal/ResourceRows.h"

namespace Vellmark::Client::ResourceTexts {

inline constexpr QueryTexts kSourcesQuery =
    QueryTexts()
        .Operation("GetSources", "GetSources")
        .Posted("lambda in GetSources")
        .Queued("Not connected, queuing Attach call to AcceptSourcesAPI")
        .Sending("connected, Attaching request to AcceptSourcesAPI")
        .Reply("AcceptSourcesAPI", "AcceptSourcesAPI");

inline constexpr QueryTexts kVoiceAccountsQuery =
    QueryTexts()
        .Operation("GetVoiceAccounts", "GetVoiceAccounts")
        .Queued("Not connected, queuing Attach call to AcceptVoiceAccountsAPI")
        .Sending("connected, Attaching request to AcceptVoiceAccountsAPI")
        .Reply("AcceptVoiceAccountsAPI",
               "AcceptVoiceAccountsAPI. Printing received Voice Accounts");

inline constexpr QueryTexts kMspHostAccountsQuery =
    QueryTexts()
        .Operation("GetMspHostAccounts", "GetMspHostAccounts")
        .Queued("Not connected, queuing Attach call to GetMspHostAccounts")
        .Sending("connected, Attaching request to GetMspHostAccounts")
        .Reply("AcceptMspHostAccountsAPI",
               "AcceptMspHostAccountsAPI. Printing received MspHost Accounts. Cb.empty=")
        .ReplyTellsIfEmpty();

inline constexpr QueryTexts kProductSettingsQuery =
    QueryTexts()
        .Operation("GetProductSettings", "GetProductSettings")
        .Posted("lambda in GetProductSettings")
        .Queued("Not connected, queuing Attach call to AcceptProductSettingsAPI")
        .Sending("connected, Attaching request to AcceptProductSettingsAPI")
        .Reply("AcceptProductSettingsAPI", "AcceptProductSettingsAPI");

inline constexpr QueryTexts kPersonsQuery =
    QueryTexts()
        .Operation("GetPersonsInfo", "GetPersonsInfo")
        .Posted("lambda function in GetPersonInfo")
        .Queued("Not connected, queuing Attach call to AcceptPersonsInfoAPI")
        .Sending("connected, Attaching request to AcceptPersonsInfoAPI")
        .Reply("AcceptPersonsInfoAPI", "AcceptPersonsInfoAPI - persons info: ");

// Says nothing but its queuing line before the request goes out.
inline constexpr QueryTexts kGroupsQuery =
    QueryTexts()
        .Operation("GetGroups")
        .Queued("Not connected, queuing Attach call to GetGroups")
        .Reply("AcceptVellmarkGroupsAPI", "AcceptVellmarkGroupsAPI. Printing received Groups");

inline constexpr QueryTexts kPresetsQuery =
    QueryTexts()
        .Operation("GetPresets", "GetPresets")
        .Queued("Not connected, queuing Attach call to AcceptPresetsAPI")
        .Sending("connected, Attaching request to AcceptPresetsAPI")
        .Reply("AcceptPresetsAPI", "AcceptPresetsAPI");

inline constexpr char kQueuedToServer[] = "Not connected, queuing Attach call to Server: ";

inline constexpr SubscriptionTexts kSourcesSubscription =
    SubscriptionTexts()
        .Operation("SubscribeSourcesRequest", "SubscribeSourcesRequest")
        .Posted("lambda in void SubscribeSourcesRequest")
        .Queued(kQueuedToServer)
        .Replay("Attaching to AcceptSourcesSubscribe")
        .Update("AcceptSourcesSubscribe", "AcceptSourcesSubscribe. Printing received sources ")
        .Acknowledgement(AckLines::AnnouncedThenSent);

inline constexpr SubscriptionTexts kVoiceAccountsSubscription =
    SubscriptionTexts()
        .Operation("SubscribeVoiceAccountsRequest")
        .Queued("Not connected, queuing Attach call to AcceptVoiceAccountsSubscribe")
        .Attaching("connected, Attach request to AcceptVoiceAccountsSubscribe")
        .Replay("Attaching to AcceptVoiceAccountsSubscribe")
        .Update("AcceptVoiceAccountsSubscribe",
                "AcceptVoiceAccountsSubscribe. Printing received Voice Accounts")
        .Acknowledgement(AckLines::SentToServer);

// Never replayed, so it has no replay line.
inline constexpr SubscriptionTexts kMspHostAccountsSubscription =
    SubscriptionTexts()
        .Operation("SubscribeMspHostAccountsRequest")
        .Queued("Not connected, queuing Attach call to AcceptMspHostAccountsSubscribe")
        .Attaching("connected, Attach request to AcceptMspHostAccountsSubscribe")
        .Update("AcceptMspHostAccountsSubscribe",
                "AcceptMspHostAccountsSubscribe. Printing received MspHost Accounts")
        .Acknowledgement(AckLines::SentToServer);

// The queuing line carries the posted line after it, on the same line.
inline constexpr SubscriptionTexts kProductSettingsSubscription =
    SubscriptionTexts()
        .Operation("SubscribeProductSettingsRequest", "SubscribeProductSettingsRequest")
        .Posted(" lambda in SubscribeProductSettingsRequest")
        .Queued(
            "Not connected, queuing Attach call to Server:  lambda in "
            "SubscribeProductSettingsRequest")
        .Replay("Attaching to AcceptProductSettingsSubscribe")
        .Update("AcceptProductSettingsSubscribe", "AcceptProductSettingsSubscribe")
        .Acknowledgement(AckLines::SentToServer);

inline constexpr SubscriptionTexts kPersonsSubscription =
    SubscriptionTexts()
        .Operation("SubscribePersonsInfoRequest", "SubscribePersonsInfoRequest")
        .Posted("lambda in SubscribePersonsInfoRequest")
        .Queued("Not connected, queuing Attach call to AcceptPersonsInfoSubscribe")
        .Attaching("connected, Attach request to AcceptPersonsInfoSubscribe")
        .Replay("Attaching to AcceptPersonsInfoSubscribe")
        .Update("AcceptPersonsInfoSubscribe", "AcceptPersonsInfoSubscribe", DPrint::Info)
        .Acknowledgement(AckLines::SentToServer);

// Announces its registration with the host-account text.
inline constexpr SubscriptionTexts kGroupsSubscription =
    SubscriptionTexts()
        .Operation("SubscribeGroupsRequest")
        .Queued("Not connected, queuing Attach call to AcceptGroupsSubscribe")
        .Attaching("connected, Attach request to AcceptMspHostAccountsSubscribe")
        .Replay("Attaching to SubscribeGroupsRequest", DPrint::Info)
        .Update("AcceptGroupsSubscribe", "AcceptGroupsSubscribe. Printing received Groups")
        .Acknowledgement(AckLines::SentToServer);

inline constexpr SubscriptionTexts kPresetsSubscription =
    SubscriptionTexts()
        .Operation("SubscribePresetsRequest")
        .Queued("Not connected, queuing Attach call to AcceptPresetsSubscribe")
        .Attaching("connected, Attach request to AcceptPresetsSubscribe")
        .Replay("Attaching to AcceptPresetsSubscribe")
        .Update("AcceptPresetsSubscribe", "AcceptPresetsSubscribe", DPrint::Detail)
        .Acknowledgement(AckLines::AnnouncedThenSent, DPrint::Detail);

// The queuing line carries the posted line after it; updates are not logged.
inline constexpr SubscriptionTexts kAssociationSubscription =
    SubscriptionTexts()
        .Operation("SubscribeIsAssociatedWithAccountRequest",
                   "SubscribeIsAssociatedWithAccountRequest")
        .Posted(" lambda in SubscribeIsAssociatedWithAccountRequest")
        .Queued(
            "Not connected, queuing Attach call to Server:  lambda in "
            "SubscribeIsAssociatedWithAccountRequest",
            DPrint::Info)
        .Replay("Attaching to AcceptIsAssociatedWithAccountSubscribe")
        .Update("AcceptIsAssociatedWithAccountSubscribe");

}  // namespace Vellmark::Client::ResourceTexts
