#include "service/Systemd.h"

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "admin/AdminProtocol.h"
#include "service/VellmarkService.h"

namespace Vellmark::Service::Systemd {

HandedOverSockets TakeSockets() {
    char** names = nullptr;
    // The variables are unset: they are meant for this process alone.
    int const count = sd_listen_fds_with_names(1, &names);
    if (count < 0) {
        throw std::runtime_error(std::string("cannot take the sockets passed (LISTEN_FDS): ") +
                                 std::strerror(-count));
    }
    HandedOverSockets sockets;
    std::string unmatched;
    for (int i = 0; i < count; ++i) {
        int const fd = SD_LISTEN_FDS_START + i;
        std::string const name = names && names[i] ? names[i] : "";
        std::optional<int>* slot = nullptr;
        if (name == Vellmark::Admin::kServiceEndpoint) slot = &sockets.service;
        if (name == Vellmark::Admin::kAdminEndpoint) slot = &sockets.admin;
        if (slot && !*slot) {
            *slot = fd;
        } else {
            unmatched +=
                (unmatched.empty() ? "" : ", ") + name + " (fd " + std::to_string(fd) + ")";
            ::close(fd);
        }
        if (names) std::free(names[i]);
    }
    std::free(static_cast<void*>(names));
    if (!unmatched.empty()) {
        VellmarkService::Log().Log(DPrint::Warning,
                                   "closed the sockets passed under names it does not serve (it "
                                   "serves %s and %s, one socket each): %s",
                                   Vellmark::Admin::kServiceEndpoint,
                                   Vellmark::Admin::kAdminEndpoint, unmatched.c_str());
    }
    return sockets;
}

void NotifyReady(std::string const& status) {
    sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str());
}

void NotifyStopping(std::string const& status) {
    sd_notifyf(0, "STOPPING=1\nSTATUS=%s", status.c_str());
}

}  // namespace Vellmark::Service::Systemd
