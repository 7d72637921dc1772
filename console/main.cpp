// vellmark-console: the Vellmark service in a browser. A local web page over vellmarkd's
// admin endpoint that shows the clients, the store (masked, and editable) and the traffic
// as a live sequence diagram, and drives the faults and the push.
//
// A program of its own rather than a command of vellmarkctl: vellmarkctl goes onto the
// product as a small tool of one-shot commands, while the console is a server with an
// HTTP library (and through Debian's cpp-httplib, OpenSSL, zlib and brotli), a page of
// assets and threads of its own. Kept apart, vellmarkctl stays lean and the console is
// installed only where somebody wants to look.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "VellmarkVersion.h"
#include "admin/Json.h"
#include "console/Console.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCFrameLimit.h"
#include "tools/Command.h"

int main(int argc, char** argv) {
    Vellmark::Json::QuietenKnownWarnings();
    CLI::App app(
        "vellmark-console: the Vellmark service in a browser. Serves one page on 127.0.0.1 that "
        "shows vellmarkd's clients, its store (secrets always masked) and its traffic as a live "
        "sequence diagram, and sets its faults; prints the page's URL, with its token, on "
        "standard output. It talks to vellmarkd only through the admin endpoint, as the user "
        "who runs it.",
        "vellmark-console");
    app.set_version_flag("--version", Vellmark::VersionText("vellmark-console"),
                         "print the versions of the library, the schema and the build");
    app.footer(
        "Exit codes: 0 stopped by SIGINT, SIGTERM or SIGHUP; 2 bad arguments, or the port "
        "cannot be had; 4 this user may not open the admin socket; 5 the service's credential "
        "check does not let this user in. A service that is not running yet is waited for.");
    Vellmark::Console::ConsoleOptions options;
    double timeoutSeconds = 5;
    std::string runtimeDir;
    std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes();
    app.add_option("--port", options.port, "the port on 127.0.0.1 (0: a free one)")
        ->capture_default_str();
    app.add_option("--runtime-dir", runtimeDir,
                   "folder of the sockets (default: $TARV_RUNTIME_DIR, else /run/tarv)");
    app.add_option("--timeout", timeoutSeconds, "seconds to wait for each answer of the service")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--max-frame-bytes", maxFrameBytes,
                   "the largest frame sent or taken, e.g. 1M (default: $TARV_IPC_MAX_FRAME_BYTES, "
                   "else 1 MiB); use the service's")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(IPCFrameLimit::kMinFrameBytes, IPCFrameLimit::kHardMaxFrameBytes));
    app.add_option("--pages", options.feed.pages, "pages that may stream the traffic at once")
        ->check(CLI::Range(std::size_t{1}, std::size_t{32}))
        ->capture_default_str();
    app.add_option("--page-frames", options.feed.page.frames,
                   "frames queued for a page that falls behind; more are dropped and counted")
        ->check(CLI::Range(std::size_t{10}, std::size_t{1000000}))
        ->capture_default_str();
    app.add_option("--max-upload", options.http.bodyBytes,
                   "the largest document taken from the page (a seed, an edit), e.g. 64M")
        ->transform(CLI::AsSizeValue(false))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    options.bound = std::chrono::milliseconds(static_cast<long long>(timeoutSeconds * 1000));
    // Each page's stream holds one of the server's threads; the others serve the calls.
    options.http.threads = options.feed.pages + 8;
    if (!runtimeDir.empty()) IPCDirectory::Get().SetRuntimeFolder(runtimeDir);
    IPCFrameLimit::SetMaxFrameBytes(maxFrameBytes);

    // A page that goes away while it is written to must not end the program.
    ::signal(SIGPIPE, SIG_IGN);
    // The stop signals are taken by sigwait below, so every thread started from here on
    // blocks them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stopSignals, signal);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Vellmark::Console::Console console(options);
    if (auto const diagnosis = console.Probe()) {
        std::cerr << "vellmark-console: " << diagnosis->message << "\n";
        if (diagnosis->code == Vellmark::Ctl::kPermissionDenied ||
            diagnosis->code == Vellmark::Ctl::kRefusedByService) {
            return diagnosis->code;
        }
        std::cerr << "vellmark-console: the page shows when it is there\n";
    }
    std::string url;
    try {
        url = console.Bind();
    } catch (std::exception const& error) {
        std::cerr << "vellmark-console: " << error.what() << "\n";
        return Vellmark::Ctl::kBadInput;
    }
    console.Start();
    std::cerr << "vellmark-console: serving vellmarkd's admin endpoint " << console.AdminPath()
              << "; open the URL below in a browser on this machine (it holds the token)\n";
    std::cout << url << std::endl;
    int signal = 0;
    sigwait(&stopSignals, &signal);
    console.Stop();
    return 0;
}
