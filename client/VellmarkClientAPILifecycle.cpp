// Construction, connection, disconnection and the standing notification attachments.
// The log texts here, and the version text, are part of the library's contract and
// asserted verbatim by the tests, irregular as some of them look.
#include <chrono>

#include "client/VellmarkClientAPI.h"
#include "client/internal/LogLine.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCMessageRouterFactory.h"
#include "platform/task/BreakThread.h"

namespace {

// The version text logged at construction is a fixed text of the library's contract (the
// tests assert it verbatim), not a commit of this repository; the programs print the
// build's own version instead.
char const kVersion[] = "v3.1.6-0-g14567ae-dirty";
char const kListenerName[] = "VellmarkClientAPIListener";
char const kServiceName[] = "Vellmark";
char const kRouterName[] = "VellmarkClientAPI";
constexpr std::chrono::milliseconds kListenerPeriod(100);

}  // namespace

VellmarkClientAPI::VellmarkClientAPI(NotifyTargetTaskIF* task)
    : m_task(task), m_listener(IL::CreateClientListener(kListenerName, kListenerPeriod)) {
    VellmarkClientLog().Log(DPrint::Info, "Version: %s", kVersion);
    Initialize();
}

VellmarkClientAPI::~VellmarkClientAPI() {
    // From here on, work still queued on the task or fired by the router does nothing.
    m_lifetime->Close();
}

bool VellmarkClientAPI::IsConnected() {
    return m_connected.load(std::memory_order_relaxed);
}

void VellmarkClientAPI::Post(std::function<void()> function) const {
    IL::BreakThread(std::function<void()>(Guarded(std::move(function))), m_task);
}

void VellmarkClientAPI::Initialize() {
    LogLine(DPrint::Flow, "Initialize", "Initialize");
    using Socket = std::shared_ptr<Network::ConnectorSocket>;
    auto onConnected = OnTask<Socket>([this](Socket const& socket) { Connected(socket); });
    auto endpoint = IPCDirectory::Get().Lookup(kServiceName);
    // The callback itself, not a wrapper: the listener sees which task it delivers to and,
    // when that task serves an event loop, makes its attempts there with no thread of its own.
    m_listener->Listen(endpoint, onConnected);
}

void VellmarkClientAPI::Connected(std::shared_ptr<Network::ConnectorSocket> socket) {
    LogLine(DPrint::Flow, "Connected", "Connected callback - Connected");
    m_router = IPCMessageRouterFactory::CreateRouter(kRouterName, m_task, socket);
    // Queued before the router is tested: a failed attempt leaves them for the next one.
    for (int id : {VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE_ERROR,
                   VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE_ERROR,
                   VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_ERROR}) {
        m_pendingAttachIds.push_back(id);
    }
    if (!m_router) {
        LogLine(DPrint::Flow, "Connected", "failed to create valid m_router");
        return;  // no router to hear of a disconnection
    }
    m_connected.store(true, std::memory_order_relaxed);
    LogLine(DPrint::Flow, "Connected", "Valid m_router ", "Connected");

    std::vector<int> pending;
    pending.swap(m_pendingAttachIds);
    for (int id : pending) AttachToIPCServer(id);

    std::list<std::function<void()>> deferred;
    deferred.swap(m_deferredCalls);
    for (auto const& call : deferred) Replay(call);

    auto onDisconnect = OnTask<void>([this] { HandleDisconnect(); });
    m_router->SetDisconnectHandler(socket, [onDisconnect] { onDisconnect(); });
    NotifyConnectionObservers();
}

void VellmarkClientAPI::HandleDisconnect() {
    LogLine(DPrint::Flow, "HandleDisconnect", "Received disconnect event. Disconnecting...");
    if (!m_router) return;
    m_router->Stop();
    m_router.reset();
    NotifyDisconnectionObservers();
}
