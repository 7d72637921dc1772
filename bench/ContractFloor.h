#pragma once
// The contract floors of transport_bench: the raw floors' exchanges (Floors.h), against the
// same raw servers, with exactly what the client's contract adds for each delivery and
// nothing else:
//
// - the payload parsed into a message (one kept message, as the raw floor and the
//   library's decode do);
// - a firing of an AsyncCallback: the entry and its reference count allocated, the function
//   and the whole message copied into the entry;
// - the entry queued on this same thread, run (the function gets the entry's copy) and
//   destroyed;
// - for an update, inside the entry's function, the acknowledgement: a CloudSyncReceived
//   naming the update's identifier, put into a fresh envelope and sent one-way.
//
// What the raw floor costs and this one adds is the contract's; what the product costs
// beyond this one is ours.
#include <cstdint>
#include <vector>

#include "bench/Floors.h"

namespace Vellmark::Bench {

// `count` round trips against a round-trip server, each delivered as the contract asks;
// the latency of each, in seconds, goes to `samples`. False when the server stopped
// answering.
bool ContractRoundTrips(FloorServer& server, int count, std::vector<double>& samples);

// Has a push server push `count` updates with `window`; each is delivered and then
// acknowledged as the contract asks. True once the server reports every acknowledgement read.
bool ContractPush(FloorServer& server, std::uint32_t count, std::uint32_t window);

}  // namespace Vellmark::Bench
