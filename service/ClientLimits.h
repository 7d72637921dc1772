#pragma once
// What vellmarkd lets each client of its "Vellmark" endpoint hold by default, as a system
// bus daemon bounds its clients, and the options that change it. Every process of the
// product shares the service, so no client may exhaust it: over a limit, the connection
// (or its request) is refused and the service logs one line per user, limit and minute.
#include <sys/resource.h>

#include <cstddef>
#include <optional>
#include <string>

#include "platform/ipc/IPCServerLimits.h"

namespace Vellmark::Service {

// The defaults, each with the vellmarkd option that changes it.
Tarv::ServerLimits DefaultClientLimits();

// `limits` as they apply with frames of `maxFrameBytes`: a byte limit below one frame is
// raised to it, so that every frame the service takes or sends fits.
Tarv::ServerLimits WithFramesOf(Tarv::ServerLimits limits, std::size_t maxFrameBytes);

// A warning when the process may open fewer than `descriptors` files (its soft
// RLIMIT_NOFILE), which the connection limits of `limits` need; nothing otherwise.
std::optional<std::string> DescriptorWarning(Tarv::ServerLimits const& limits, rlim_t descriptors);

}  // namespace Vellmark::Service
