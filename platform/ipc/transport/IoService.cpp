#include "platform/ipc/transport/IoService.h"

#include <pthread.h>
#include <asio/error.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <future>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

// A context left to the process's end (see ~IoService), kept reachable from a global of
// external linkage so that the store stays and leak checkers do not report it.
extern asio::io_context* contextLeftToTheEnd;
asio::io_context* contextLeftToTheEnd = nullptr;

std::shared_ptr<IoService> IoService::Shared() {
    static std::shared_ptr<IoService> const service(new IoService());
    return service;
}

IoService::IoService() : m_context(std::make_unique<asio::io_context>(1)) {
    // The handlers run until this object's destructor joins the thread at the process's
    // exit. The function-local statics they use are made now, before this object is
    // complete, so that they are destroyed after it (in reverse order of construction);
    // made first by a handler, they would be gone while the thread still ran.
    asio::error::get_misc_category();
    asio::error::get_netdb_category();
    asio::error::get_addrinfo_category();
    IPCLog();
    std::promise<std::thread::id> started;
    auto id = started.get_future();
    m_thread = std::thread([this, &started] {
        pthread_setname_np(pthread_self(), "IPC IO");
        started.set_value(std::this_thread::get_id());
        auto work = asio::make_work_guard(*m_context);
        for (;;) {
            try {
                m_context->run();
                return;
            } catch (std::exception const& e) {
                // A handler that throws must not take the process's IPC down with it.
                IPCLog().Log(DPrint::Error, "IO thread: handler threw: %s", e.what());
            }
        }
    });
    m_threadId = id.get();
}

IoService::~IoService() {
    m_context->stop();
    if (RunsOnCurrentThread()) {
        // Only reachable when the last holder lets go on the IO thread during exit: the
        // context is still on this thread's stack, so it is left to the process's end.
        m_thread.detach();
        contextLeftToTheEnd = m_context.release();
        return;
    }
    m_thread.join();
}

}  // namespace Tarv
