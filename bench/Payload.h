#pragma once
// The payload every path of transport_bench moves: the sources of a household, ten of them,
// every field a real source carries, and the frames our transport makes of them.
#include <cstdint>
#include <string>

#include "VellmarkSources.pb.h"
#include "platform/ipc/transport/FrameCodec.h"

namespace Vellmark::Bench {

constexpr int kSourceCount = 10;

VellmarkPB::sources MakeSources(int count = kSourceCount);

// The request frame of a GetSources numbered `number`: an empty sources payload.
Tarv::IPCFrame RequestFrame(std::uint64_t number);
// A frame of `kind` under `id` carrying `payload`, serialized now.
Tarv::IPCFrame FrameOf(Tarv::IPCFrame::Kind kind, unsigned int id, std::uint64_t number,
                       google::protobuf::Message const& payload);

}  // namespace Vellmark::Bench
