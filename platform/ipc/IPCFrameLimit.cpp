#include "platform/ipc/IPCFrameLimit.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "platform/ipc/IPCLog.h"
#include "platform/ipc/transport/FrameCodec.h"

namespace {

std::size_t Bounded(std::size_t bytes) {
    return std::clamp(bytes, IPCFrameLimit::kMinFrameBytes, IPCFrameLimit::kHardMaxFrameBytes);
}

// The value TARV_IPC_MAX_FRAME_BYTES asks for, or the default; a bad one is said once.
std::size_t FromEnvironment() {
    char const* text = std::getenv("TARV_IPC_MAX_FRAME_BYTES");
    if (!text || !*text) return IPCFrameLimit::kDefaultFrameBytes;
    char* end = nullptr;
    errno = 0;
    unsigned long long const asked = std::strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0') {
        IPCLog().Log(DPrint::Warning,
                     "TARV_IPC_MAX_FRAME_BYTES=%s is not a number of bytes; the frame limit "
                     "stays %zu",
                     text, IPCFrameLimit::kDefaultFrameBytes);
        return IPCFrameLimit::kDefaultFrameBytes;
    }
    std::size_t const taken = Bounded(static_cast<std::size_t>(
        std::min<unsigned long long>(asked, std::numeric_limits<std::size_t>::max())));
    if (taken != asked) {
        IPCLog().Log(DPrint::Warning,
                     "TARV_IPC_MAX_FRAME_BYTES=%s is outside %zu..%zu; the frame limit is %zu",
                     text, IPCFrameLimit::kMinFrameBytes, IPCFrameLimit::kHardMaxFrameBytes, taken);
    }
    return taken;
}

std::atomic<std::size_t>& Limit() {
    static std::atomic<std::size_t> limit{FromEnvironment()};
    return limit;
}

}  // namespace

std::size_t IPCFrameLimit::MaxFrameBytes() {
    return Limit().load(std::memory_order_relaxed);
}

std::size_t IPCFrameLimit::SetMaxFrameBytes(std::size_t bytes) {
    std::size_t const taken = Bounded(bytes);
    Limit().store(taken, std::memory_order_relaxed);
    return taken;
}

std::size_t IPCFrameLimit::FrameBytes(unsigned int id, IPCMessageEnvelope const& envelope) {
    return Tarv::FrameBodyBytes(Tarv::IPCFrame::RESPONSE, id, envelope.Base(),
                                std::numeric_limits<std::uint64_t>::max());
}
