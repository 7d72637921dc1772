#pragma once
// VellmarkClientAPI: the client of the Vellmark service (see VellmarkClientAPIIF for the
// contract of each operation).
//
// Construct it on any thread with the task that is to run its callbacks; it starts
// connecting at once to the service endpoint "Vellmark" and reconnects whenever the
// connection comes back. Everything but the argument copying of the public operations runs
// on that task, which is why the members need no lock.
//
// Ownership: the caller owns the client and the task, and the task must outlive the
// client. The client owns its listener, router, queues and callbacks. Destroying it ends
// the connection and drops queued work without running it; work already posted to the
// task for it does nothing once it is gone. Destroy it on any thread, but not from inside
// one of its own callbacks.
#include <array>
#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkMessageId.pb.h"
#include "client/VellmarkClientAPIIF.h"
#include "framework/AsyncCallback.h"
#include "framework/ipc/IPCMessageRouterIF.h"
#include "framework/task/NotifyTargetTaskIF.h"
#include "platform/ipc/ClientListener.h"
#include "platform/task/LifetimeGuard.h"

class VELLMARK_CLIENT_EXPORT VellmarkClientAPI : public VellmarkClientAPIIF {
public:
    // `task` receives every callback; it is not owned. Logs the library version.
    explicit VellmarkClientAPI(NotifyTargetTaskIF* task);
    ~VellmarkClientAPI() override;
    VellmarkClientAPI(VellmarkClientAPI const&) = delete;
    VellmarkClientAPI& operator=(VellmarkClientAPI const&) = delete;

    void SubscribeSourcesRequest(std::string const& unused,
                                 Callback<VellmarkPB::sources> const& callback) override;
    void SubscribeProductSettingsRequest(
        std::string const& unused, Callback<VellmarkPB::ProductSettings> const& callback) override;
    void SubscribePersonsInfoRequest(std::string const& unused,
                                     Callback<VellmarkPB::persons> const& callback) override;
    void SubscribeVoiceAccountsRequest(Callback<VellmarkPB::sources> const& callback) override;
    void SubscribeIsAssociatedWithAccountRequest(
        Callback<VellmarkPB::AccountAssociated> const& callback) override;
    void SubscribeMspHostAccountsRequest(Callback<VellmarkPB::sources> const& callback) override;
    void SubscribeGroupsRequest(Callback<VellmarkPB::VellmarkGroups> const& callback) override;
    void GetSources(Callback<VellmarkPB::sources> const& callback) override;
    void GetProductSettings(Callback<VellmarkPB::ProductSettings> const& callback) override;
    void GetPersonsInfo(Callback<VellmarkPB::persons> const& callback) override;
    void GetVoiceAccounts(Callback<VellmarkPB::sources> const& callback) override;
    void GetMspHostAccounts(Callback<VellmarkPB::sources> const& callback) override;
    void GetGroups(Callback<VellmarkPB::VellmarkGroups> const& callback) override;
    void PrintSourcesProtobuf(VellmarkPB::sources const& sources,
                              DPrint::Level const& level) override;
    void PrintGroupsProtobuf(VellmarkPB::VellmarkGroups const& groups,
                             DPrint::Level const& level) override;
    VellmarkPB::serviceAccounts RedactSensitiveFieldsSA(
        VellmarkPB::serviceAccounts const& account) override;
    void SubscribePresetsRequest(std::string const& unused,
                                 Callback<VellmarkPB::VellmarkPresets> const& callback) override;
    void GetPresets(Callback<VellmarkPB::VellmarkPresets> const& callback) override;
    void StorePresets(VellmarkPB::VellmarkPresets const& presets,
                      Callback<VellmarkPB::VellmarkPresets> const& onStored) override;
    void CreateGVAAccount(std::string const& tarvPersonID, std::string const& providerAccountID,
                          std::string const& assistantDeviceId,
                          Callback<VellmarkPB::serviceAccounts> const& onCreated,
                          Callback<VellmarkPB::Error> const& onError) override;
    void DeleteGVAAccount(std::string const& accountID,
                          Callback<VellmarkPB::VellmarkDeleteGVA> const& onDeleted,
                          Callback<VellmarkPB::Error> const& onError) override;
    void UpdateGVAAssistantDeviceId(std::string const& assistantDeviceId,
                                    Callback<VellmarkPB::serviceAccounts> const& onUpdated,
                                    Callback<VellmarkPB::Error> const& onError) override;
    void CreateServiceAccount(VellmarkPB::serviceAccounts const& account,
                              Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                              Callback<VellmarkPB::Error> const& onError) override;
    void DeleteServiceAccount(std::string const& accountID,
                              Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
                              Callback<VellmarkPB::Error> const& onError) override;
    void UpdateServiceAccount(VellmarkPB::serviceAccounts const& account,
                              Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                              Callback<VellmarkPB::Error> const& onError) override;
    bool IsConnected() override;

    // Not part of VellmarkClientAPIIF: an addition of this library's own. Calls
    // `onConnected` on the client's task once the client is connected (soon after this
    // call, if it is already) and again after every reconnection, each time once the new
    // connection is ready: the GVA error handlers are attached and the calls queued
    // meanwhile are on their way. A reconnection does not attach the subscriptions of an
    // earlier connection again; this is where to make them again. May be called from any
    // thread. Disconnecting the returned handle ends the registration; a call already on its
    // way to the task is then dropped.
    CallbackConnection AddConnectionObserver(std::function<void()> onConnected);
    // Not part of VellmarkClientAPIIF either. Calls `onDisconnected` on the client's task
    // each time a connection ends, once the client has let it go: a request that was on its
    // way on that connection will not be answered, and what is called from now on waits for
    // the next connection. May be called from any thread; disconnecting the returned handle
    // ends the registration, a call on its way included.
    CallbackConnection AddDisconnectionObserver(std::function<void()> onDisconnected);

private:
    friend class VellmarkClientAPITestPeer;  // unit tests reach the private dumps

    // Lifecycle (VellmarkClientAPILifecycle.cpp).
    void Initialize();
    void Connected(std::shared_ptr<Network::ConnectorSocket> socket);
    void HandleDisconnect();
    void AttachToIPCServer(int messageId);

    // Deferral (DeferredCalls.cpp): runs `send` now if there is a router, else logs
    // `queueLine` under "operator()" and keeps `send` for the next connection.
    void SendOrDefer(DPrint::Level level, char const* queueLine, std::function<void()> send);
    // Posts a deferred call to the task; it queues itself again if the router is gone by
    // the time it runs.
    void Replay(std::function<void()> const& call);

    // The first half of every query and subscription (StoreOnTask.h): logs `entry` under
    // `function` on the caller's thread, then on the task logs `posted`, stores `callback`
    // in `slot` and runs `then`. Null texts are not logged.
    template <class T, class Then>
    void StoreOnTask(char const* function, char const* entry, char const* posted,
                     Callback<T> const& callback, Callback<T> VellmarkClientAPI::*slot, Then then);

    // The resources, one row each (internal/Resources.h, shaped in internal/ResourceRows.h),
    // and the code that reads them.
    template <class T>
    struct QueryRow;
    template <class T>
    struct SubscriptionRow;
    struct ErrorRow;
    struct Resources;

    // Queries (Queries.cpp): the operation, and the handling of its reply.
    template <class T>
    void Query(QueryRow<T> const& row, Callback<T> const& callback);
    template <class T>
    void AcceptReply(QueryRow<T> const& row, T const& message);
    void AcceptSourcesAPI(VellmarkPB::sources const& message);
    void AcceptVoiceAccountsAPI(VellmarkPB::sources const& message);
    void AcceptMspHostAccountsAPI(VellmarkPB::sources const& message);
    void AcceptProductSettingsAPI(VellmarkPB::ProductSettings const& message);
    void AcceptPersonsInfoAPI(VellmarkPB::persons const& message);
    void AcceptVellmarkGroupsAPI(VellmarkPB::VellmarkGroups const& message);
    void AcceptPresetsAPI(VellmarkPB::VellmarkPresets const& message);

    // Subscriptions (Subscriptions.cpp): the operation, its replay when it was made while
    // disconnected, and the handling of an update.
    template <class T>
    void Subscribe(SubscriptionRow<T> const& row, Callback<T> const& callback);
    template <class T>
    void AttachQueued(SubscriptionRow<T> const& row);
    template <class T>
    void AcceptUpdate(SubscriptionRow<T> const& row, T const& update);
    void AcceptSourcesSubscribe(VellmarkPB::sources const& update);
    void AcceptVoiceAccountsSubscribe(VellmarkPB::sources const& update);
    void AcceptMspHostAccountsSubscribe(VellmarkPB::sources const& update);
    void AcceptProductSettingsSubscribe(VellmarkPB::ProductSettings const& update);
    void AcceptPersonsInfoSubscribe(VellmarkPB::persons const& update);
    void AcceptGroupsSubscribe(VellmarkPB::VellmarkGroups const& update);
    void AcceptPresetsSubscribe(VellmarkPB::VellmarkPresets const& update);
    void AcceptIsAssociatedWithAccountSubscribe(VellmarkPB::AccountAssociated const& update);
    // Tells the service that the update received under `id` was taken in.
    void SendCloudSyncReceived(VellmarkPB::MessageId id);

    // Presets (Presets.cpp).
    void PresetsStored(VellmarkPB::VellmarkPresets const& presets);

    // Account operations (internal/AccountOperation.h): the skeleton the service-account
    // (ServiceAccounts.cpp) and GVA (GvaAccounts.cpp) operations share.
    struct AccountOperation;
    template <class Request, class Reply>
    void SendAccountOperation(AccountOperation const& operation, Request const& request,
                              std::function<void(Reply const&)> const& onReply,
                              std::function<void()> const& onTask = nullptr);
    // Create and update: the same but for their texts and identifier.
    void ChangeServiceAccount(char const* function, AccountOperation const& operation,
                              VellmarkPB::serviceAccounts const& account,
                              Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                              Callback<VellmarkPB::Error> const& onError);
    void HandleCreateOrUpdateResponse(VellmarkPB::VellmarkAcctOpEnvelope const& reply,
                                      Callback<VellmarkPB::serviceAccounts> const& onSuccess,
                                      Callback<VellmarkPB::Error> const& onError);
    void HandleDeleteResponse(VellmarkPB::VellmarkAcctOpEnvelope const& reply,
                              Callback<VellmarkPB::VellmarkDeleteSrvcAccount> const& onSuccess,
                              Callback<VellmarkPB::Error> const& onError);
    template <class T>
    void DeliverAccountReply(char const* function, VellmarkPB::VellmarkAcctOpEnvelope const& reply,
                             T const& result, std::string const& accountID,
                             Callback<T> const& onSuccess,
                             Callback<VellmarkPB::Error> const& onError);

    // GVA accounts (GvaAccounts.cpp).
    void GVACreated(VellmarkPB::serviceAccounts const& account);
    void GVADeleted(VellmarkPB::VellmarkDeleteGVA const& result);
    void GVAAssistantDeviceIdUpdated(VellmarkPB::serviceAccounts const& account);
    template <class T>
    void DeliverGVAReply(DPrint::Level level, char const* function, Callback<T> const& slot,
                         void (VellmarkClientAPI::*dump)(T const&), T const& reply);
    void HandleGVACreateError(VellmarkPB::Error const& error);
    void HandleGVADeleteError(VellmarkPB::Error const& error);
    void HandleGVAUpdateError(VellmarkPB::Error const& error);
    void HandleGVAError(char const* function, Callback<VellmarkPB::Error> const& slot,
                        VellmarkPB::Error const& error);
    void PrintDeleteResponse(VellmarkPB::VellmarkDeleteGVA const& result);
    void PrintDeleteResponse(VellmarkPB::VellmarkDeleteSrvcAccount const& result);

    // Connection observers (ConnectionObservers.cpp): post each live one to the task.
    void NotifyConnectionObservers();
    void NotifyDisconnectionObservers();

    // Errors (Errors.cpp).
    void CreateErrorMsg(VellmarkPB::Error& error, VellmarkPB::Code code);
    void PrintErrorMessage(VellmarkPB::Error const& error);
    // Reports input the library refuses: calls `onError`, if set, on the caller's thread
    // with the error CreateErrorMsg builds for `code`.
    void RefuseInput(VellmarkPB::Code code, Callback<VellmarkPB::Error> const& onError);

    // Dumps (diagnostics/).
    void PrintProductSettingsProtobuff(VellmarkPB::ProductSettings settings);
    void PrintServiceAccountResponse(VellmarkPB::serviceAccounts const& account);
    void PrintPersonsInfoProtobuff(VellmarkPB::persons const& persons);
    void PrintPresets(VellmarkPB::VellmarkPresets const& presets);

    // Wraps `function` so that it does nothing once this client is destroyed; every
    // function handed to the task, the router or the listener goes through it, since those
    // may call it after the client is gone.
    template <class Function>
    auto Guarded(Function function) const {
        return [guard = m_lifetime, function = std::move(function)](auto const&... args) {
            guard->Run([&] { function(args...); });
        };
    }
    // Runs `function` later on the task, unless the client is gone by then.
    void Post(std::function<void()> function) const;
    // An AsyncCallback that runs `function` on the task, unless the client is gone by then.
    template <class T, class Function>
    AsyncCallback<T> OnTask(Function function) {
        return AsyncCallback<T>(Guarded(std::move(function)), m_task);
    }
    // An AsyncCallback that runs `handler` on this client, on the task.
    template <class T>
    AsyncCallback<T> OnTask(void (VellmarkClientAPI::*handler)(T const&)) {
        return OnTask<T>([this, handler](T const& message) { (this->*handler)(message); });
    }
    // Registers `handler` for every notification under `id` on the current router.
    template <class T>
    void AttachHandler(int id, void (VellmarkClientAPI::*handler)(T const&)) {
        m_router->Attach(static_cast<unsigned int>(id), OnTask(handler));
    }

    NotifyTargetTaskIF* m_task;
    std::vector<int> m_pendingAttachIds;
    std::list<std::function<void()>> m_deferredCalls;
    std::shared_ptr<IPCMessageRouterIF> m_router;
    // Held for the framework and never set here; kept for the object's layout: the class is
    // exported, and programs built against it rely on its size and on where the members
    // after this one lie.
    std::shared_ptr<void> m_frameworkHandle;
    std::shared_ptr<IL::ClientListenerIF> m_listener;

    Callback<VellmarkPB::sources> m_sourcesSubscriber;
    Callback<VellmarkPB::ProductSettings> m_productSettingsSubscriber;
    Callback<VellmarkPB::persons> m_personsInfoSubscriber;
    Callback<VellmarkPB::sources> m_getSourcesCallback;
    Callback<VellmarkPB::ProductSettings> m_getProductSettingsCallback;
    Callback<VellmarkPB::persons> m_getPersonsInfoCallback;
    Callback<VellmarkPB::sources> m_getVoiceAccountsCallback;
    Callback<VellmarkPB::sources> m_voiceAccountsSubscriber;
    Callback<VellmarkPB::AccountAssociated> m_isAssociatedSubscriber;
    Callback<VellmarkPB::VellmarkPresets> m_presetsSubscriber;
    Callback<VellmarkPB::VellmarkPresets> m_getPresetsCallback;
    Callback<VellmarkPB::VellmarkPresets> m_storePresetsCallback;
    Callback<VellmarkPB::serviceAccounts> m_gvaCreatedCallback;
    Callback<VellmarkPB::VellmarkDeleteGVA> m_gvaDeletedCallback;
    Callback<VellmarkPB::serviceAccounts> m_gvaUpdatedCallback;
    Callback<VellmarkPB::Error> m_gvaCreateErrorCallback;
    Callback<VellmarkPB::Error> m_gvaDeleteErrorCallback;
    Callback<VellmarkPB::Error> m_gvaUpdateErrorCallback;
    // Kept empty, for the object's layout: the slots after them stay where programs built
    // against this exported class expect them.
    std::array<Callback<google::protobuf::Message>, 6> m_spareSlots;
    Callback<VellmarkPB::sources> m_getMspHostAccountsCallback;
    Callback<VellmarkPB::sources> m_mspHostAccountsSubscriber;
    Callback<VellmarkPB::VellmarkGroups> m_getGroupsCallback;
    Callback<VellmarkPB::VellmarkGroups> m_groupsSubscriber;

    // The level at which the reply and update handlers dump sources and groups.
    static constexpr DPrint::Level kDumpLevel = DPrint::Detail;

    // Set once, by the first good connection, and never cleared. Atomic so that
    // IsConnected() may read it from any thread without a data race.
    std::atomic<bool> m_connected{false};
    // Those who asked to hear of each connection, or of each end of one, touched on the task
    // only; each one's flag turns false when its handle is disconnected.
    struct ConnectionObserver {
        std::function<void()> notify;
        std::shared_ptr<std::atomic<bool>> live;
    };
    std::vector<ConnectionObserver> m_connectionObservers;
    std::vector<ConnectionObserver> m_disconnectionObservers;
    // Closed first thing in the destructor; see Guarded.
    std::shared_ptr<Tarv::LifetimeGuard> m_lifetime = Tarv::LifetimeGuard::Create();
};
