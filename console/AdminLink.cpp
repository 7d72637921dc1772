#include "console/AdminLink.h"

#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCDirectory.h"
#include "tools/Command.h"

namespace Vellmark::Console {

namespace {

using Vellmark::Admin::AdminClient;
using Vellmark::Admin::AdminError;

// How long the watcher waits before it tries again after the service went.
constexpr std::chrono::seconds kRetryPeriod(1);
// The options of vellmarkd that would let this user in, for the probe's messages.
constexpr char kAllowOptions[] = "--admin-allow-user";

}  // namespace

AdminLink::AdminLink(std::chrono::milliseconds bound, OnTraffic onTraffic, OnState onState)
    : m_bound(bound),
      m_onTraffic(std::move(onTraffic)),
      m_onState(std::move(onState)),
      m_path(IPCDirectory::Get().Lookup(Vellmark::Admin::kAdminEndpoint)->Path()) {}

AdminLink::~AdminLink() {
    Stop();
}

std::shared_ptr<AdminClient> AdminLink::Connect(std::chrono::milliseconds bound) {
    Vellmark::Ctl::ServiceProbe probe(m_path, kAllowOptions);
    if (auto const& found = probe.Found())
        throw AdminError(AdminError::Kind::NoAnswer, found->message);
    try {
        auto admin = std::make_shared<AdminClient>(bound);
        probe.Watch([weak = std::weak_ptr<AdminClient>(admin)] {
            if (auto refused = weak.lock()) refused->Close();
        });
        // Anything the service answers proves this user is let in.
        Vellmark::Admin::Request hello;
        hello.set_listacknowledgements(true);
        admin->Call(hello);
        return admin;
    } catch (AdminError const& error) {
        auto const verdict =
            error.kind() == AdminError::Kind::Closed ? probe.AwaitVerdict(bound) : probe.Verdict();
        if (verdict) throw AdminError(AdminError::Kind::Closed, verdict->message);
        throw;
    }
}

std::optional<Vellmark::Ctl::Diagnosis> AdminLink::Probe() {
    Vellmark::Ctl::ServiceProbe probe(m_path, kAllowOptions);
    if (probe.Found()) return probe.Found();
    try {
        Connect(m_bound);
        return std::nullopt;
    } catch (AdminError const& error) {
        Vellmark::Ctl::ServiceProbe again(m_path, kAllowOptions);
        if (again.Found()) return again.Found();
        int const code = error.kind() == AdminError::Kind::Closed ? Vellmark::Ctl::kRefusedByService
                                                                  : Vellmark::Ctl::kNoAnswer;
        return Vellmark::Ctl::Diagnosis{code, error.what()};
    }
}

void AdminLink::Start() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_watcher.joinable()) return;
    m_stopping = false;
    m_watcher = std::thread([this] { Watch(); });
}

void AdminLink::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        if (m_watching) m_watching->Close();
        m_stopped.notify_all();
    }
    if (m_watcher.joinable()) m_watcher.join();
    std::lock_guard<std::mutex> lock(m_commandMutex);
    m_command.reset();
}

bool AdminLink::Stopping() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopping;
}

void AdminLink::Watch() {
    while (!Stopping()) {
        std::string why;
        try {
            auto admin = Connect(m_bound);
            {
                // Stop closes it from now on, so that no wait of it outlasts the console.
                std::lock_guard<std::mutex> lock(m_mutex);
                m_watching = admin;
                if (m_stopping) admin->Close();
            }
            admin->Monitor(m_onTraffic);
            m_onState({true, "watching the traffic through " + m_path, m_lost});
            admin->WaitClosed(std::chrono::milliseconds(0));
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_watching.reset();
            }
            ++m_lost;
            why = "vellmarkd closed the connection at " + m_path +
                  " (it does so when the console reads its frames slower than it sends them)";
        } catch (AdminError const& error) {
            why = error.what();
        }
        if (Stopping()) break;
        m_onState({false, why, m_lost});
        std::unique_lock<std::mutex> lock(m_mutex);
        m_stopped.wait_for(lock, kRetryPeriod, [this] { return m_stopping; });
    }
}

Vellmark::Admin::Reply AdminLink::Call(Vellmark::Admin::Request const& request) {
    std::lock_guard<std::mutex> lock(m_commandMutex);
    // A connection left from a service that has since gone is made again, once.
    for (int attempt = 0;; ++attempt) {
        bool const fresh = !m_command;
        try {
            if (fresh) m_command = Connect(m_bound);
            return m_command->Call(request);
        } catch (AdminError const& error) {
            m_command.reset();
            if (fresh || attempt > 0 || error.kind() != AdminError::Kind::Closed) throw;
        }
    }
}

Vellmark::Admin::Reply AdminLink::CallAlone(Vellmark::Admin::Request const& request,
                                            std::chrono::milliseconds bound) {
    return Connect(bound)->Call(request);
}

}  // namespace Vellmark::Console
