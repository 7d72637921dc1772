#include "service/Catalog.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "admin/Sensitivity.h"

namespace Vellmark::Service {

using Vellmark::Admin::Masked;
using Vellmark::Admin::ResourceInfo;
using Vellmark::Admin::Sensitivity;
using VellmarkPB::Code;
using VellmarkPB::MessageId;

namespace {

// The admin's writes answer no request.
constexpr MessageId kNoRequest = VellmarkPB::VELLMARK_MESSAGE_NONE;

// A resource of the table; its absence is a fault of the build, found at start.
ResourceInfo const& Resource(char const* name) {
    auto const* resource = Vellmark::Admin::FindResource(name);
    if (!resource) throw std::logic_error(std::string("no resource ") + name);
    return *resource;
}

std::size_t EnvelopeFrameBytes(unsigned int id, google::protobuf::Message const& message) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(message);
    return IPCFrameLimit::FrameBytes(id, envelope);
}

// Refuses accounts without an identifier or with one used twice.
std::optional<VellmarkPB::Error> CheckAccounts(
    google::protobuf::RepeatedPtrField<VellmarkPB::serviceAccounts> const& accounts) {
    std::set<std::string> ids;
    for (auto const& account : accounts) {
        if (account.accountid().empty()) {
            return Refusal(kNoRequest, VellmarkPB::CODE_EMPTY_ACCOUNT_ID,
                           "a service account without accountID");
        }
        if (!ids.insert(account.accountid()).second) {
            return Refusal(kNoRequest, VellmarkPB::CODE_DUPLICATE_ACCOUNT,
                           "service account " +
                               Masked(Sensitivity::AccountId, account.accountid()) +
                               " appears twice");
        }
    }
    return std::nullopt;
}

}  // namespace

VellmarkPB::Error Refusal(MessageId id, Code code, std::string const& text) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(code);
    // A number that is no MessageId value cannot travel in the field.
    if (VellmarkPB::MessageId_IsValid(id)) error.set_messageid(id);
    error.set_message(text);
    return error;
}

std::string Timestamp() {
    return Timestamp(std::time(nullptr));
}

std::string Timestamp(std::time_t at) {
    std::tm utc{};
    gmtime_r(&at, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

Catalog::Catalog(Store& store, std::size_t maxFrameBytes)
    : m_store(store),
      m_maxFrameBytes(maxFrameBytes),
      m_presets(Resource("presets")),
      m_sources(Resource("sources")),
      m_voiceAccounts(Resource("voice-accounts")) {}

std::size_t Catalog::FrameBytesOf(ResourceInfo const& resource,
                                  google::protobuf::Message const& value) const {
    std::size_t bytes = 0;
    for (unsigned int id : {resource.queryId, resource.updateId}) {
        if (id != 0) bytes = std::max(bytes, EnvelopeFrameBytes(id, value));
    }
    return bytes;
}

std::optional<VellmarkPB::Error> Catalog::ReplyTooLarge(
    MessageId id, google::protobuf::Message const& reply) const {
    std::size_t const bytes = EnvelopeFrameBytes(id, reply);
    if (bytes <= m_maxFrameBytes) return std::nullopt;
    return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE,
                   "the answer would take a frame of " + std::to_string(bytes) +
                       " bytes, over the frame limit of " + std::to_string(m_maxFrameBytes));
}

void Catalog::CheckEveryResourceFits() {
    for (auto const& resource : Vellmark::Admin::Resources()) {
        std::size_t const bytes = FrameBytesOf(resource, *Read(resource));
        if (bytes > m_maxFrameBytes) {
            throw StoreError(m_store.Path(),
                             std::string(resource.name) + " takes a frame of " +
                                 std::to_string(bytes) + " bytes, over the frame limit of " +
                                 std::to_string(m_maxFrameBytes) +
                                 " bytes: it could never be sent. Start with a larger "
                                 "--max-frame-bytes (the store was written with one)");
        }
    }
}

std::unique_ptr<google::protobuf::Message> Catalog::Read(ResourceInfo const& resource) {
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(resource.type)->New());
    auto const bytes = m_store.Resource(resource.name);
    if (bytes && !message->ParsePartialFromString(*bytes)) {
        throw StoreError(m_store.Path(), std::string("damaged resource ") + resource.name);
    }
    return message;
}

std::optional<VellmarkPB::Error> Catalog::PutResource(MessageId id, ResourceInfo const& resource,
                                                      google::protobuf::Message const& value,
                                                      Changes& changed) {
    std::size_t const bytes = FrameBytesOf(resource, value);
    if (bytes > m_maxFrameBytes) {
        return Refusal(id, VellmarkPB::CODE_RESOURCE_TOO_LARGE,
                       std::string(resource.name) + " would take a frame of " +
                           std::to_string(bytes) + " bytes, over the frame limit of " +
                           std::to_string(m_maxFrameBytes) + "; nothing was stored");
    }
    m_store.PutResource(resource.name, value.SerializePartialAsString());
    changed.insert(resource.name);
    return std::nullopt;
}

Outcome<VellmarkPB::VellmarkPresets> Catalog::StorePresets(
    VellmarkPB::VellmarkPresets const& presets, Changes& changed) {
    auto const id = VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS;
    std::set<std::string> keys;
    for (auto const& preset : presets.presets()) {
        if (preset.key().empty() || !keys.insert(preset.key()).second) {
            return Refusal(id, VellmarkPB::CODE_DUPLICATE_PRESET_KEY,
                           "every preset needs a key of its own; nothing was stored");
        }
    }
    VellmarkPB::VellmarkPresets stored;
    stored.CopyFrom(*Read(m_presets));
    for (auto const& preset : presets.presets()) {
        auto place = stored.mutable_presets()->begin();
        auto end = stored.mutable_presets()->end();
        while (place != end && place->key() != preset.key()) ++place;
        if (place != end) {
            place->CopyFrom(preset);
        } else {
            stored.add_presets()->CopyFrom(preset);
        }
    }
    return Transact<VellmarkPB::VellmarkPresets>(
        id, changed, [&](Changes& written) -> Outcome<VellmarkPB::VellmarkPresets> {
            if (auto refusal = PutResource(id, m_presets, stored, written)) return *refusal;
            return stored;
        });
}

Outcome<Written> Catalog::Put(ResourceInfo const& resource, google::protobuf::Message const& value,
                              Changes& changed) {
    return Transact<Written>(kNoRequest, changed, [&](Changes& written) -> Outcome<Written> {
        if (auto refusal = PutResource(kNoRequest, resource, value, written)) return *refusal;
        return Written{};
    });
}

Outcome<Written> Catalog::Seed(Vellmark::Admin::StoreDocument const& document, Changes& changed) {
    if (auto refusal = CheckAccounts(document.serviceaccounts())) return *refusal;
    return Transact<Written>(kNoRequest, changed, [&](Changes& written) -> Outcome<Written> {
        auto const* reflection = document.GetReflection();
        for (auto const& resource : Vellmark::Admin::Resources()) {
            auto const* field = document.GetDescriptor()->FindFieldByName(resource.documentField);
            if (auto refusal = PutResource(kNoRequest, resource,
                                           reflection->GetMessage(document, field), written))
                return *refusal;
        }
        m_store.DeleteAllAccounts();
        for (auto const& account : document.serviceaccounts()) m_store.PutAccount(account);
        return Written{};
    });
}

Outcome<Written> Catalog::PutAccounts(Vellmark::Admin::ServiceAccountList const& accounts) {
    if (auto refusal = CheckAccounts(accounts.serviceaccounts())) return *refusal;
    Changes none;  // accounts are no resource: nothing to push
    return Transact<Written>(kNoRequest, none, [&](Changes&) -> Outcome<Written> {
        m_store.DeleteAllAccounts();
        for (auto const& account : accounts.serviceaccounts()) m_store.PutAccount(account);
        return Written{};
    });
}

Vellmark::Admin::StoreDocument Catalog::Export() {
    Vellmark::Admin::StoreDocument document;
    auto const* reflection = document.GetReflection();
    // Every resource, stored or not, so that seeding from the export gives the same store.
    for (auto const& resource : Vellmark::Admin::Resources()) {
        auto const* field = document.GetDescriptor()->FindFieldByName(resource.documentField);
        reflection->MutableMessage(&document, field)->CopyFrom(*Read(resource));
    }
    for (auto const& account : m_store.Accounts()) *document.add_serviceaccounts() = account;
    return document;
}

Vellmark::Admin::ServiceAccountList Catalog::Accounts() {
    Vellmark::Admin::ServiceAccountList list;
    for (auto const& account : m_store.Accounts()) *list.add_serviceaccounts() = account;
    return list;
}

}  // namespace Vellmark::Service
