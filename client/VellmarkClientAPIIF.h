#pragma once
// VellmarkClientAPIIF: what a process can ask of the product's Vellmark service, the keeper
// of the device's cloud-account data.
//
// The contract shared by every operation below:
// - It returns at once. Nothing is returned; results, updates and service errors come
//   back through the callbacks given, later, on the task chosen when the client was made
//   (VellmarkClientAPI's constructor). The only callbacks that ever run on the caller's own
//   thread, before the call returns, are the error callbacks of refused input (code 6 with
//   the subcode named at the operation).
// - It may be called from any thread, also before the service is reachable and while it
//   is away: the call is then kept and carried out once a connection exists.
// - Arguments are copied; the caller keeps ownership of what it passed. An empty callback
//   is accepted and never called.
// - Each operation keeps only the latest callback of its kind where it says "replaces":
//   a second call before the first answer redirects the first answer to the second
//   callback. Nothing times out: a missing reply means no callback.
// - Subscriptions last as long as the connection they were made on; after a reconnection
//   subscribe again to keep receiving updates.
#include <string>

#include "Errors.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "client/VellmarkClientExport.h"
#include "framework/Callback.h"
#include "platform/log/DPrint.h"

class VELLMARK_CLIENT_EXPORT VellmarkClientAPIIF {
public:
    virtual ~VellmarkClientAPIIF() = default;

    // Subscriptions: `callback` (replaces the previous one of its kind) receives every
    // update the service pushes from now on, each acknowledged to the service after the
    // callback returns. The string arguments are accepted and unused.
    virtual void SubscribeSourcesRequest(std::string const& unused,
                                         Callback<VellmarkPB::sources> const& callback) = 0;
    virtual void SubscribeProductSettingsRequest(
        std::string const& unused, Callback<VellmarkPB::ProductSettings> const& callback) = 0;
    virtual void SubscribePersonsInfoRequest(std::string const& unused,
                                             Callback<VellmarkPB::persons> const& callback) = 0;
    virtual void SubscribeVoiceAccountsRequest(Callback<VellmarkPB::sources> const& callback) = 0;
    // Updates of the account association are not acknowledged.
    virtual void SubscribeIsAssociatedWithAccountRequest(
        Callback<VellmarkPB::AccountAssociated> const& callback) = 0;
    // A host-account subscription made while disconnected is kept but never attached; call
    // it again once connected.
    virtual void SubscribeMspHostAccountsRequest(Callback<VellmarkPB::sources> const& callback) = 0;
    virtual void SubscribeGroupsRequest(Callback<VellmarkPB::VellmarkGroups> const& callback) = 0;

    // Queries: ask once for the current state; `callback` (replaces the previous one of
    // its kind) receives each answer.
    virtual void GetSources(Callback<VellmarkPB::sources> const& callback) = 0;
    virtual void GetProductSettings(Callback<VellmarkPB::ProductSettings> const& callback) = 0;
    virtual void GetPersonsInfo(Callback<VellmarkPB::persons> const& callback) = 0;
    virtual void GetVoiceAccounts(Callback<VellmarkPB::sources> const& callback) = 0;
    virtual void GetMspHostAccounts(Callback<VellmarkPB::sources> const& callback) = 0;
    virtual void GetGroups(Callback<VellmarkPB::VellmarkGroups> const& callback) = 0;

    // Diagnostics, run at once on the caller's thread, through the library's logger.
    // Writes `sources` field by field; `level` 3 masks the account and person identifiers,
    // 4 prints them in clear, any other value leaves them out.
    virtual void PrintSourcesProtobuf(VellmarkPB::sources const& sources,
                                      DPrint::Level const& level) = 0;
    // Writes `groups` field by field; `level` is ignored.
    virtual void PrintGroupsProtobuf(VellmarkPB::VellmarkGroups const& groups,
                                     DPrint::Level const& level) = 0;
    // A copy of `account` with its identifiers and refresh tokens masked, safe to log.
    virtual VellmarkPB::serviceAccounts RedactSensitiveFieldsSA(
        VellmarkPB::serviceAccounts const& account) = 0;

    virtual void SubscribePresetsRequest(std::string const& unused,
                                         Callback<VellmarkPB::VellmarkPresets> const& callback) = 0;
    virtual void GetPresets(Callback<VellmarkPB::VellmarkPresets> const& callback) = 0;
    // Stores `presets`; `onStored` (replaces the previous one) receives the stored list,
    // after the presets subscriber has.
    virtual void StorePresets(VellmarkPB::VellmarkPresets const& presets,
                              Callback<VellmarkPB::VellmarkPresets> const& onStored) = 0;

    // Voice-assistant (GVA) accounts. Each replaces the previous pair of callbacks of its
    // kind; a failure reported by the service reaches `onError` on the task.
    // Refuses an empty person (subcode 1004) or provider account (1005) on the caller's
    // thread.
    virtual void CreateGVAAccount(std::string const& tarvPersonID,
                                  std::string const& providerAccountID,
                                  std::string const& assistantDeviceId,
                                  Callback<VellmarkPB::serviceAccounts> const& onCreated,
                                  Callback<VellmarkPB::Error> const& onError) = 0;
    // Refuses an empty account id (1005) on the caller's thread.
    virtual void DeleteGVAAccount(std::string const& accountID,
                                  Callback<VellmarkPB::VellmarkDeleteGVA> const& onDeleted,
                                  Callback<VellmarkPB::Error> const& onError) = 0;
    // Refuses an empty device id (1012) on the caller's thread.
    virtual void UpdateGVAAssistantDeviceId(std::string const& assistantDeviceId,
                                            Callback<VellmarkPB::serviceAccounts> const& onUpdated,
                                            Callback<VellmarkPB::Error> const& onError) = 0;

    // Service accounts. The callbacks travel with the request (nothing is replaced); each
    // reply calls exactly one of them.
    virtual void CreateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                      Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                      Callback<VellmarkPB::Error> const& onError) = 0;
    // Refuses an empty account id (1005) on the caller's thread.
    virtual void DeleteServiceAccount(
        std::string const& accountID,
        Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
        Callback<VellmarkPB::Error> const& onError) = 0;
    virtual void UpdateServiceAccount(VellmarkPB::serviceAccounts const& account,
                                      Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                      Callback<VellmarkPB::Error> const& onError) = 0;

    // True once a connection to the service has been made; it stays true after the
    // connection is lost. Any thread.
    virtual bool IsConnected() = 0;
};
