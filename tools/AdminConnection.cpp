#include "tools/AdminConnection.h"

#include <iostream>
#include <memory>

#include "admin/AdminProtocol.h"
#include "platform/ipc/IPCDirectory.h"
#include "tools/ServiceProbe.h"
#include "tools/ServiceWait.h"

namespace Vellmark::Ctl {

int WithAdmin(Settings const& settings, std::function<int(Admin::AdminClient&)> const& use) {
    using Admin::AdminError;
    std::string const path = IPCDirectory::Get().Lookup(Admin::kAdminEndpoint)->Path();
    if (auto const code = AwaitService(path, settings)) return *code;
    ServiceProbe probe(path, "--admin-allow-user");
    if (probe.Found()) return Report(*probe.Found());
    try {
        auto admin = std::make_shared<Admin::AdminClient>(settings.Timeout());
        probe.Watch([weak = std::weak_ptr<Admin::AdminClient>(admin)] {
            if (auto refused = weak.lock()) refused->Close();
        });
        return use(*admin);
    } catch (AdminError const& error) {
        // The connection may end before the probe has seen its second one closed.
        if (auto const refused = error.kind() == AdminError::Kind::Closed
                                     ? probe.AwaitVerdict(settings.Timeout())
                                     : probe.Verdict()) {
            return Report(*refused);
        }
        std::cerr << "vellmarkctl: " << error.what() << "\n";
        return error.kind() == AdminError::Kind::Refused ? kRefused : kNoAnswer;
    }
}

}  // namespace Vellmark::Ctl
