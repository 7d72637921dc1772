// A router made for an IL::Task reads on the task's own loop: every handler runs on the task's
// thread, and the task's end closes what is still open there. So does a server given a
// task's loop, and a listener whose connections go to such a task.
#include <thread>

#include "VellmarkSources.pb.h"
#include "framework/AsyncCallback.h"
#include "platform/ipc/IPCLog.h"
#include "platform/task/BreakThread.h"
#include "platform/task/Task.h"
#include "tests/integration/transport/TransportTestSupport.h"

namespace Tarv::TransportTest {
namespace {

class TaskLoop : public ::testing::Test {
protected:
    // Waits for the client's connection and makes its router for `task`.
    std::shared_ptr<IPCMessageRouterIF> RouterOn(IL::Task& task) {
        if (!client.sockets.WaitFor(1)) return nullptr;
        socket = client.sockets.At(0);
        auto router = IPCMessageRouterFactory::CreateRouter("task-router", &task, socket);
        if (router) {
            router->SetDisconnectHandler(
                socket, [this] { disconnectThreads.Put(std::this_thread::get_id()); });
        }
        return router;
    }

    // The thread a function posted to `task` runs on.
    static std::thread::id ThreadOf(IL::Task& task) {
        Inbox<std::thread::id> seen;
        IL::BreakThread([&] { seen.Put(std::this_thread::get_id()); }, &task);
        return seen.WaitFor(1) ? seen.At(0) : std::thread::id();
    }

    RuntimeFolder folder;
    ScriptedServer service{{}, Echo};
    ClientEnd client;
    std::shared_ptr<Network::ConnectorSocket> socket;
    Inbox<std::thread::id> disconnectThreads;
};

TEST_F(TaskLoop, AResponseIsHandledAndDeliveredOnTheTasksThread) {
    IL::Task task("loop-request");
    auto router = RouterOn(task);
    ASSERT_NE(router, nullptr);
    Inbox<std::thread::id> handlerThreads;
    Inbox<std::pair<int, std::thread::id>> delivered;
    AsyncCallback<VellmarkPB::sources> callback(
        [&](VellmarkPB::sources const& sources) {
            delivered.Put({sources.source_size(), std::this_thread::get_id()});
        },
        &task);
    VellmarkPB::sources question;
    question.add_source()->set_id("echoed");
    router->SendEnvelopeRequest(
        1,
        [&] {
            IPCMessageEnvelope envelope;
            envelope.SetPayload(question);
            return envelope;
        }(),
        [&](IPCMessageEnvelope const& response) {
            handlerThreads.Put(std::this_thread::get_id());
            router->CallbackHelper(response, callback);
        });
    ASSERT_TRUE(delivered.WaitFor(1));
    EXPECT_EQ(delivered.At(0).first, 1);
    EXPECT_EQ(handlerThreads.At(0), task.ThreadId());
    EXPECT_EQ(delivered.At(0).second, task.ThreadId());
    router->Stop();
}

TEST_F(TaskLoop, AnUpdateIsHandledOnTheTasksThread) {
    IL::Task task("loop-update");
    auto router = RouterOn(task);
    ASSERT_NE(router, nullptr);
    Inbox<std::pair<std::string, std::thread::id>> updates;
    router->AttachEnvelopeHandler(7, [&](IPCMessageEnvelope const& update) {
        updates.Put({update.payload(), std::this_thread::get_id()});
    });
    ASSERT_TRUE(service.connected.WaitFor(1));
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(service.connected.At(0)->Notify(7, Bytes("update " + std::to_string(i))));
    }
    ASSERT_TRUE(updates.WaitFor(20));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(updates.At(i).first, "update " + std::to_string(i));
        EXPECT_EQ(updates.At(i).second, task.ThreadId());
    }
    router->Stop();
}

TEST_F(TaskLoop, ALostConnectionIsReportedOnTheTasksThread) {
    IL::Task task("loop-lost");
    auto router = RouterOn(task);
    ASSERT_NE(router, nullptr);
    ASSERT_TRUE(service.connected.WaitFor(1));
    service.connected.At(0)->Close();
    ASSERT_TRUE(disconnectThreads.WaitFor(1));
    EXPECT_EQ(disconnectThreads.At(0), task.ThreadId());
    EXPECT_FALSE(router->IsOpen());
}

TEST_F(TaskLoop, StopFromAnotherThreadEndsDeliveriesWhileFramesKeepComing) {
    IL::Task task("loop-stop");
    auto router = RouterOn(task);
    ASSERT_NE(router, nullptr);
    std::atomic<int> delivered{0};
    std::atomic<bool> stopped{false};
    std::atomic<int> afterStop{0};
    router->AttachEnvelopeHandler(7, [&](IPCMessageEnvelope const&) {
        ++delivered;
        if (stopped) ++afterStop;
    });
    ASSERT_TRUE(service.connected.WaitFor(1));
    auto session = service.connected.At(0);
    std::thread pushing([&] {
        while (session->Notify(7, Bytes("update"))) {
        }
    });
    while (delivered.load() < 50) std::this_thread::yield();
    router->Stop();
    stopped = true;
    EXPECT_TRUE(service.disconnected.WaitFor(1));  // the service sees the connection go
    pushing.join();
    EXPECT_EQ(afterStop.load(), 0);
    EXPECT_EQ(ThreadOf(task), task.ThreadId());  // the task goes on serving
}

TEST_F(TaskLoop, StoppingTheTaskClosesTheConnectionStillOnItsLoop) {
    std::shared_ptr<IPCMessageRouterIF> router;
    std::thread::id taskThread;
    {
        IL::Task task("loop-ended");
        taskThread = task.ThreadId();
        router = RouterOn(task);
        ASSERT_NE(router, nullptr);
        ASSERT_TRUE(service.connected.WaitFor(1));
        task.Stop();
        // The task's end closed the socket: the service sees the client go.
        ASSERT_TRUE(service.disconnected.WaitFor(1));
    }
    // The router outlives its task and its loop; using and dropping it is harmless.
    EXPECT_FALSE(router->IsOpen());
    EXPECT_FALSE(router->SendEnvelope(7, Bytes("late")));
    router->Stop();
    router.reset();
    socket.reset();
    // The loss was reported once, by the task's thread as it ended (a client's handler is
    // an AsyncCallback on that task, inert by then).
    ASSERT_EQ(disconnectThreads.Size(), 1u);
    EXPECT_EQ(disconnectThreads.At(0), taskThread);
}

TEST(TaskLoopServer, AServerOnATasksLoopRunsItsHandlersOnTheTasksThread) {
    RuntimeFolder folder;
    IL::Task task("loop-server");
    IPCServer::Options options;
    options.loop = task.Loop();
    Inbox<std::thread::id> handlerThreads;
    ScriptedServer service(options, [&](IPCRequest const& request) {
        handlerThreads.Put(std::this_thread::get_id());
        Echo(request);
    });
    ClientEnd client;
    auto router = client.Connect();
    ASSERT_NE(router, nullptr);
    EXPECT_EQ(Ask(*router, 3, "ping"), "ping");
    EXPECT_EQ(handlerThreads.At(0), task.ThreadId());

    // The task ends first: the server stops serving with it, its client sees the end, and
    // stopping the server afterwards returns at once.
    task.Stop();
    ASSERT_TRUE(client.disconnects.WaitFor(1));
    service.server->Stop();
}

// A client counts its connection made once it waits in the server's backlog; the server's
// loop may not have accepted it yet. AcceptWaiting takes those in at once: here the loop is
// kept busy by the very work that connects, so none could have been accepted before.
TEST(TaskLoopServer, AcceptWaitingTakesInTheConnectionsTheLoopHasNotAcceptedYet) {
    RuntimeFolder folder;
    IL::Task task("loop-backlog");
    IPCServer::Options options;
    options.loop = task.Loop();
    ScriptedServer service(options, Echo);
    Inbox<std::size_t> counts;
    std::vector<std::unique_ptr<RawClient>> clients;
    IL::BreakThread(
        [&] {
            for (int i = 0; i < 3; ++i) clients.push_back(std::make_unique<RawClient>());
            counts.Put(service.server->Sessions().size());
            counts.Put(service.server->AcceptWaiting());
            counts.Put(service.server->Sessions().size());
            counts.Put(service.server->AcceptWaiting());
        },
        &task);
    ASSERT_TRUE(counts.WaitFor(4));
    for (auto const& client : clients) EXPECT_TRUE(client->connected);
    EXPECT_EQ(counts.At(0), 0u);
    EXPECT_EQ(counts.At(1), 3u);
    EXPECT_EQ(counts.At(2), 3u);
    EXPECT_EQ(counts.At(3), 0u);
    EXPECT_TRUE(service.connected.WaitFor(3));
    // Off the loop's thread it takes nothing in.
    RawClient late;
    ASSERT_TRUE(late.connected);
    EXPECT_EQ(service.server->AcceptWaiting(), 0u);
    EXPECT_TRUE(service.connected.WaitFor(4));
    service.server->Stop();
}

// The thread of every IPC log line whose text holds `part`, while the object lives.
class IpcLineThreads {
public:
    explicit IpcLineThreads(std::string part)
        : m_part(std::move(part)), m_threshold(IPCLog().Threshold()) {
        IPCLog().SetThreshold(DPrint::Info);
        m_previous = DPrint::SetSink([this](DPrint::Record const& record) {
            if (record.text.find(m_part) != std::string_view::npos) {
                threads.Put(std::this_thread::get_id());
            }
        });
    }
    ~IpcLineThreads() {
        DPrint::SetSink(m_previous);
        IPCLog().SetThreshold(m_threshold);
    }

    Inbox<std::thread::id> threads;

private:
    std::string const m_part;
    DPrint::Level const m_threshold;
    DPrint::Sink m_previous;
};

// A listener whose connections go to an IL::Task through an AsyncCallback makes its
// attempts on that task's loop: the connection is made on the task's thread, and the
// client needs no thread of the listener's. The task ends first here: the attempts end
// with its loop, before the listener goes.
TEST(TaskLoopListener, AListenerReportingToATaskConnectsOnTheTasksThread) {
    RuntimeFolder folder;
    ScriptedServer service({}, Echo);
    auto listener = IL::CreateClientListener("task-listener", 10ms);
    IpcLineThreads connecting("listener task-listener: connected to");
    IL::Task task("loop-listener");
    using Socket = std::shared_ptr<Network::ConnectorSocket>;
    Inbox<std::pair<Socket, std::thread::id>> reported;
    AsyncCallback<Socket> onConnected(
        [&](Socket const& socket) {
            reported.Put({socket, std::this_thread::get_id()});
        },
        &task);
    listener->Listen(IPCDirectory::Get().Lookup(kService), onConnected);
    ASSERT_TRUE(reported.WaitFor(1));
    ASSERT_TRUE(connecting.threads.WaitFor(1));
    EXPECT_EQ(connecting.threads.At(0), task.ThreadId());
    EXPECT_EQ(reported.At(0).second, task.ThreadId());

    // The connection serves a router on the task.
    auto router = IPCMessageRouterFactory::CreateRouter("task-router", &task, reported.At(0).first);
    ASSERT_NE(router, nullptr);
    EXPECT_EQ(Ask(*router, 3, "ping"), "ping");
    task.Stop();
    ASSERT_TRUE(service.disconnected.WaitFor(1));
    router->Stop();
}

}  // namespace
}  // namespace Tarv::TransportTest
