// vellmarkctl: drives the Vellmark service from the command line, as a product process
// would (through libVellmarkClient) and as the cloud would (through vellmarkd's admin
// endpoint). Results are JSON documents on standard output, one per reply or update.
#include <iostream>

#include "VellmarkVersion.h"
#include "admin/Json.h"
#include "client/VellmarkClientLog.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "platform/ipc/IPCLog.h"
#include "tools/Commands.h"
#include "tools/HelpFormatter.h"

int main(int argc, char** argv) {
    Vellmark::Json::QuietenKnownWarnings();
    CLI::App app("vellmarkctl: drive the Vellmark service. Results are JSON on standard output.",
                 "vellmarkctl");
    // Before any command is added: each takes its parent's formatter.
    app.formatter(std::make_shared<Vellmark::Ctl::HelpFormatter>());
    app.footer(Vellmark::Ctl::kExitCodesHelp);
    app.set_version_flag("--version", Vellmark::VersionText("vellmarkctl"),
                         "print the versions of the library, the schema and the build");
    Vellmark::Ctl::Settings settings;
    int logLevel = -1;
    std::string runtimeDir;
    app.add_option("--timeout", settings.timeoutSeconds,
                   "seconds to wait for the service's answer (0: no limit)")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_option("--log-level", logLevel,
                   "show the library's own log lines up to this level (0-4) on standard error")
        ->check(CLI::Range(0, 4));
    app.add_option("--runtime-dir", runtimeDir,
                   "folder of the sockets (default: $TARV_RUNTIME_DIR, else /run/tarv)")
        ->type_name(Vellmark::Ctl::kFolderType);
    double waitSeconds = -1;
    app.add_option("--wait", waitSeconds,
                   "first wait up to SECONDS (0: no limit) for vellmarkd to take connections "
                   "at the command's socket, watching the runtime folder; then run the "
                   "command (exit 3 when it did not come up)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--pretty", settings.pretty, "indent the JSON output");
    std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes();
    app.add_option("--max-frame-bytes", maxFrameBytes,
                   "the largest frame sent or taken, e.g. 1M (default: "
                   "$TARV_IPC_MAX_FRAME_BYTES, else 1 MiB; at most 16 MiB); use the service's")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(IPCFrameLimit::kMinFrameBytes, IPCFrameLimit::kHardMaxFrameBytes));
    app.require_subcommand(1);
    // The options above may also follow the command's name.
    app.fallthrough();

    Vellmark::Ctl::Run run;
    Vellmark::Ctl::AddClientCommands(app, settings, run);
    Vellmark::Ctl::AddAdminCommands(app, settings, run);
    Vellmark::Ctl::AddInfoCommands(app, settings, run);
    Vellmark::Ctl::AddCallCommand(app, settings, run);
    // Every command's help at once, for a reader and for the manual page.
    app.set_help_all_flag("--help-all", "print the help of every command and exit");

    // The bash completion script asks what may follow the words typed so far.
    if (argc >= 2 && std::string(argv[1]) == "__complete") {
        for (auto const& word :
             Vellmark::Ctl::Completions(app, std::vector<std::string>(argv + 2, argv + argc))) {
            std::cout << word << '\n';
        }
        return Vellmark::Ctl::kOk;
    }

    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const& help) {
        return app.exit(help);
    } catch (CLI::CallForAllHelp const& help) {
        return app.exit(help);
    } catch (CLI::CallForVersion const& version) {
        return app.exit(version);
    } catch (CLI::ParseError const& error) {
        app.exit(error);
        return Vellmark::Ctl::kBadInput;
    }
    if (!runtimeDir.empty()) IPCDirectory::Get().SetRuntimeFolder(runtimeDir);
    if (waitSeconds >= 0) settings.waitSeconds = waitSeconds;
    IPCFrameLimit::SetMaxFrameBytes(maxFrameBytes);
    if (logLevel >= 0) {
        VellmarkClientLog().SetThreshold(static_cast<DPrint::Level>(logLevel));
        IPCLog().SetThreshold(static_cast<DPrint::Level>(logLevel));
    }
    try {
        return run();
    } catch (Vellmark::Ctl::BadInput const& error) {
        std::cerr << "vellmarkctl: " << error.what() << "\n";
        return Vellmark::Ctl::kBadInput;
    }
}
