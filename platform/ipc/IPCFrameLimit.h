#pragma once
// The frame limit: the largest frame body the process's IPC connections send or take.
//
// A frame over the limit is not sent (the sender hears TooLarge), and one announced over it
// closes the connection that carries it, so the limit bounds what one peer can make another
// buffer. Both ends of a connection should use the same limit.
//
// The default, 1 MiB, comes from the product's data: its largest answer is the sources list,
// a source with its credential and settings takes about 2 KB, and a product keeps tens of
// accounts, so even a hundred of them (some 200 KB) leave five times headroom. The variable
// TARV_IPC_MAX_FRAME_BYTES (bytes, read once) or SetMaxFrameBytes choose another value,
// kept within [kMinFrameBytes, kHardMaxFrameBytes]; what a connection uses is fixed when it
// is made.
//
// Every operation may be called from any thread.
#include <cstddef>
#include <cstdint>

#include "framework/ipc/IPCMessageEnvelope.h"
#include "platform/TarvExport.h"

class TARV_EXPORT IPCFrameLimit {
public:
    static constexpr std::size_t kDefaultFrameBytes = std::size_t(1) << 20;
    static constexpr std::size_t kMinFrameBytes = std::size_t(4) << 10;
    static constexpr std::size_t kHardMaxFrameBytes = std::size_t(16) << 20;

    // The limit for connections made from now on.
    static std::size_t MaxFrameBytes();
    // Sets it, within the bounds above; returns the value taken.
    static std::size_t SetMaxFrameBytes(std::size_t bytes);

    // The body of the largest frame that can carry `envelope` under `id`: a response paired
    // with the largest request number. A message fits when this is at most MaxFrameBytes().
    static std::size_t FrameBytes(unsigned int id, IPCMessageEnvelope const& envelope);
};

namespace Tarv {

// A connection's bounds: the largest frame, and how many bytes may wait to be sent to a
// peer that does not read before it is taken for gone.
struct TARV_EXPORT ConnectionLimits {
    static constexpr std::size_t kMaxQueuedBytes = std::size_t(4) << 20;
    // The process's frame limit when the connection is made.
    std::size_t maxFrameBytes = IPCFrameLimit::MaxFrameBytes();
    std::size_t maxQueuedBytes = kMaxQueuedBytes;
};

}  // namespace Tarv
