#include "admin/AdminProtocol.h"

#include "platform/ipc/IPCFrameLimit.h"

#include "VellmarkGroups.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"

namespace Vellmark::Admin {

std::vector<ResourceInfo> const& Resources() {
    using namespace VellmarkPB;
    static std::vector<ResourceInfo> const table = {
        {"sources", "sources", sources::descriptor(), VELLMARK_MESSAGE_GET_SOURCES,
         VELLMARK_MESSAGE_SOURCES_UPDATE},
        {"voice-accounts", "voiceAccounts", sources::descriptor(),
         VELLMARK_MESSAGE_GET_VOICE_ACCOUNTS, VELLMARK_MESSAGE_VOICE_ACCOUNTS_UPDATE},
        {"msp-host-accounts", "mspHostAccounts", sources::descriptor(),
         VELLMARK_MESSAGE_GET_MSP_HOST_ACCOUNTS, VELLMARK_MESSAGE_MSP_HOST_ACCOUNTS_UPDATE},
        {"product-settings", "productSettings", ProductSettings::descriptor(),
         VELLMARK_MESSAGE_GET_PRODUCT_SETTINGS, VELLMARK_MESSAGE_PRODUCT_SETTINGS_UPDATE},
        {"persons", "persons", persons::descriptor(), VELLMARK_MESSAGE_GET_PERSONS,
         VELLMARK_MESSAGE_PERSONS_UPDATE},
        {"groups", "groups", VellmarkGroups::descriptor(), VELLMARK_MESSAGE_GET_GROUPS,
         VELLMARK_MESSAGE_GROUPS_UPDATE},
        {"presets", "presets", VellmarkPresets::descriptor(), VELLMARK_MESSAGE_GET_PRESETS,
         VELLMARK_MESSAGE_PRESETS_UPDATE},
        // The association has no query: clients learn it from its updates only.
        {"association", "association", AccountAssociated::descriptor(), 0,
         VELLMARK_MESSAGE_ACCOUNT_ASSOCIATED_UPDATE},
    };
    return table;
}

ResourceInfo const* FindResource(std::string const& name) {
    for (auto const& resource : Resources()) {
        if (name == resource.name) return &resource;
    }
    return nullptr;
}

ResourceInfo const* ResourceOfQuery(unsigned int id) {
    if (id == 0) return nullptr;  // 0 marks a resource without a query
    for (auto const& resource : Resources()) {
        if (resource.queryId == id) return &resource;
    }
    return nullptr;
}

std::string ResourceNames(bool withQueryOnly) {
    std::string names;
    for (auto const& resource : Resources()) {
        if (withQueryOnly && resource.queryId == 0) continue;
        if (!names.empty()) names += ", ";
        names += resource.name;
    }
    return names;
}

std::string MessageName(unsigned int id) {
    auto const* value = VellmarkPB::MessageId_descriptor()->FindValueByNumber(static_cast<int>(id));
    return value ? value->name() : std::string();
}

bool FitsOneFrame(google::protobuf::Message const& message, std::size_t maxFrameBytes) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return IPCFrameLimit::FrameBytes(kCommandId, envelope) <= maxFrameBytes;
}

std::size_t SliceBytes(std::size_t maxFrameBytes) {
    // What a slice's Request or Reply, envelope and frame add: some tens of bytes.
    constexpr std::size_t kWrapping = 256;
    return maxFrameBytes - kWrapping;
}

std::vector<std::string> Slices(std::string const& bytes, std::size_t maxFrameBytes) {
    std::size_t const size = SliceBytes(maxFrameBytes);
    std::vector<std::string> slices;
    for (std::size_t at = 0; at < bytes.size() || slices.empty(); at += size) {
        slices.push_back(bytes.substr(at, size));
    }
    return slices;
}

}  // namespace Vellmark::Admin
