#pragma once
// WithAdmin: one connection to vellmarkd's admin endpoint for a command, after --wait's
// wait for the service when asked, with the service probe's diagnosis: no service, a
// socket this user may not open, and a refusal by the service's credential check each end
// at once with their own message and exit code.
#include <functional>

#include "admin/AdminClient.h"
#include "tools/Command.h"

namespace Vellmark::Ctl {

// Connects and runs `use` on the connection, on the calling thread; returns what `use`
// returns, or the exit code of what went wrong (an AdminError from `use` included).
int WithAdmin(Settings const& settings, std::function<int(Admin::AdminClient&)> const& use);

}  // namespace Vellmark::Ctl
