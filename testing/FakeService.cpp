#include "testing/FakeService.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminClient.h"
#include "admin/Json.h"
#include "platform/ipc/IPCDirectory.h"
#include "service/VellmarkService.h"
#include "testing/PrivateFolder.h"

namespace Vellmark::Testing {

namespace {

using namespace std::chrono_literals;

// How long a command to the service may take; only a service that hangs comes near it,
// and builds under sanitizers or an emulator are many times slower than a plain one.
constexpr auto kCommandBound = std::chrono::milliseconds(30s);

Vellmark::Admin::StoreDocument ParseSeed(std::string const& json) {
    Vellmark::Admin::StoreDocument document;
    std::string const problem = Vellmark::Json::Parse(json, document);
    if (!problem.empty()) throw std::invalid_argument("bad store document: " + problem);
    return document;
}

// The folder the environment names, which IPCDirectory uses while none is set in code.
std::string EnvironmentFolder() {
    char const* folder = std::getenv(IPCDirectory::kRuntimeFolderVariable);
    return folder && *folder ? folder : IPCDirectory::kDefaultRuntimeFolder;
}

}  // namespace

// What exists while the service runs; members go in reverse order, the folder last.
struct FakeService::Running {
    PrivateFolder folder{"vellmark-fake-"};
    // What the directory is given back at the end: "" when it followed the environment.
    std::string previousFolder;
    std::unique_ptr<Vellmark::Service::VellmarkService> service;
    std::unique_ptr<Vellmark::Admin::AdminClient> admin;

    ~Running() {
        admin.reset();
        if (service) service->Stop();
        service.reset();
        IPCDirectory::Get().SetRuntimeFolder(previousFolder);
    }

    // Runs `request` on the service; returns its JSON result.
    std::string Command(Vellmark::Admin::Request const& request) {
        Vellmark::Admin::Reply reply;
        try {
            reply = admin->Call(request);
        } catch (Vellmark::Admin::AdminError const& error) {
            throw std::runtime_error(std::string("the fake Vellmark service: ") + error.what());
        }
        if (!reply.ok()) throw std::invalid_argument(reply.error());
        return reply.json();
    }
};

FakeService::FakeService() = default;

FakeService::~FakeService() {
    Stop();
}

void FakeService::Seed(std::string const& json) {
    ParseSeed(json);
    if (!m_running) {
        m_seed = json;
        return;
    }
    Vellmark::Admin::Request request;
    request.mutable_seed()->set_json(json);
    m_running->Command(request);
}

void FakeService::SeedFromFile(std::string const& path) {
    std::string text;
    std::string const problem = Vellmark::Json::ReadFile(path, text);
    if (!problem.empty()) throw std::invalid_argument(path + ": " + problem);
    Seed(text);
}

void FakeService::Start() {
    if (m_running) throw std::logic_error("the fake Vellmark service is running already");
    std::optional<Vellmark::Admin::StoreDocument> seed;
    if (!m_seed.empty()) seed = ParseSeed(m_seed);

    auto running = std::make_unique<Running>();
    auto& directory = IPCDirectory::Get();
    std::string const previous = directory.RuntimeFolder();
    running->previousFolder = previous == EnvironmentFolder() ? "" : previous;
    directory.SetRuntimeFolder(running->folder.Path());

    Vellmark::Service::VellmarkService::Settings settings;
    settings.store.newStore = true;
    try {
        running->service = std::make_unique<Vellmark::Service::VellmarkService>(
            running->folder.Path() + "/vellmark.db", std::move(seed), std::move(settings));
        running->admin = std::make_unique<Vellmark::Admin::AdminClient>(kCommandBound);
    } catch (std::invalid_argument const&) {
        throw;  // a seed the service refuses: `running` puts everything back
    } catch (std::exception const& error) {
        throw std::runtime_error(std::string("the fake Vellmark service cannot start: ") +
                                 error.what());
    }
    m_running = std::move(running);
}

void FakeService::Stop() {
    m_running.reset();
}

bool FakeService::IsRunning() const {
    return m_running != nullptr;
}

std::string FakeService::RuntimeFolder() const {
    return m_running ? m_running->folder.Path() : std::string();
}

void FakeService::FailNext(VellmarkPB::MessageId request, VellmarkPB::Error const& error,
                           unsigned int count) {
    if (!m_running) throw std::logic_error("the fake Vellmark service is not running");
    Vellmark::Admin::Request command;
    auto* failNext = command.mutable_failnext();
    failNext->set_messageid(static_cast<std::uint32_t>(request));
    failNext->set_count(count);
    *failNext->mutable_error() = error;
    m_running->Command(command);
}

void FakeService::LeaveUnanswered(VellmarkPB::MessageId request, unsigned int count) {
    if (!m_running) throw std::logic_error("the fake Vellmark service is not running");
    Vellmark::Admin::Request command;
    command.mutable_failnext()->set_messageid(static_cast<std::uint32_t>(request));
    command.mutable_failnext()->set_count(count);
    m_running->Command(command);
}

void FakeService::Delay(std::chrono::milliseconds delay, VellmarkPB::MessageId id) {
    if (!m_running) throw std::logic_error("the fake Vellmark service is not running");
    if (delay.count() < 0 || delay > std::chrono::milliseconds(UINT32_MAX)) {
        throw std::invalid_argument("a delay must lie between 0 and 2^32-1 ms");
    }
    Vellmark::Admin::Request command;
    command.mutable_delay()->set_milliseconds(static_cast<std::uint32_t>(delay.count()));
    command.mutable_delay()->set_messageid(static_cast<std::uint32_t>(id));
    m_running->Command(command);
}

std::size_t FakeService::DropConnections() {
    if (!m_running) throw std::logic_error("the fake Vellmark service is not running");
    Vellmark::Admin::Request command;
    command.set_dropconnections(true);
    std::string const json = m_running->Command(command);
    // {"dropped":N}
    auto const colon = json.find(':');
    return colon == std::string::npos ? 0 : std::stoul(json.substr(colon + 1));
}

}  // namespace Vellmark::Testing
