#pragma once
// IoService: the process's one IO thread, an Asio io_context that owns every IPC socket.
// It reads frames, runs the routers' and servers' handlers and the listeners' retry timers.
//
// Shared() starts it on first use. Transport objects hold a shared pointer to it, so it
// outlives them; the process keeps one reference until exit, when the thread is stopped
// and joined once nothing else holds it.
#include <memory>
#include <thread>

namespace asio {
class io_context;
}

namespace Tarv {

class IoService {
public:
    static std::shared_ptr<IoService> Shared();

    ~IoService();
    IoService(IoService const&) = delete;
    IoService& operator=(IoService const&) = delete;

    asio::io_context& Context() { return *m_context; }
    bool RunsOnCurrentThread() const { return std::this_thread::get_id() == m_threadId; }

private:
    IoService();

    std::unique_ptr<asio::io_context> m_context;
    std::thread m_thread;
    std::thread::id m_threadId;
};

}  // namespace Tarv
