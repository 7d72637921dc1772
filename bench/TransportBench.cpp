// transport_bench: what the IPC transport and the client cost on this machine, against an
// in-process "Vellmark" server in a temporary runtime folder.
//
// - ClientGetSources: one GetSources answered with 10 sources, from the calling thread
//   through the client's task, the socket and the server back to the calling thread.
// - SocketPairFloor: the same request and response bytes ping-ponged between two threads
//   over a socket pair: what the round trip would cost with no framework at all.
// - Notifications: source updates pushed by the server, each delivered to the subscriber
//   and acknowledged back to the server.
// - TaskPingPong, SourcesParse, SourcesCopy, ReplyEncode: the parts of the round trip
//   alone (a hop to a task and back, and the protobuf work done per reply), to show where
//   the client's time goes beyond the floor.
// Latencies are kept per iteration and reported as median and 99th percentile; a plain
// summary follows Google Benchmark's table. Google Benchmark's flags apply (--help).
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "VellmarkSources.pb.h"
#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCServer.h"
#include "platform/ipc/transport/FrameCodec.h"
#include "platform/ipc/transport/FramedConnection.h"
#include "platform/task/BreakThread.h"
#include "platform/task/Task.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// The longest wait for any answer before the run is declared broken.
constexpr auto kBound = 10s;
constexpr int kSourceCount = 10;
// Untimed round trips before each latency run, so that caches, allocators and the
// scheduler have settled.
constexpr int kWarmUpRoundTrips = 500;
// Untimed notifications before the throughput run, for the same reason.
constexpr std::uint64_t kWarmUpNotifications = 1000;
// The request number put in the floor's frames: about where the client's numbering is
// during the timed run, so the varint has the same length.
constexpr std::uint64_t kSampleRequestNumber = 20000;

// --- Payloads ---------------------------------------------------------------------------

// Deterministic text that looks like an access token: base64 characters.
std::string TokenText(std::size_t length, unsigned seed) {
    static char const kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve(length);
    std::uint32_t state = 2654435761u * (seed + 1);
    for (std::size_t i = 0; i < length; ++i) {
        state = state * 1664525u + 1013904223u;
        text.push_back(kAlphabet[(state >> 24) % 64]);
    }
    return text;
}

std::string Uuid(unsigned group, unsigned index) {
    char text[40];
    std::snprintf(text, sizeof text, "%08x-4c7a-4e21-9b3d-%012u", 0x3f6c2a1eu + group,
                  100000u + index);
    return text;
}

// Sources as the service holds them for a household: every field a real source carries.
VellmarkPB::sources MakeSources(int count) {
    struct Provider {
        char const* type;
        char const* id;
        char const* name;
    };
    static Provider const kProviders[] = {{"MUSIC_SERVICE", "15", "Spotify"},
                                          {"MUSIC_SERVICE", "25", "Deezer"},
                                          {"RADIO", "11", "TuneIn"},
                                          {"MUSIC_SERVICE", "36", "Amazon Music"},
                                          {"VOICE_ASSISTANT", "40", "Assistant"}};
    VellmarkPB::sources sources;
    for (int i = 0; i < count; ++i) {
        auto const index = static_cast<unsigned>(i);
        Provider const& provider = kProviders[index % 5];
        auto& source = *sources.add_source();
        source.set_id(Uuid(0, index));
        source.set_type(provider.type);
        source.mutable_credential()->set_type("token_version_3");
        source.mutable_credential()->set_text(TokenText(180, index));
        source.mutable_name()->set_text("user" + std::to_string(i) + "@example.com");
        source.mutable_username()->set_text("Household member " + std::to_string(i));
        source.mutable_sourceproviderid()->set_text(provider.id);
        source.mutable_sourcename()->set_text(provider.name);
        auto& settings = *source.mutable_sourcesettings();
        auto& explicitContent = *settings.add_source_setting();
        explicitContent.mutable_keyname()->set_text("explicitContentFilter");
        explicitContent.mutable_value()->set_text(i % 2 ? "true" : "false");
        auto& quality = *settings.add_source_setting();
        quality.mutable_keyname()->set_text("streamingQuality");
        quality.mutable_value()->set_text("HIGH");
        source.mutable_accountid()->set_text(Uuid(1, index));
        source.mutable_updatedon()->set_text("2024-05-17T09:12:44.512Z");
        source.mutable_createdon()->set_text("2023-11-02T18:40:03.087Z");
        source.set_tarvpersonid(Uuid(2, index % 3));
    }
    return sources;
}

// The bytes one frame takes on the socket, built as the router and the server build it.
std::string FrameBytes(Tarv::IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
                       IPCMessageEnvelope const& envelope) {
    std::string bytes;
    Tarv::AppendFrame(Tarv::MakeFrame(kind, id, envelope.Base(), number), bytes);
    return bytes;
}

// --- Results ----------------------------------------------------------------------------

struct Latency {
    double medianUs = 0;
    double p99Us = 0;
};

struct Results {
    std::optional<Latency> client;
    std::optional<Latency> floor;
    std::optional<Latency> taskHop;
    std::optional<double> notificationsPerSecond;
    // Single-threaded costs of the per-reply work, in microseconds.
    std::optional<double> parseUs;
    std::optional<double> copyUs;
    std::optional<double> encodeUs;
};
Results g_results;

// Nearest-rank percentiles of the samples (seconds), in microseconds.
Latency Summarize(std::vector<double> samples) {
    Latency latency;
    if (samples.empty()) return latency;
    std::sort(samples.begin(), samples.end());
    auto rank = [&](double fraction) {
        auto const n = static_cast<double>(samples.size());
        auto index = static_cast<std::size_t>(fraction * n + 0.999999);
        index = std::clamp<std::size_t>(index, 1, samples.size());
        return samples[index - 1] * 1e6;
    };
    latency.medianUs = rank(0.5);
    latency.p99Us = rank(0.99);
    return latency;
}

void Report(benchmark::State& state, std::vector<double> const& samples,
            std::optional<Latency>& into) {
    if (state.error_occurred() || samples.empty()) return;
    Latency const latency = Summarize(samples);
    state.counters["median_us"] = latency.medianUs;
    state.counters["p99_us"] = latency.p99Us;
    into = latency;
}

// --- The client and its server ----------------------------------------------------------

// A count that other threads raise and one thread waits on.
class Tally {
public:
    void Add() {
        std::uint64_t reached;
        std::uint64_t awaited;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            reached = ++m_count;
            awaited = m_awaited;
        }
        // Only the increment the waiter asked for wakes it: waking on every one would
        // make the waiting thread compete with the threads being measured.
        if (reached == awaited) m_reached.notify_one();
    }
    std::uint64_t Count() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }
    // True once the count is at least `count`; false if kBound passed first.
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

// A temporary runtime folder that the directory uses while the object lives.
class RuntimeFolder {
public:
    RuntimeFolder() {
        char pattern[] = "/tmp/vellmark-bench-XXXXXX";
        if (char const* made = ::mkdtemp(pattern)) m_path = made;
        if (!m_path.empty()) IPCDirectory::Get().SetRuntimeFolder(m_path);
    }
    ~RuntimeFolder() {
        if (m_path.empty()) return;
        IPCDirectory::Get().SetRuntimeFolder("");
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    RuntimeFolder(RuntimeFolder const&) = delete;
    RuntimeFolder& operator=(RuntimeFolder const&) = delete;

    std::string const& Path() const { return m_path; }

private:
    std::string m_path;
};

// The server, the task and the client, with the counters their callbacks raise.
class Bench {
public:
    Bench()
        : m_sources(Envelope(MakeSources(kSourceCount))),
          m_requestFrame(FrameBytes(Tarv::IPCFrame::REQUEST,
                                    VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, kSampleRequestNumber,
                                    Envelope(VellmarkPB::sources()))),  // the query sends none
          m_responseFrame(FrameBytes(Tarv::IPCFrame::RESPONSE,
                                     VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES, kSampleRequestNumber,
                                     m_sources)),
          m_updateFrame(FrameBytes(Tarv::IPCFrame::NOTIFICATION,
                                   VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE, 0, m_sources)),
          m_onReply([this](VellmarkPB::sources const& sources) {
              m_lastReplySize.store(sources.source_size(), std::memory_order_relaxed);
              m_replies.Add();
          }),
          m_server("Vellmark", Handlers()),
          m_task("bench"),
          m_client(std::make_unique<VellmarkClientAPI>(&m_task)) {}

    // The client goes before the task that runs its callbacks, the server last.
    ~Bench() {
        m_client.reset();
        m_task.Stop();
        m_server.Stop();
    }
    Bench(Bench const&) = delete;
    Bench& operator=(Bench const&) = delete;

    // Subscribes to source updates and waits for the first GetSources answer: once it is
    // in, the client is connected and, since its task works in order, the subscription is
    // attached. An error message if not.
    std::optional<std::string> Prepare() {
        m_client->SubscribeSourcesRequest("", [this](VellmarkPB::sources const&) {
            m_delivered.fetch_add(1, std::memory_order_relaxed);
        });
        if (!RoundTrip()) {
            return "no answer to GetSources within 10 s: the client did not connect to " +
                   IPCDirectory::Get().Lookup("Vellmark")->Path();
        }
        if (m_lastReplySize.load() != kSourceCount) {
            return "GetSources answered with " + std::to_string(m_lastReplySize.load()) +
                   " sources instead of " + std::to_string(kSourceCount);
        }
        auto const sessions = m_server.Sessions();
        if (sessions.size() != 1) {
            return "the server has " + std::to_string(sessions.size()) +
                   " connections instead of 1";
        }
        m_session = sessions.front();
        return std::nullopt;
    }

    // One GetSources, from the call until its callback has run on the task and woken this
    // thread. False if no answer came within kBound.
    bool RoundTrip() {
        std::uint64_t const awaited = m_replies.Count() + 1;
        m_client->GetSources(m_onReply);
        return m_replies.WaitFor(awaited);
    }

    // Pushes `count` source updates and waits until the subscriber has had each and the
    // server has each acknowledgement. False if the connection dropped an update or the
    // acknowledgements stopped coming.
    bool PushUpdates(std::uint64_t count) {
        // At most `window` updates are unacknowledged at any time: up to 500, and no more
        // than a quarter of the 4 MiB send queue's worth (200 of these 5 KB updates). Without
        // that bound the server would queue updates far faster than the client takes them
        // in, and once its send queue for the connection passed 4 MiB it would drop the
        // client as a peer that does not read. Sending in batches inside the window keeps
        // the pipeline full while measuring the steady rate, not a burst into buffers.
        std::uint64_t const window = std::clamp<std::uint64_t>(
            Tarv::ConnectionLimits::kMaxQueuedBytes / 4 / m_updateFrame.size(), 2, 500);
        std::uint64_t const batch = std::max<std::uint64_t>(window / 5, 1);
        std::uint64_t const base = m_acks.Count();
        std::uint64_t const deliveredBase = m_delivered.load();
        std::uint64_t sent = 0;
        while (sent < count) {
            std::uint64_t const batchEnd = std::min(count, sent + batch);
            if (batchEnd > window && !m_acks.WaitFor(base + batchEnd - window)) return false;
            for (; sent < batchEnd; ++sent) {
                if (!m_session->Notify(VellmarkPB::VELLMARK_MESSAGE_SOURCES_UPDATE, m_sources)) {
                    return false;
                }
            }
        }
        if (!m_acks.WaitFor(base + count)) return false;
        // Each acknowledgement follows its subscriber call, so all were delivered.
        return m_delivered.load() - deliveredBase == count;
    }

    IPCMessageEnvelope const& SourcesEnvelope() const { return m_sources; }
    std::string const& RequestFrame() const { return m_requestFrame; }
    std::string const& ResponseFrame() const { return m_responseFrame; }
    std::string const& UpdateFrame() const { return m_updateFrame; }

private:
    IPCServer::Handlers Handlers() {
        IPCServer::Handlers handlers;
        handlers.onRequest = [this](IPCRequest const& request) {
            if (request.id == VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES) request.Respond(m_sources);
        };
        handlers.onMessage = [this](IPCServer::SessionPtr const&, unsigned int id,
                                    IPCMessageEnvelope const&) {
            if (id == VellmarkPB::VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED) m_acks.Add();
        };
        return handlers;
    }

    static IPCMessageEnvelope Envelope(google::protobuf::Message const& payload) {
        IPCMessageEnvelope envelope;
        envelope.SetPayload(payload);
        return envelope;
    }

    // Used by the server's and the client's callbacks: declared, so made, before them.
    // The same sources answer every query and make every update.
    IPCMessageEnvelope const m_sources;
    std::string const m_requestFrame;
    std::string const m_responseFrame;
    std::string const m_updateFrame;
    Tally m_replies;
    Tally m_acks;
    std::atomic<std::uint64_t> m_delivered{0};
    std::atomic<int> m_lastReplySize{0};
    Callback<VellmarkPB::sources> const m_onReply;

    IPCServer m_server;
    IL::Task m_task;
    std::unique_ptr<VellmarkClientAPI> m_client;
    IPCServer::SessionPtr m_session;
};

Bench* g_bench = nullptr;

// --- Socket-pair floor ------------------------------------------------------------------

bool WriteAll(int fd, std::string const& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool ReadExactly(int fd, char* buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t const n = ::recv(fd, buffer + done, size - done, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// --- Benchmarks -------------------------------------------------------------------------

// Runs `roundTrip` untimed kWarmUpRoundTrips times, then once per iteration, timing each;
// stores the median and 99th percentile in `into`. `failure` names a round trip that
// returned false.
template <class RoundTrip>
void MeasureRoundTrips(benchmark::State& state, char const* failure, std::optional<Latency>& into,
                       RoundTrip roundTrip) {
    for (int i = 0; i < kWarmUpRoundTrips; ++i) {
        if (!roundTrip()) {
            state.SkipWithError(failure);
            return;
        }
    }
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        auto const start = Clock::now();
        bool const completed = roundTrip();
        auto const end = Clock::now();
        if (!completed) {
            state.SkipWithError(failure);
            break;
        }
        double const seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        samples.push_back(seconds);
    }
    Report(state, samples, into);
}

void ClientGetSources(benchmark::State& state) {
    MeasureRoundTrips(state, "no answer to GetSources within 10 s", g_results.client,
                      [] { return g_bench->RoundTrip(); });
}

void SocketPairFloor(benchmark::State& state) {
    std::string const& request = g_bench->RequestFrame();
    std::string const& response = g_bench->ResponseFrame();
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        state.SkipWithError("socketpair failed");
        return;
    }
    // The answering side: takes a whole request, sends back a whole response, until the
    // other side shuts its end.
    std::thread peer([fd = fds[1], &request, &response] {
        std::string in(request.size(), '\0');
        while (ReadExactly(fd, in.data(), in.size()) && WriteAll(fd, response)) {
        }
        ::shutdown(fd, SHUT_RDWR);  // so that a waiting reader sees the end
    });
    std::string in(response.size(), '\0');
    MeasureRoundTrips(state, "socket pair ping-pong failed", g_results.floor, [&] {
        return WriteAll(fds[0], request) && ReadExactly(fds[0], in.data(), in.size());
    });
    ::shutdown(fds[0], SHUT_WR);
    peer.join();
    ::close(fds[0]);
    ::close(fds[1]);
}

// Each iteration pushes range(0) updates and waits for all of them to be delivered and
// acknowledged.
void Notifications(benchmark::State& state) {
    Bench& bench = *g_bench;
    auto const count = static_cast<std::uint64_t>(state.range(0));
    if (!bench.PushUpdates(kWarmUpNotifications)) {
        state.SkipWithError("updates lost or not acknowledged within 10 s");
        return;
    }
    double total = 0;
    std::uint64_t pushed = 0;
    for (auto _ : state) {
        auto const start = Clock::now();
        bool const done = bench.PushUpdates(count);
        auto const end = Clock::now();
        if (!done) {
            state.SkipWithError("updates lost or not acknowledged within 10 s");
            break;
        }
        double const seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        total += seconds;
        pushed += count;
    }
    if (state.error_occurred() || total <= 0) return;
    double const rate = static_cast<double>(pushed) / total;
    state.counters["notifications_per_s"] = rate;
    g_results.notificationsPerSecond = rate;
}

// A hop to a task and back, with no work: an entry posted to an IL::Task wakes the poster.
// The client's round trip takes this pair of hops on top of the socket's.
void TaskPingPong(benchmark::State& state) {
    IL::Task task("bench-hop");
    Tally ran;
    std::function<void()> const signal = [&ran] { ran.Add(); };
    MeasureRoundTrips(state, "the task did not run an entry within 10 s", g_results.taskHop, [&] {
        std::uint64_t const awaited = ran.Count() + 1;
        IL::BreakThread(signal, &task);
        return ran.WaitFor(awaited);
    });
    task.Stop();
}

// The work each reply takes besides moving bytes, measured alone on one thread.

// Times the whole loop of `state` around `body`, and stores the mean in `into`.
template <class Body>
void TimeEach(benchmark::State& state, std::optional<double>& into, Body body) {
    auto const start = Clock::now();
    for (auto _ : state) body();
    auto const end = Clock::now();
    if (state.iterations() > 0) {
        into = std::chrono::duration<double, std::micro>(end - start).count() /
               static_cast<double>(state.iterations());
    }
}

// The router on the IO thread: the payload parsed into a new message, later destroyed.
void SourcesParse(benchmark::State& state) {
    IPCMessageEnvelope const& envelope = g_bench->SourcesEnvelope();
    TimeEach(state, g_results.parseUs, [&] {
        VellmarkPB::sources message;
        envelope.GetPayload(message);
        benchmark::DoNotOptimize(message);
    });
}

// AsyncCallback's entry: its own copy of the parsed message, destroyed on the task.
void SourcesCopy(benchmark::State& state) {
    VellmarkPB::sources parsed;
    g_bench->SourcesEnvelope().GetPayload(parsed);
    TimeEach(state, g_results.copyUs, [&] {
        VellmarkPB::sources copy(parsed);
        benchmark::DoNotOptimize(copy);
    });
}

// The server's answer: the envelope copied into a frame, then encoded.
void ReplyEncode(benchmark::State& state) {
    IPCMessageEnvelope const& envelope = g_bench->SourcesEnvelope();
    TimeEach(state, g_results.encodeUs, [&] {
        std::string bytes =
            FrameBytes(Tarv::IPCFrame::RESPONSE, VellmarkPB::VELLMARK_MESSAGE_GET_SOURCES,
                       kSampleRequestNumber, envelope);
        benchmark::DoNotOptimize(bytes);
    });
}

BENCHMARK(ClientGetSources)->Iterations(20000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(SocketPairFloor)->Iterations(20000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(Notifications)->Arg(20000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(TaskPingPong)->Iterations(20000)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(SourcesParse)->MinTime(0.2)->Unit(benchmark::kMicrosecond);
BENCHMARK(SourcesCopy)->MinTime(0.2)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReplyEncode)->MinTime(0.2)->Unit(benchmark::kMicrosecond);

void PrintSummary(Bench const& bench) {
    if (!g_results.client && !g_results.floor && !g_results.notificationsPerSecond) return;
    std::printf("\nFrames: request %zu bytes, response %zu bytes, update %zu bytes (%d sources)\n",
                bench.RequestFrame().size(), bench.ResponseFrame().size(),
                bench.UpdateFrame().size(), kSourceCount);
    if (g_results.client) {
        std::printf("GetSources round trip (client, %d sources): median %.1f us, p99 %.1f us\n",
                    kSourceCount, g_results.client->medianUs, g_results.client->p99Us);
    }
    if (g_results.floor) {
        std::printf("Socket-pair ping-pong floor (same bytes):   median %.1f us, p99 %.1f us\n",
                    g_results.floor->medianUs, g_results.floor->p99Us);
    }
    if (g_results.client && g_results.floor && g_results.floor->medianUs > 0 &&
        g_results.floor->p99Us > 0) {
        std::printf("Ratio client/floor: median %.2fx, p99 %.2fx\n",
                    g_results.client->medianUs / g_results.floor->medianUs,
                    g_results.client->p99Us / g_results.floor->p99Us);
    }
    if (g_results.notificationsPerSecond) {
        std::printf("Notifications delivered with acknowledgement: %.0f /s\n",
                    *g_results.notificationsPerSecond);
    }
    if (g_results.taskHop) {
        std::printf("Task hop and back (no work):                median %.1f us, p99 %.1f us\n",
                    g_results.taskHop->medianUs, g_results.taskHop->p99Us);
    }
    if (g_results.parseUs && g_results.copyUs && g_results.encodeUs) {
        std::printf(
            "Per reply, alone on one thread: parse %.1f us, copy %.1f us, "
            "server frame encode %.1f us\n",
            *g_results.parseUs, *g_results.copyUs, *g_results.encodeUs);
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    RuntimeFolder folder;
    if (folder.Path().empty()) {
        std::fprintf(stderr, "transport_bench: cannot make a runtime folder under /tmp\n");
        return 1;
    }
    int status = 0;
    try {
        Bench bench;
        if (auto const error = bench.Prepare()) {
            std::fprintf(stderr, "transport_bench: %s\n", error->c_str());
            status = 1;
        } else {
            g_bench = &bench;
            benchmark::RunSpecifiedBenchmarks();
            g_bench = nullptr;
            PrintSummary(bench);
        }
    } catch (std::system_error const& e) {
        std::fprintf(stderr, "transport_bench: cannot serve Vellmark: %s\n", e.what());
        status = 1;
    }
    benchmark::Shutdown();
    return status;
}
