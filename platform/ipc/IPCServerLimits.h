#pragma once
// What a server does at the limits of its process.
//
// Plain values: copy them freely.
#include <cstddef>

namespace Tarv {

// Out of descriptors, a server stops accepting until one of its connections closes or a
// short back-off passes. One that keeps descriptors in reserve still takes that many
// connections then (a reserve is closed to make room for each, and taken back when a
// descriptor frees): the admin endpoint does, so that an operator can see who holds them.
struct DescriptorReserve {
    std::size_t descriptors = 0;
};

}  // namespace Tarv
