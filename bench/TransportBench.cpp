// transport_bench: what the product's path costs on this machine, beside the floors of the
// same exchanges, all measured in this run by this program.
//
// - round trip on the task: GetSources issued on the client's own task, vellmarkd in
//   another process answering from its store, until the callback runs on the task;
// - round trip from another thread: the same issued from the main thread, which waits for
//   the callback to wake it;
// - notifications: vellmarkd pushes the sources update (admin push), at most --window
//   unacknowledged, to a subscriber that the client acknowledges each time; with the CPU
//   time both processes spent per notification;
// - floors (Floors.h): a raw client and server process exchanging the same frames;
// - contract floors (ContractFloor.h): the raw floors plus exactly what the client's
//   contract asks of each delivery (the firing's entry and copy, run on the same thread,
//   and the acknowledgement).
//
// Every path is measured --rounds times, interleaved, each time unpinned (as the system
// places the processes) and pinned (every thread of both processes on one CPU; see
// CpuPlacement.h); the summary gives the median of the rounds. Pinned figures show our
// work, unpinned ones add our cross-CPU wake-ups. It ends with three "summary:" lines. Run
// it on a quiet machine; compare ratios.
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminClient.h"
#include "admin/Json.h"
#include "bench/ConsoleAttachment.h"
#include "bench/ContractFloor.h"
#include "bench/CpuPlacement.h"
#include "bench/Floors.h"
#include "bench/Payload.h"
#include "bench/ServiceProcess.h"
#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/task/BreakThread.h"
#include "platform/task/Task.h"

namespace Vellmark::Bench {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// The longest wait for any answer before the run is declared broken.
constexpr auto kBound = 30s;

struct Options {
    int iterations = 20000;
    int warmUp = 1000;
    std::uint32_t notifications = 20000;
    std::uint32_t warmUpNotifications = 2000;
    std::uint32_t window = 64;
    int rounds = 3;
    std::string vellmarkd = VELLMARKD_PATH;
    // "both", "unpinned" or "pinned"; and the CPU of the pinned runs (-1: the first allowed).
    std::string placement = "both";
    int cpu = -1;
    // vellmark-console to watch the service with, a page streaming its traffic (none when
    // empty).
    std::string console;
    // The paths to measure (all when empty): for profiling one at a time.
    std::vector<std::string> only;

    bool Measures(char const* path) const {
        return only.empty() || std::find(only.begin(), only.end(), path) != only.end();
    }
};

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) / 2];
}

double Percentile(std::vector<double> values, double fraction) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    auto const index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
    return values[index];
}

// CPU time of a whole process (all its threads), in seconds; 0 if it cannot be read.
double CpuSeconds(pid_t pid) {
    clockid_t clock;
    if (pid == 0) {
        clock = CLOCK_PROCESS_CPUTIME_ID;
    } else if (::clock_getcpuclockid(pid, &clock) != 0) {
        return 0;
    }
    timespec now{};
    if (::clock_gettime(clock, &now) != 0) return 0;
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// CPU seconds spent by this process and `other` between construction and Spent().
class CpuMeter {
public:
    explicit CpuMeter(pid_t other)
        : m_other(other), m_self(CpuSeconds(0)), m_peer(CpuSeconds(other)) {}
    double Spent() const { return Own() + Peer(); }
    double Own() const { return CpuSeconds(0) - m_self; }
    double Peer() const { return CpuSeconds(m_other) - m_peer; }

private:
    pid_t const m_other;
    double const m_self;
    double const m_peer;
};

// A count that other threads raise and one thread waits on.
class Tally {
public:
    void Add() {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
        // Only the increment the waiter asked for wakes it.
        if (m_count == m_awaited) m_reached.notify_one();
    }
    std::uint64_t Count() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }
    bool WaitFor(std::uint64_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_awaited = count;
        return m_reached.wait_for(lock, kBound, [&] { return m_count >= count; });
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_reached;
    std::uint64_t m_count = 0;
    std::uint64_t m_awaited = 0;
};

// The client of the product, on a task of its own, subscribed to the sources, talking to a
// vellmarkd process.
class ClientSide {
public:
    explicit ClientSide(ServiceProcess const& service)
        : m_service(service), m_task("bench"), m_client(&m_task) {
        m_client.SubscribeSourcesRequest("",
                                         [this](VellmarkPB::sources const&) { m_updates.Add(); });
        m_onReply = [this](VellmarkPB::sources const& sources) {
            m_lastReplySize = sources.source_size();
            m_replies.Add();
        };
    }

    ~ClientSide() { m_task.Stop(); }

    // Once this returns true the client is connected and subscribed: its task works in order.
    bool Ready() {
        std::vector<double> ignored;
        return FromOtherThread(1, ignored) && m_lastReplySize == kSourceCount;
    }

    // `count` GetSources, each issued on the task when the previous one's callback ran there.
    bool OnTask(int count, std::vector<double>& samples) {
        struct Run {
            int remaining;
            Clock::time_point start;
            std::vector<double>* samples;
            std::promise<void> done;
            std::function<void()> next;
        };
        auto run = std::make_shared<Run>();
        run->remaining = count;
        run->samples = &samples;
        run->next = [this, run] {
            run->start = Clock::now();
            m_client.GetSources([run](VellmarkPB::sources const&) {
                run->samples->push_back(
                    std::chrono::duration<double>(Clock::now() - run->start).count());
                if (--run->remaining > 0) {
                    run->next();
                } else {
                    run->done.set_value();
                    run->next = nullptr;  // lets go of `run`
                }
            });
        };
        auto finished = run->done.get_future();
        IL::BreakThread([run] { run->next(); }, &m_task);
        return finished.wait_for(kBound) == std::future_status::ready;
    }

    // `count` GetSources from this thread, each waiting for its callback to wake it.
    bool FromOtherThread(int count, std::vector<double>& samples) {
        for (int i = 0; i < count; ++i) {
            auto const start = Clock::now();
            std::uint64_t const awaited = m_replies.Count() + 1;
            m_client.GetSources(m_onReply);
            if (!m_replies.WaitFor(awaited)) return false;
            samples.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
        return true;
    }

    // Has vellmarkd push `count` updates with `window`; the seconds it took, once every one
    // reached the subscriber and came back acknowledged.
    std::optional<double> Push(Vellmark::Admin::AdminClient& admin, std::uint32_t count,
                               std::uint32_t window) {
        Vellmark::Admin::Request request;
        request.mutable_push()->set_resource("sources");
        request.mutable_push()->set_count(count);
        request.mutable_push()->set_window(window);
        std::uint64_t const before = m_updates.Count();
        auto const start = Clock::now();
        std::string const json = admin.Command(request);
        double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
        Vellmark::Admin::PushReport report;
        if (!Vellmark::Json::Parse(json, report).empty() || report.clients() != 1 ||
            report.acknowledged() != count || m_updates.Count() - before != count) {
            return std::nullopt;
        }
        return seconds;
    }

private:
    ServiceProcess const& m_service;
    IL::Task m_task;
    VellmarkClientAPI m_client;
    Tally m_replies;
    Tally m_updates;
    int m_lastReplySize = 0;
    Callback<VellmarkPB::sources> m_onReply;
};

struct Latency {
    double medianUs = 0;
    double cpuUs = 0;  // both processes, per round trip
};

struct Rate {
    double perS = 0;
    double cpuUs = 0;  // both processes, per notification
};

// One placement's figures in one round.
struct Round {
    Latency floor;
    Latency contract;
    Latency onTask;
    Latency otherThread;
    Rate floorPush;
    Rate contractPush;
    Rate notifications;
};

void Fail(std::string const& what) {
    throw std::runtime_error(what);
}

// Latency samples: warm-up first, untimed.
template <class Measure>
Latency MeasureLatency(char const* what, Options const& options, pid_t peer, Measure measure) {
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(std::max(options.iterations, options.warmUp)));
    if (!measure(options.warmUp, samples)) Fail(std::string(what) + ": no answer within 30 s");
    samples.clear();
    CpuMeter const cpu(peer);
    if (!measure(options.iterations, samples)) Fail(std::string(what) + ": no answer within 30 s");
    Latency latency;
    latency.cpuUs = cpu.Spent() * 1e6 / options.iterations;
    latency.medianUs = Median(samples) * 1e6;
    std::printf(
        "  %-26s median %7.1f us  p99 %7.1f us  cpu %6.1f us/op (client %.1f, server %.1f)\n", what,
        latency.medianUs, Percentile(samples, 0.99) * 1e6, latency.cpuUs,
        cpu.Own() * 1e6 / options.iterations, cpu.Peer() * 1e6 / options.iterations);
    return latency;
}

template <class Push>
Rate MeasureNotifications(char const* what, Options const& options, pid_t peer, Push push) {
    if (!push(std::min(options.notifications, options.warmUpNotifications))) {
        Fail(std::string(what) + ": updates lost or not acknowledged");
    }
    CpuMeter const cpu(peer);
    auto const start = Clock::now();
    if (!push(options.notifications))
        Fail(std::string(what) + ": updates lost or not acknowledged");
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    Rate rate;
    rate.perS = options.notifications / seconds;
    rate.cpuUs = cpu.Spent() * 1e6 / options.notifications;
    std::printf("  %-26s %9.0f /s  cpu %6.1f us/notification (client %.1f, server %.1f)\n", what,
                rate.perS, rate.cpuUs, cpu.Own() * 1e6 / options.notifications,
                cpu.Peer() * 1e6 / options.notifications);
    return rate;
}

// The service and the product's client on it, for the paths that need them.
struct Product {
    explicit Product(std::string const& vellmarkd) : service(vellmarkd) {
        IPCDirectory::Get().SetRuntimeFolder(service.Folder());
        client = std::make_unique<ClientSide>(service);
        if (!client->Ready()) {
            Fail("vellmarkd did not answer GetSources with " + std::to_string(kSourceCount) +
                 " sources within 30 s; its log:\n" + service.LogTail());
        }
        admin = std::make_unique<Vellmark::Admin::AdminClient>(kBound);
    }

    ServiceProcess service;
    std::unique_ptr<ClientSide> client;
    std::unique_ptr<Vellmark::Admin::AdminClient> admin;  // made once the folder is set
};

Round MeasureRound(Options const& options, std::string const& self, Product* product) {
    Round round;
    if (options.Measures("floor")) {
        FloorServer server(self, "round-trip");
        round.floor = MeasureLatency("floor round trip", options, server.Pid(),
                                     [&](int count, std::vector<double>& samples) {
                                         return FloorRoundTrips(server, count, samples);
                                     });
    }
    if (options.Measures("contract-floor")) {
        FloorServer server(self, "round-trip");
        round.contract = MeasureLatency("contract floor round trip", options, server.Pid(),
                                        [&](int count, std::vector<double>& samples) {
                                            return ContractRoundTrips(server, count, samples);
                                        });
    }
    if (options.Measures("on-task")) {
        round.onTask = MeasureLatency("round trip on the task", options, product->service.Pid(),
                                      [&](int count, std::vector<double>& samples) {
                                          return product->client->OnTask(count, samples);
                                      });
    }
    if (options.Measures("other-thread")) {
        round.otherThread =
            MeasureLatency("round trip, other thread", options, product->service.Pid(),
                           [&](int count, std::vector<double>& samples) {
                               return product->client->FromOtherThread(count, samples);
                           });
    }
    if (options.Measures("floor-push")) {
        FloorServer server(self, "push");
        round.floorPush = MeasureNotifications(
            "floor push", options, server.Pid(),
            [&](std::uint32_t count) { return FloorPush(server, count, options.window); });
    }
    if (options.Measures("contract-floor-push")) {
        FloorServer server(self, "push");
        round.contractPush = MeasureNotifications(
            "contract floor push", options, server.Pid(),
            [&](std::uint32_t count) { return ContractPush(server, count, options.window); });
    }
    if (options.Measures("notifications")) {
        round.notifications = MeasureNotifications(
            "notifications", options, product->service.Pid(), [&](std::uint32_t count) {
                return product->client->Push(*product->admin, count, options.window).has_value();
            });
    }
    return round;
}

template <class Figures>
double MedianOf(std::vector<Round> const& rounds, Figures Round::*figures, double Figures::*field) {
    std::vector<double> values;
    for (auto const& round : rounds) values.push_back(round.*figures.*field);
    return Median(values);
}

// a / b, or 0 when b is not there.
double Ratio(double a, double b) {
    return b > 0 ? a / b : 0;
}

// The fields of one round-trip path, for one placement; `prefix` is "" or "pinned_".
std::string LatencyFields(std::vector<Round> const& rounds, Latency Round::*path,
                          char const* prefix) {
    double const us = MedianOf(rounds, path, &Latency::medianUs);
    double const floorUs = MedianOf(rounds, &Round::floor, &Latency::medianUs);
    double const contractUs = MedianOf(rounds, &Round::contract, &Latency::medianUs);
    char text[512];
    std::snprintf(text, sizeof text,
                  "%smedian_us=%.1f %sfloor_us=%.1f %sratio=%.2f %scontract_floor_us=%.1f "
                  "%scontract_ratio=%.2f %scpu_us=%.1f %sfloor_cpu_us=%.1f %scontract_cpu_us=%.1f",
                  prefix, us, prefix, floorUs, prefix, Ratio(us, floorUs), prefix, contractUs,
                  prefix, Ratio(us, contractUs), prefix, MedianOf(rounds, path, &Latency::cpuUs),
                  prefix, MedianOf(rounds, &Round::floor, &Latency::cpuUs), prefix,
                  MedianOf(rounds, &Round::contract, &Latency::cpuUs));
    return text;
}

std::string RateFields(std::vector<Round> const& rounds, char const* prefix) {
    double const perS = MedianOf(rounds, &Round::notifications, &Rate::perS);
    double const floorPerS = MedianOf(rounds, &Round::floorPush, &Rate::perS);
    double const contractPerS = MedianOf(rounds, &Round::contractPush, &Rate::perS);
    char text[512];
    std::snprintf(text, sizeof text,
                  "%sper_s=%.0f %sfloor_per_s=%.0f %sratio=%.2f %scpu_us=%.1f "
                  "%sfloor_cpu_us=%.1f %scontract_floor_per_s=%.0f %scontract_ratio=%.2f "
                  "%scontract_cpu_us=%.1f",
                  prefix, perS, prefix, floorPerS, prefix, Ratio(perS, floorPerS), prefix,
                  MedianOf(rounds, &Round::notifications, &Rate::cpuUs), prefix,
                  MedianOf(rounds, &Round::floorPush, &Rate::cpuUs), prefix, contractPerS, prefix,
                  Ratio(perS, contractPerS), prefix,
                  MedianOf(rounds, &Round::contractPush, &Rate::cpuUs));
    return text;
}

int Run(Options const& options, std::string const& self) {
    std::unique_ptr<Product> product;
    if (options.Measures("on-task") || options.Measures("other-thread") ||
        options.Measures("notifications")) {
        product = std::make_unique<Product>(options.vellmarkd);
    }
    std::vector<pid_t> started;
    if (product) started.push_back(product->service.Pid());
    CpuPlacement const placement(options.cpu);
    bool const unpinned = options.placement != "pinned";
    bool const pinned = options.placement != "unpinned";
    std::unique_ptr<ConsoleAttachment> console;
    if (!options.console.empty() && product)
        console = std::make_unique<ConsoleAttachment>(options.console, product->service.Folder());
    std::printf(
        "transport_bench: %d round trips and %u notifications (window %u) per path, "
        "%d rounds; payload %zu bytes\n",
        options.iterations, options.notifications, options.window, options.rounds,
        MakeSources().ByteSizeLong());
    std::printf(
        "placement: unpinned = as the system places the processes, on %d CPUs: our work and "
        "our wake-ups of the other process across CPUs; pinned = every thread of both "
        "processes on CPU %d: our work alone\n",
        placement.UnpinnedCpus(), placement.PinnedCpu());
    std::vector<Round> free;
    std::vector<Round> bound;
    for (int i = 0; i < options.rounds; ++i) {
        if (unpinned) {
            placement.Release(started);
            std::printf("round %d, unpinned\n", i + 1);
            free.push_back(MeasureRound(options, self, product.get()));
            std::fflush(stdout);
        }
        if (pinned) {
            placement.Pin(started);
            std::printf("round %d, pinned to CPU %d\n", i + 1, placement.PinnedCpu());
            bound.push_back(MeasureRound(options, self, product.get()));
            std::fflush(stdout);
        }
    }
    placement.Release(started);
    std::printf("summary: round-trip-on-task %s %s\n",
                LatencyFields(free, &Round::onTask, "").c_str(),
                LatencyFields(bound, &Round::onTask, "pinned_").c_str());
    std::printf("summary: round-trip-other-thread %s %s\n",
                LatencyFields(free, &Round::otherThread, "").c_str(),
                LatencyFields(bound, &Round::otherThread, "pinned_").c_str());
    std::printf("summary: notifications %s %s\n", RateFields(free, "").c_str(),
                RateFields(bound, "pinned_").c_str());
    if (console) {
        std::printf(
            "console: a page streamed %llu frames; the console dropped %llu for it; vellmarkd "
            "ended the console's watch %llu times for reading too slowly\n",
            static_cast<unsigned long long>(console->Frames()),
            static_cast<unsigned long long>(console->Dropped()),
            static_cast<unsigned long long>(console->Lost()));
    }
    return 0;
}

}  // namespace
}  // namespace Vellmark::Bench

int main(int argc, char** argv) {
    using namespace Vellmark::Bench;
    CLI::App app(
        "transport_bench: the product's round trips and notifications, vellmarkd in another "
        "process, beside a raw Unix-socket floor and the contract floor measured in the same "
        "run, unpinned and pinned to one CPU. Ends with three \"summary:\" lines.");
    Options options;
    std::string floorMode;
    int floorFd = -1;
    app.add_option("--iterations", options.iterations, "timed round trips per path and round")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000000));
    app.add_option("--warm-up", options.warmUp, "untimed round trips before each path")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000000));
    app.add_option("--notifications", options.notifications, "timed notifications per round")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000000u));
    app.add_option("--warm-up-notifications", options.warmUpNotifications,
                   "untimed notifications before each push path (at most --notifications)")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000000u));
    app.add_option("--window", options.window, "unacknowledged notifications at most")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000u));
    app.add_option("--rounds", options.rounds, "measurements of every path, interleaved")
        ->capture_default_str()
        ->check(CLI::Range(1, 100));
    app.add_option("--vellmarkd", options.vellmarkd, "the service program")->capture_default_str();
    app.add_option("--console", options.console,
                   "measure with this vellmark-console watching, a page streaming its traffic");
    app.add_option("--only", options.only, "measure only these paths (to profile one)")
        ->check(CLI::IsMember({"floor", "contract-floor", "on-task", "other-thread", "floor-push",
                               "contract-floor-push", "notifications"}));
    app.add_option("--placement", options.placement,
                   "unpinned (as the system places the processes), pinned (all on one CPU) "
                   "or both")
        ->capture_default_str()
        ->check(CLI::IsMember({"both", "unpinned", "pinned"}));
    app.add_option("--cpu", options.cpu, "the CPU of the pinned runs (default: the first allowed)")
        ->check(CLI::Range(0, CPU_SETSIZE - 1));
    app.add_option("--floor-server", floorMode)->group("");  // the floor's child process
    app.add_option("--floor-fd", floorFd)->group("");
    CLI11_PARSE(app, argc, argv);
    if (!floorMode.empty()) return ServeFloor(floorMode, floorFd);
    try {
        // The floor servers are this program started again, by its own path: under valgrind
        // /proc/self/exe would name the tool instead.
        return Run(options, std::filesystem::read_symlink("/proc/self/exe").string());
    } catch (std::exception const& e) {
        std::fprintf(stderr, "transport_bench: %s\n", e.what());
        return 1;
    }
}
