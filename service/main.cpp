// vellmarkd: the reference Vellmark service, in the foreground, logging to standard error.
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "VellmarkVersion.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCLog.h"
#include "service/ClientLimits.h"
#include "service/Systemd.h"
#include "service/VellmarkService.h"

using Vellmark::Service::VellmarkService;

namespace {

// $XDG_DATA_HOME/vellmarkd/vellmark.db, or ~/.local/share/vellmarkd/vellmark.db.
std::string DefaultStorePath() {
    std::filesystem::path base;
    if (char const* data = std::getenv("XDG_DATA_HOME"); data && *data) {
        base = data;
    } else if (char const* home = std::getenv("HOME"); home && *home) {
        base = std::filesystem::path(home) / ".local" / "share";
    } else {
        base = ".";
    }
    return (base / "vellmarkd" / "vellmark.db").string();
}

// Makes the store's folder and its missing parents, private to the service's user (0700):
// the store holds the product's tokens.
void MakePrivateFolders(std::filesystem::path const& folder) {
    std::filesystem::path made;
    for (auto const& part : folder) {
        made /= part;
        if (::mkdir(made.c_str(), 0700) != 0 && errno != EEXIST) {
            throw std::runtime_error("cannot make the folder " + made.string() + ": " +
                                     std::strerror(errno));
        }
    }
}

// A user or group given as a number or a name.
template <class Id>
Id IdOf(std::string const& text, Id (*byName)(std::string const&)) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return byName(text);
    }
    errno = 0;
    unsigned long const number = std::strtoul(text.c_str(), nullptr, 10);
    if (errno != 0 || number >= static_cast<unsigned long>(static_cast<Id>(-1))) {
        throw CLI::ValidationError("\"" + text + "\" is not a user or group number");
    }
    return static_cast<Id>(number);
}

uid_t UserByName(std::string const& name) {
    if (passwd const* entry = ::getpwnam(name.c_str())) return entry->pw_uid;
    throw CLI::ValidationError("no user \"" + name + "\"");
}

gid_t GroupByName(std::string const& name) {
    if (group const* entry = ::getgrnam(name.c_str())) return entry->gr_gid;
    throw CLI::ValidationError("no group \"" + name + "\"");
}

// The signals that stop the service, each cleanly. SIGHUP is one of them: the service holds
// nothing to reopen (it logs to standard error and keeps its store open), and a service
// whose terminal hangs up should not linger.
sigset_t StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&signals, signal);
    return signals;
}

char const* SignalName(int signal) {
    switch (signal) {
        case SIGINT:
            return "SIGINT";
        case SIGTERM:
            return "SIGTERM";
        case SIGHUP:
            return "SIGHUP";
        case SIGQUIT:
            return "SIGQUIT";
        default:
            return "a signal";
    }
}

// The service's own user and root, then `others`.
std::vector<uid_t> UsersWith(std::vector<std::string> const& others) {
    std::vector<uid_t> users{::getuid(), 0};
    for (auto const& user : others) users.push_back(IdOf(user, UserByName));
    return users;
}

}  // namespace

int main(int argc, char** argv) {
    Vellmark::Json::QuietenKnownWarnings();
    CLI::App app(
        "vellmarkd: the reference Vellmark service. Serves the endpoint \"Vellmark\" "
        "and the admin endpoint \"VellmarkAdmin\" in the runtime folder "
        "($TARV_RUNTIME_DIR, else /run/tarv) until SIGINT, SIGTERM, SIGHUP or SIGQUIT, each "
        "of which stops it cleanly (SIGHUP too: there is nothing to reopen).\n"
        "Under systemd it reports readiness (Type=notify) and serves the listening sockets "
        "passed to it named \"Vellmark\" and \"VellmarkAdmin\" (FileDescriptorName=) "
        "instead of making its own; those socket files are left in place when it stops.",
        "vellmarkd");
    app.footer(
        "Exit status:\n"
        "  0  stopped by SIGINT, SIGTERM, SIGHUP or SIGQUIT\n"
        "  1  the store or a socket cannot be opened (or a socket passed is not a listening\n"
        "     Unix stream socket)\n"
        "  2  bad arguments or seed file");
    app.set_version_flag("--version", Vellmark::VersionText("vellmarkd"),
                         "print the versions of the library, the schema and the build");
    std::string db = DefaultStorePath();
    std::string seedFile;
    std::string runtimeDir;
    int logLevel = DPrint::Flow;
    // The default is told, not shown: it depends on who runs the program.
    app.add_option("--db", db,
                   "the store (SQLite), made when missing (default: "
                   "$XDG_DATA_HOME/vellmarkd/vellmark.db, else "
                   "~/.local/share/vellmarkd/vellmark.db)");
    app.add_option("--seed", seedFile,
                   "replace the store's content with this JSON document at start (also makes "
                   "a new store where an empty file stands); a document holding a masked "
                   "secret, as the tools print them, is refused and nothing is stored");
    bool newStore = false;
    app.add_flag("--new-store", newStore,
                 "make a new, empty store where an empty file (or an SQLite database without "
                 "tables) stands at --db; without it such a file is refused, never quietly "
                 "taken for a store that has lost every account");
    app.add_option("--log-level", logLevel, "0 errors ... 4 every detail")
        ->check(CLI::Range(0, 4))
        ->capture_default_str();
    app.add_option("--runtime-dir", runtimeDir,
                   "folder of the sockets (default: $TARV_RUNTIME_DIR, else /run/tarv); it "
                   "must not be writable by every user, and is made private when missing");
    std::vector<std::string> allowUsers;
    std::vector<std::string> allowGroups;
    std::vector<std::string> adminAllowUsers;
    app.add_option("--allow-user", allowUsers,
                   "also let this user (UID or name) connect to the Vellmark endpoint; "
                   "repeatable (default: the service's own user and root). The user must "
                   "also be able to open the socket file (0660), e.g. as a member of its group")
        ->take_all();
    app.add_option("--allow-group", allowGroups,
                   "also let members of this group (GID or name) connect to the Vellmark "
                   "endpoint; repeatable. The socket file is given to the first of them")
        ->take_all();
    app.add_option("--admin-allow-user", adminAllowUsers,
                   "also let this user (UID or name) use the admin endpoint; repeatable "
                   "(default: the service's own user and root)")
        ->take_all();
    std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes();
    app.add_option("--max-frame-bytes", maxFrameBytes,
                   "the largest frame sent or taken, e.g. 1M (default: "
                   "$TARV_IPC_MAX_FRAME_BYTES, else 1 MiB; at most 16 MiB). Every answer and "
                   "update must fit one: a write that would make one bigger is refused. "
                   "Clients should use the same limit")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(IPCFrameLimit::kMinFrameBytes, IPCFrameLimit::kHardMaxFrameBytes))
        ->capture_default_str();
    std::uint64_t maxStoreBytes = 0;
    app.add_option("--max-store-bytes", maxStoreBytes,
                   "the largest the store may grow, e.g. 64M (default: no limit); a write "
                   "past it is refused as on a full disk")
        ->transform(CLI::AsSizeValue(false));
    auto limits = Vellmark::Service::DefaultClientLimits();
    app.add_option(limits.connectionsPerUser.setting, limits.connectionsPerUser.max,
                   "the connections one user may hold to the Vellmark endpoint; the next one "
                   "is refused (0: no limit)")
        ->capture_default_str();
    app.add_option(limits.connections.setting, limits.connections.max,
                   "the connections all users together may hold to the Vellmark endpoint; the "
                   "next one is refused, except for the users of the admin endpoint (0: no "
                   "limit). Keep it well below the descriptor limit (ulimit -n)")
        ->capture_default_str();
    app.add_option(limits.pendingRequests.setting, limits.pendingRequests.max,
                   "the requests one connection may have sent and not yet had answered; one "
                   "more closes the connection (0: no limit)")
        ->capture_default_str();
    app.add_option(limits.incomingBytes.setting, limits.incomingBytes.max,
                   "the bytes of those requests, e.g. 4M; one that would go over closes the "
                   "connection (0: no limit; never below --max-frame-bytes)")
        ->transform(CLI::AsSizeValue(false))
        ->capture_default_str();
    app.add_option(limits.outgoingBytes.setting, limits.outgoingBytes.max,
                   "the bytes that may wait to be sent to a connection that does not read, "
                   "e.g. 4M; one more closes the connection (never below --max-frame-bytes)")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    VellmarkService::Settings settings;
    try {
        app.parse(argc, argv);
        settings.service.allowedUsers = UsersWith(allowUsers);
        for (auto const& group : allowGroups) {
            settings.service.allowedGroups.push_back(IdOf(group, GroupByName));
        }
        settings.admin.allowedUsers = UsersWith(adminAllowUsers);
        settings.service.clientLimits = Vellmark::Service::WithFramesOf(limits, maxFrameBytes);
        // Others filling the service never lock its admins out.
        settings.service.reservedUsers = settings.admin.allowedUsers;
        settings.store.maxBytes = maxStoreBytes;
        settings.store.newStore = newStore || !seedFile.empty();
        IPCFrameLimit::SetMaxFrameBytes(maxFrameBytes);
    } catch (CLI::CallForHelp const& help) {
        return app.exit(help);
    } catch (CLI::CallForVersion const& version) {
        return app.exit(version);
    } catch (CLI::ParseError const& error) {
        app.exit(error);
        return 2;
    }

    auto const level = static_cast<DPrint::Level>(logLevel);
    VellmarkService::Log().SetThreshold(level);
    IPCLog().SetThreshold(level);
    if (!runtimeDir.empty()) IPCDirectory::Get().SetRuntimeFolder(runtimeDir);
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        if (auto const warning = Vellmark::Service::DescriptorWarning(settings.service.clientLimits,
                                                                      descriptors.rlim_cur)) {
            std::cerr << "vellmarkd: " + *warning + "\n";
        }
    }

    std::optional<Vellmark::Admin::StoreDocument> seed;
    if (!seedFile.empty()) {
        std::string text;
        std::string problem = Vellmark::Json::ReadFile(seedFile, text);
        if (problem.empty()) {
            seed.emplace();
            problem = Vellmark::Json::Parse(text, *seed);
        }
        // Masks read back from tools' output would replace the secrets for good, as the
        // admin seed refuses; checked before the store is opened, so nothing is written.
        if (problem.empty()) {
            if (auto const masked = Vellmark::Admin::FindMaskedValue(*seed)) {
                problem = Vellmark::Admin::DescribeMaskedValue(*masked) + "; nothing was stored";
            }
        }
        if (!problem.empty()) {
            std::cerr << "vellmarkd: " << seedFile << ": " << problem << "\n";
            return 2;
        }
    }

    // Before any thread starts: taking them edits the environment.
    try {
        auto const handedOver = Vellmark::Service::Systemd::TakeSockets();
        settings.service.listeningFd = handedOver.service;
        settings.admin.listeningFd = handedOver.admin;
    } catch (std::exception const& error) {
        std::cerr << "vellmarkd: " << error.what() << "\n";
        return 1;
    }

    // Signals are taken by sigwait below, so every thread started from here on blocks them.
    sigset_t const stopSignals = StopSignals();
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    std::unique_ptr<VellmarkService> service;
    try {
        auto const folder = std::filesystem::path(db).parent_path();
        if (!folder.empty()) MakePrivateFolders(folder);
        service = std::make_unique<VellmarkService>(db, std::move(seed), std::move(settings));
    } catch (std::invalid_argument const& error) {
        std::cerr << "vellmarkd: " << seedFile << ": " << error.what() << "\n";
        return 2;
    } catch (std::exception const& error) {
        std::cerr << "vellmarkd: " << error.what() << "\n";
        return 1;
    }
    // Each line in one write: the service's own threads log on standard error too.
    auto const say = [](std::string const& line) { std::cerr << "vellmarkd: " + line + "\n"; };
    say("serving " + service->ServicePath() + " (admin " + service->AdminPath() + "), store " + db);
    Vellmark::Service::Systemd::NotifyReady(
        "serving " + std::string(Vellmark::Admin::kServiceEndpoint) + " at " +
        service->ServicePath() + " and " + Vellmark::Admin::kAdminEndpoint + " at " +
        service->AdminPath() + ", store " + db);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    say(std::string(SignalName(signal)) + ", stopping");
    Vellmark::Service::Systemd::NotifyStopping(std::string("stopping on ") + SignalName(signal));
    service->Stop();
    service.reset();
    say("stopped");
    return 0;
}
