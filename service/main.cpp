// vellmarkd: the reference Vellmark service, in the foreground, logging to standard error.
#include <signal.h>
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "IPCDirectory.h"
#include "Json.h"
#include "VellmarkService.h"
#include "transport/IPCLog.h"

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

}  // namespace

int main(int argc, char** argv) {
    VellmarkJson::QuietenKnownWarnings();
    CLI::App app(
        "vellmarkd: the reference Vellmark service. Serves the endpoint \"Vellmark\" "
        "and the admin endpoint \"VellmarkAdmin\" in the runtime folder "
        "($TARV_RUNTIME_DIR, else /run/tarv) until SIGINT or SIGTERM.",
        "vellmarkd");
    app.footer(
        "Exit codes: 0 stopped by SIGINT or SIGTERM, 1 the store or a socket cannot be "
        "opened, 2 bad arguments or seed file.");
    std::string db = DefaultStorePath();
    std::string seedFile;
    std::string runtimeDir;
    int logLevel = DPrint::Flow;
    app.add_option("--db", db, "the store (SQLite), made when missing")->capture_default_str();
    app.add_option("--seed", seedFile,
                   "replace the store's content with this JSON document at start");
    app.add_option("--log-level", logLevel, "0 errors ... 4 every detail")
        ->check(CLI::Range(0, 4))
        ->capture_default_str();
    app.add_option("--runtime-dir", runtimeDir,
                   "folder of the sockets (default: $TARV_RUNTIME_DIR, else /run/tarv)");
    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const& help) {
        return app.exit(help);
    } catch (CLI::ParseError const& error) {
        app.exit(error);
        return 2;
    }

    auto const level = static_cast<DPrint::Level>(logLevel);
    VellmarkService::Log().SetThreshold(level);
    IPCLog().SetThreshold(level);
    if (!runtimeDir.empty()) IPCDirectory::Get().SetRuntimeFolder(runtimeDir);

    std::optional<VellmarkAdmin::StoreDocument> seed;
    if (!seedFile.empty()) {
        std::string text;
        std::string problem = VellmarkJson::ReadFile(seedFile, text);
        if (problem.empty()) {
            seed.emplace();
            problem = VellmarkJson::Parse(text, *seed);
        }
        if (!problem.empty()) {
            std::cerr << "vellmarkd: " << seedFile << ": " << problem << "\n";
            return 2;
        }
    }

    // Signals are taken by sigwait below, so every thread started from here on blocks them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    std::unique_ptr<VellmarkService> service;
    try {
        auto const folder = std::filesystem::path(db).parent_path();
        std::error_code ignored;
        if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
        service = std::make_unique<VellmarkService>(db, std::move(seed));
    } catch (std::invalid_argument const& error) {
        std::cerr << "vellmarkd: " << seedFile << ": " << error.what() << "\n";
        return 2;
    } catch (std::exception const& error) {
        std::cerr << "vellmarkd: " << error.what() << "\n";
        return 1;
    }
    std::cerr << "vellmarkd: serving " << service->ServicePath() << " (admin "
              << service->AdminPath() << "), store " << db << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    std::cerr << "vellmarkd: " << (signal == SIGINT ? "SIGINT" : "SIGTERM") << ", stopping"
              << std::endl;
    service->Stop();
    service.reset();
    std::cerr << "vellmarkd: stopped" << std::endl;
    return 0;
}
