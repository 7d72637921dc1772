// vellmarkctl monitor: the frames of the Vellmark endpoint as vellmarkd shows them, always
// masked, as lines of text or of JSON and, on request, into a pcapng capture.
#include <atomic>
#include <iostream>
#include <memory>
#include <thread>

#include "admin/AdminClient.h"
#include "tools/AdminConnection.h"
#include "tools/Commands.h"
#include "tools/MonitorFormat.h"
#include "tools/PcapngWriter.h"

namespace Vellmark::Ctl {
namespace {

struct MonitorArgs {
    int count = 0;
    bool json = false;
    std::string pcap;
    std::vector<std::string> ids;
    std::vector<std::uint64_t> connections;
};

// Shows one event as asked: into the capture first, so that a line shown is a packet
// written. False (with the reason on standard error) when the capture cannot be written.
bool Show(Vellmark::Admin::TrafficEvent const& event, MonitorArgs const& args,
          PcapngWriter* capture) {
    bool written = true;
    if (capture) {
        std::string const frame = WireFrame(event);
        if (frame.empty()) {
            std::cerr << "vellmarkctl: a frame of kind \"" << event.kind()
                      << "\" is not in the capture\n";
        } else {
            try {
                capture->Write(EventMicros(event), frame,
                               event.direction() == "in" ? PcapngWriter::Direction::Inbound
                                                         : PcapngWriter::Direction::Outbound,
                               "session " + std::to_string(event.session()));
            } catch (PcapngWriter::Error const& error) {
                std::cerr << "vellmarkctl: " << error.what() << "\n";
                written = false;
            }
        }
    }
    if (args.pcap != "-") {
        std::cout << (args.json ? JsonLine(event) : TextLine(event)) << std::flush;
    }
    return written;
}

int Monitor(Settings const& settings, MonitorArgs const& args) {
    constexpr int kClosed = 100;
    if (args.json && args.pcap == "-") {
        throw BadInput("--json and --pcap - would both write to standard output");
    }
    // The capture is made first: a path that cannot be written ends the command before it
    // connects.
    std::unique_ptr<PcapngWriter> capture;
    if (!args.pcap.empty()) {
        try {
            capture = std::make_unique<PcapngWriter>(args.pcap);
        } catch (PcapngWriter::Error const& error) {
            throw BadInput(std::string("--pcap: ") + error.what());
        }
    }
    MonitorFilter filter;
    for (auto const& id : args.ids) filter.ids.push_back(ParseMessageId(id));
    filter.connections = args.connections;
    return WithAdmin(settings, [&](Admin::AdminClient& admin) -> int {
        Outcome outcome;
        auto seen = std::make_shared<std::atomic<int>>(0);
        admin.Monitor(
            [&outcome, seen, &args, &capture, &filter](Vellmark::Admin::TrafficEvent const& event) {
                if (!filter.Shows(event)) return;
                int const shown = ++*seen;
                // Frames that arrive while the command ends are not shown: --count N shows N.
                if (args.count > 0 && shown > args.count) return;
                if (!Show(event, args, capture.get())) outcome.Finish(kBadInput);
                if (shown == args.count) outcome.Finish(kOk);
            });
        std::cerr << "vellmarkctl: watching the traffic of the Vellmark endpoint" << std::endl;
        // Ends with the count, or when the service goes away; Ctrl-C ends it otherwise (each
        // line and each packet is out as soon as it is shown).
        std::thread watcher([&] {
            admin.WaitClosed(std::chrono::milliseconds(0));
            outcome.Finish(kClosed);
        });
        int const code = outcome.Wait(std::chrono::milliseconds(0));
        admin.Close();
        watcher.join();
        if (code != kClosed) return code;
        std::cerr << "vellmarkctl: vellmarkd closed the connection\n";
        return kOk;
    });
}

}  // namespace

void AddMonitorCommand(CLI::App& app, Settings& settings, Run& run) {
    auto* monitor = app.add_subcommand(
        "monitor",
        "print every frame vellmarkd receives (<-) or sends (->) on the Vellmark endpoint: "
        "time, connection, kind, identifier, payload type and payload (tokens, identifiers and "
        "user names always masked); --id and --connection choose which");
    auto args = std::make_shared<MonitorArgs>();
    monitor->add_option("--count", args->count, "stop after this many frames (of those shown)");
    monitor
        ->add_option("--id", args->ids,
                     "show only frames under this message identifier (a number or a name; "
                     "repeatable)")
        ->type_name(kMessageIdType);
    monitor
        ->add_option("--connection", args->connections,
                     "show only frames of this connection: its session number, as `admin "
                     "clients` and the frames show it (repeatable)")
        ->type_name("SESSION");
    monitor->add_flag("--json", args->json,
                      "one JSON object per frame and line (JSON Lines): time (RFC 3339, UTC), "
                      "direction, session, kind, messageId, messageName, requestNumber, "
                      "payloadType, payload");
    monitor
        ->add_option("--pcap", args->pcap,
                     "also write the frames, masked, to a pcapng capture FILE (made 0600; - "
                     "for standard output, which then carries nothing else); open it in "
                     "Wireshark with share/VellmarkClient/wireshark/vellmark.lua")
        ->type_name(kFileType);
    monitor->callback(
        [&settings, &run, args] { run = [&settings, args] { return Monitor(settings, *args); }; });
}

}  // namespace Vellmark::Ctl
