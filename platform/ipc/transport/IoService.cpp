#include "platform/ipc/transport/IoService.h"

#include <pthread.h>
#include <asio/error.hpp>
#include <asio/io_context.hpp>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

// A loop left to the process's end (see ~IoService), kept reachable from a global of
// external linkage so that the store stays and leak checkers do not report it.
extern std::shared_ptr<EventLoop>* loopLeftToTheEnd;
std::shared_ptr<EventLoop>* loopLeftToTheEnd = nullptr;

std::shared_ptr<IoService> IoService::Shared() {
    static std::shared_ptr<IoService> const service(new IoService());
    return service;
}

IoService::IoService() : m_loop(EventLoop::Create()) {
    // The handlers run until this object's destructor joins the thread at the process's
    // exit. The function-local statics they use are made now, before this object is
    // complete, so that they are destroyed after it (in reverse order of construction);
    // made first by a handler, they would be gone while the thread still ran.
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

IoService::~IoService() {
    m_loop->Quit();
    if (RunsOnCurrentThread()) {
        // Only reachable when the last holder lets go on the IO thread during exit: the
        // loop is still on this thread's stack, so it is left to the process's end.
        m_thread.detach();
        loopLeftToTheEnd = new std::shared_ptr<EventLoop>(std::move(m_loop));
        return;
    }
    m_thread.join();
}

}  // namespace Tarv
