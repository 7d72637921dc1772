// A process that leaves a server running, with a client connected, when it exits: the
// shared IO thread must be stopped and joined before the statics its handlers use are
// destroyed, whoever still holds the service then. Checked from an exit handler that
// runs after the library's own (it is registered before the library makes them).
//
// Exit status: 0 when no IO thread is left (within a bound); 1, with a message, when one still
// runs; 2 when the scene cannot be set up.
#include <dirent.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "platform/ipc/IPCDirectory.h"
#include "platform/ipc/IPCServer.h"
#include "platform/testing/Latch.h"

namespace {

char g_folder[] = "/tmp/tarv-exit-XXXXXX";
std::string g_socket;
int g_client = -1;
IPCServer* g_server = nullptr;  // never deleted: still serving at exit
Tarv::Testing::Latch g_accepted;

bool IoThreadRuns() {
    DIR* tasks = ::opendir("/proc/self/task");
    if (!tasks) return false;
    bool found = false;
    while (dirent* entry = ::readdir(tasks)) {
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string name;
        if (std::getline(comm, name) && name == "IPC IO") found = true;
    }
    ::closedir(tasks);
    return found;
}

void CheckAtExit() {
    // The client leaving now would be read by an IO thread that still ran.
    ::close(g_client);
    // A joined thread may still be listed for a moment (under an emulator, longer): wait,
    // with a bound, for it to go. A thread that still serves its loop never goes.
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    bool left = IoThreadRuns();
    while (left && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        left = IoThreadRuns();
    }
    ::unlink(g_socket.c_str());
    ::rmdir(g_folder);
    if (left) {
        std::fprintf(stderr, "the IPC IO thread still runs after the library's exit handlers\n");
        std::fflush(stderr);
        ::_exit(1);
    }
}

}  // namespace

int main() {
    if (std::atexit(CheckAtExit) != 0 || !::mkdtemp(g_folder)) return 2;
    IPCDirectory::Get().SetRuntimeFolder(g_folder);
    try {
        IPCServer::Handlers handlers;
        handlers.onConnected = [](IPCServer::SessionPtr const&) { g_accepted.CountDown(); };
        g_server = new IPCServer("Exit", std::move(handlers));
    } catch (std::exception const& e) {
        std::fprintf(stderr, "cannot serve: %s\n", e.what());
        return 2;
    }
    g_socket = g_server->Path();
    g_client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, g_socket.c_str(), sizeof address.sun_path - 1);
    if (::connect(g_client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("connect");
        return 2;
    }
    // The IO thread has run (and taken its name) once it has accepted the client.
    if (!g_accepted.Wait()) {
        std::fprintf(stderr, "the server did not accept the client\n");
        return 2;
    }
    return 0;
}
