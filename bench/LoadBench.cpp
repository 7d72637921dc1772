// load_bench: vellmarkd under the load of many subscribers, in another process. N clients
// of the library (in this process, on a few tasks) subscribe to the sources; the service
// pushes M updates to each (admin push, at most --window unacknowledged per client), which
// their clients acknowledge; meanwhile a bystander client asks GetSources, one after the
// other. It prints what arrived against what was sent, the updates per second, the
// bystander's round trips (median and 99th percentile), and the service's resident memory
// and open descriptors before, at their peak and after the subscribers have gone; then one
// line "summary: load ...". Run it on a quiet machine.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminClient.h"
#include "admin/Json.h"
#include "bench/ServiceProcess.h"
#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/task/Task.h"

namespace Vellmark::Bench {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// The longest wait for any one answer before the run is declared broken.
constexpr auto kBound = 60s;
// The longest a whole push may take.
constexpr auto kPushBound = 600s;

struct Options {
    int subscribers = 200;
    std::uint32_t updates = 200;
    std::uint32_t window = 64;
    // Tasks the subscribers share: each serves its clients' sockets on its own thread.
    int tasks = 4;
    std::string vellmarkd = VELLMARKD_PATH;
};

void Fail(std::string const& what) {
    throw std::runtime_error(what);
}

double Percentile(std::vector<double> values, double fraction) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    auto const index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
    return values[index];
}

// The service's resident memory (kB) and open descriptors, read from /proc.
struct Usage {
    long rssKb = 0;
    long fds = 0;
};

Usage UsageOf(pid_t pid) {
    Usage usage;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) usage.rssKb = std::stol(line.substr(6));
    }
    std::error_code error;
    for (auto it =
             std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        ++usage.fds;
    }
    return usage;
}

// A count that callbacks raise on their tasks and the main thread waits on.
class Count {
public:
    void Add(std::uint64_t n = 1) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_value += n;
        m_changed.notify_all();
    }
    std::uint64_t Value() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_value;
    }
    bool WaitFor(std::uint64_t value, std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, bound, [&] { return m_value >= value; });
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_value = 0;
};

// Samples the service's usage until stopped, keeping the peak.
class PeakSampler {
public:
    explicit PeakSampler(pid_t pid) : m_thread([this, pid] { Run(pid); }) {}
    ~PeakSampler() { Stop(); }
    Usage Stop() {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        return m_peak;
    }

private:
    void Run(pid_t pid) {
        while (!m_stop) {
            Usage const now = UsageOf(pid);
            m_peak.rssKb = std::max(m_peak.rssKb, now.rssKb);
            m_peak.fds = std::max(m_peak.fds, now.fds);
            std::this_thread::sleep_for(20ms);
        }
    }
    std::atomic<bool> m_stop{false};
    Usage m_peak;
    std::thread m_thread;
};

// Asks GetSources on its own task, one after the other, until stopped; keeps each round trip.
// A push goes to every connection and ends once each has acknowledged it, so the bystander
// subscribes too (its library acknowledges the updates); they are not counted.
class Bystander {
public:
    Bystander() : m_task("bystander"), m_client(&m_task) {
        m_client.SubscribeSourcesRequest("", [](VellmarkPB::sources const&) {});
    }
    ~Bystander() {
        Stop();
        m_task.Stop();
    }

    // Waits for one answer: the client is connected.
    bool Ready() { return Ask(); }
    void Start() {
        m_thread = std::thread([this] {
            while (!m_stop) {
                auto const start = Clock::now();
                if (!Ask()) return;
                m_samples.push_back(std::chrono::duration<double>(Clock::now() - start).count());
            }
        });
    }
    std::vector<double> Stop() {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        return m_samples;
    }

private:
    bool Ask() {
        std::uint64_t const next = m_answers.Value() + 1;
        m_client.GetSources([this](VellmarkPB::sources const&) { m_answers.Add(); });
        return m_answers.WaitFor(next, kBound);
    }

    IL::Task m_task;
    VellmarkClientAPI m_client;
    Count m_answers;
    std::atomic<bool> m_stop{false};
    std::vector<double> m_samples;
    std::thread m_thread;
};

// The subscribers: clients of the library on a few shared tasks, each subscribed to the
// sources and counting the updates that reach it (the library acknowledges each).
class Subscribers {
public:
    Subscribers(int count, int tasks) {
        for (int i = 0; i < tasks; ++i) {
            m_tasks.push_back(std::make_unique<IL::Task>("subscribers " + std::to_string(i)));
        }
        for (int i = 0; i < count; ++i) {
            auto& task = *m_tasks[static_cast<std::size_t>(i % tasks)];
            m_clients.push_back(std::make_unique<VellmarkClientAPI>(&task));
            m_clients.back()->SubscribeSourcesRequest(
                "", [this](VellmarkPB::sources const&) { m_updates.Add(); });
            // Answered after the subscription, which the service handles first.
            m_clients.back()->GetSources([this](VellmarkPB::sources const&) { m_ready.Add(); });
        }
    }
    ~Subscribers() { Leave(); }

    bool Ready() { return m_ready.WaitFor(m_clients.size(), kBound); }
    std::uint64_t Updates() const { return m_updates.Value(); }
    bool WaitForUpdates(std::uint64_t count) { return m_updates.WaitFor(count, kBound); }
    // Ends every connection: the clients go, then their tasks.
    void Leave() {
        m_clients.clear();
        for (auto& task : m_tasks) task->Stop();
        m_tasks.clear();
    }

private:
    Count m_updates;
    Count m_ready;
    std::vector<std::unique_ptr<IL::Task>> m_tasks;
    std::vector<std::unique_ptr<VellmarkClientAPI>> m_clients;
};

int Run(Options const& options) {
    auto const connections = std::to_string(options.subscribers + 16);
    ServiceProcess service(options.vellmarkd,
                           {"--max-connections-per-user", connections, "--max-connections",
                            std::to_string(std::max(512, options.subscribers + 16))});
    IPCDirectory::Get().SetRuntimeFolder(service.Folder());
    Vellmark::Admin::AdminClient admin(kPushBound);
    auto bystander = std::make_unique<Bystander>();
    if (!bystander->Ready()) Fail("vellmarkd did not answer; its log:\n" + service.LogTail());
    Usage const before = UsageOf(service.Pid());

    PeakSampler sampler(service.Pid());
    auto subscribers = std::make_unique<Subscribers>(options.subscribers, options.tasks);
    if (!subscribers->Ready()) Fail("the subscribers did not all connect within 60 s");
    std::uint64_t const initial = subscribers->Updates();
    std::printf(
        "load_bench: %d subscribers, %u updates each (window %u), a bystander asking "
        "GetSources\n",
        options.subscribers, options.updates, options.window);

    bystander->Start();
    Vellmark::Admin::Request request;
    request.mutable_push()->set_resource("sources");
    request.mutable_push()->set_count(options.updates);
    request.mutable_push()->set_window(options.window);
    auto const start = Clock::now();
    Vellmark::Admin::PushReport report;
    std::string const problem = Vellmark::Json::Parse(admin.Command(request), report);
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!problem.empty()) Fail("the push's report does not parse: " + problem);
    std::uint64_t const expected =
        static_cast<std::uint64_t>(options.subscribers) * options.updates;
    // Every update acknowledged has reached its client; the callbacks may still be running.
    subscribers->WaitForUpdates(initial + std::min<std::uint64_t>(expected, report.acknowledged()));
    std::uint64_t const delivered = subscribers->Updates() - initial;
    auto const samples = bystander->Stop();

    subscribers.reset();
    // The service lets go of the connections as it sees them close.
    Usage after = UsageOf(service.Pid());
    for (auto const deadline = Clock::now() + kBound;
         after.fds > before.fds && Clock::now() < deadline; after = UsageOf(service.Pid())) {
        std::this_thread::sleep_for(20ms);
    }
    Usage const peak = sampler.Stop();

    double const medianUs = Percentile(samples, 0.5) * 1e6;
    double const p99Us = Percentile(samples, 0.99) * 1e6;
    std::printf("  delivered %llu of %llu updates (%llu acknowledged) in %.2f s: %.0f updates/s\n",
                static_cast<unsigned long long>(delivered),
                static_cast<unsigned long long>(expected),
                static_cast<unsigned long long>(report.acknowledged()), seconds,
                static_cast<double>(delivered) / seconds);
    std::printf("  bystander: %zu GetSources, median %.0f us, p99 %.0f us\n", samples.size(),
                medianUs, p99Us);
    std::printf("  service rss: before %ld kB, peak %ld kB, after %ld kB\n", before.rssKb,
                peak.rssKb, after.rssKb);
    std::printf("  service descriptors: before %ld, peak %ld, after %ld\n", before.fds, peak.fds,
                after.fds);
    std::printf(
        "summary: load clients=%d delivered=%llu expected=%llu bystander_p99_us=%.0f "
        "rss_growth_kb=%ld fds_back=%s\n",
        options.subscribers, static_cast<unsigned long long>(delivered),
        static_cast<unsigned long long>(expected), p99Us, after.rssKb - before.rssKb,
        after.fds <= before.fds ? "yes" : "no");
    return delivered == expected ? 0 : 1;
}

}  // namespace
}  // namespace Vellmark::Bench

int main(int argc, char** argv) {
    using namespace Vellmark::Bench;
    CLI::App app(
        "load_bench: vellmarkd, in another process, pushing updates to many subscribers while "
        "a bystander asks GetSources. Ends with one \"summary: load\" line.");
    Options options;
    app.add_option("--subscribers", options.subscribers, "clients subscribed to the sources")
        ->capture_default_str()
        ->check(CLI::Range(1, 5000));
    app.add_option("--updates", options.updates, "updates pushed to each subscriber")
        ->capture_default_str()
        ->check(CLI::Range(1u, 10000000u));
    app.add_option("--window", options.window, "unacknowledged updates per subscriber at most")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000u));
    app.add_option("--tasks", options.tasks, "tasks the subscribers share")
        ->capture_default_str()
        ->check(CLI::Range(1, 64));
    app.add_option("--vellmarkd", options.vellmarkd, "the service program")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try {
        return Run(options);
    } catch (std::exception const& e) {
        std::fprintf(stderr, "load_bench: %s\n", e.what());
        return 1;
    }
}
