#pragma once
// What vellmarkd and its tools agree on: the endpoints, the admin identifiers and the
// table of resources the service keeps.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Vellmark::Admin {

// The product's endpoint and the admin endpoint, in the IPC directory.
inline constexpr char kServiceEndpoint[] = "Vellmark";
inline constexpr char kAdminEndpoint[] = "VellmarkAdmin";
// A Request and its Reply travel under kCommandId; TrafficEvents are pushed under
// kTrafficId.
inline constexpr unsigned int kCommandId = 1;
inline constexpr unsigned int kTrafficId = 2;

// One resource: its name on the command line, its field in StoreDocument, the message
// that holds it, and the identifiers of its query and of its update notification (0 when
// it has none).
struct ResourceInfo {
    char const* name;
    char const* documentField;
    google::protobuf::Descriptor const* type;
    unsigned int queryId;
    unsigned int updateId;
};

// sources, voice-accounts, msp-host-accounts, product-settings, persons, groups, presets,
// association.
std::vector<ResourceInfo> const& Resources();
// The resource named `name`, or null.
ResourceInfo const* FindResource(std::string const& name);
// The resource whose query travels under `id`, or null (also for 0, which the table uses
// for "no query").
ResourceInfo const* ResourceOfQuery(unsigned int id);
// "sources, voice-accounts, ...": for help texts and errors.
std::string ResourceNames(bool withQueryOnly);

// The name the MessageId enum gives `id`, or "" for a value without one.
std::string MessageName(unsigned int id);

// Admin messages too big for one frame travel in slices (VellmarkAdmin.proto).
// The largest Request the service joins from slices.
inline constexpr std::size_t kMaxAdminRequestBytes = std::size_t(256) << 20;
// True when `message` fits one admin frame of `maxFrameBytes`.
bool FitsOneFrame(google::protobuf::Message const& message, std::size_t maxFrameBytes);
// The bytes of one slice, so that the slice with its Request or Reply fits `maxFrameBytes`.
std::size_t SliceBytes(std::size_t maxFrameBytes);
// `bytes` cut into slices of SliceBytes(maxFrameBytes) (one, empty, for no bytes).
std::vector<std::string> Slices(std::string const& bytes, std::size_t maxFrameBytes);

}  // namespace Vellmark::Admin
