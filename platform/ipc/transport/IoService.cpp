#include "platform/ipc/transport/IoService.h"

#include <pthread.h>
#include <asio/error.hpp>
#include <asio/io_context.hpp>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

std::shared_ptr<IoService> IoService::Shared() {
    // A pointer never freed: the service stays reachable (from here) after the thread stops,
    // and so do the connections its loop still holds. `stop` is made after the statics the
    // handlers use (see the constructor), so it runs at exit before they are destroyed.
    static auto* const service = new std::shared_ptr<IoService>(new IoService());
    static struct StopAtExit {
        ~StopAtExit() { (*service)->StopThread(); }
    } const stop;
    return *service;
}

IoService::IoService() : m_loop(EventLoop::Create()) {
    // The handlers run until the thread is joined at the process's exit. The function-local
    // statics they use are made now, before Shared()'s `stop`, so that they are destroyed
    // after it (in reverse order of construction); made first by a handler, they would be
    // gone while the thread still ran.
    asio::error::get_misc_category();
    asio::error::get_netdb_category();
    asio::error::get_addrinfo_category();
    IPCLog();
    // Work posted before the thread runs waits in the loop's queue.
    m_thread = std::thread([this] {
        pthread_setname_np(pthread_self(), "IPC IO");
        m_loop->Run();
    });
}

void IoService::StopThread() {
    m_loop->Quit();
    if (RunsOnCurrentThread()) {
        m_thread.detach();
        return;
    }
    m_thread.join();
}

}  // namespace Tarv
