#pragma once
// IPCMessageEnvelope: one message as the router moves it: the serialized payload, the
// payload's short type name (optional, with presence), and the identifier it travelled
// under (filled in by the router on delivery).
//
// The generated protobuf classes are final, so the envelope holds its protobuf part
// (Tarv::IPCMessageEnvelopeBase) as a member instead of deriving from it.
#include <google/protobuf/message.h>

#include <string>

#include "IPCMessageEnvelopeBase.pb.h"

class IPCMessageEnvelope {
public:
    IPCMessageEnvelope() = default;
    explicit IPCMessageEnvelope(Tarv::IPCMessageEnvelopeBase base) : m_base(std::move(base)) {}

    // Serializes `payload` (required fields may be missing) and sets the payload type name
    // to its short descriptor name, such as "sources". False if it could not be serialized.
    bool SetPayload(google::protobuf::Message const& payload) {
        m_base.set_payload_type_name(payload.GetDescriptor()->name());
        return payload.SerializePartialToString(m_base.mutable_payload());
    }

    // Parses the payload into `message`, which is cleared first. Missing required fields are
    // accepted. False if the bytes do not parse; `message` then holds what could be parsed.
    bool GetPayload(google::protobuf::Message& message) const {
        return message.ParsePartialFromString(m_base.payload());
    }

    bool has_payload_type_name() const { return m_base.has_payload_type_name(); }
    std::string const& payload_type_name() const { return m_base.payload_type_name(); }
    void set_payload_type_name(std::string name) { m_base.set_payload_type_name(std::move(name)); }
    void clear_payload_type_name() { m_base.clear_payload_type_name(); }

    std::string const& payload() const { return m_base.payload(); }
    void set_payload(std::string bytes) { m_base.set_payload(std::move(bytes)); }

    bool has_message_id() const { return m_base.has_message_id(); }
    unsigned int message_id() const { return m_base.message_id(); }
    void set_message_id(unsigned int id) { m_base.set_message_id(id); }

    Tarv::IPCMessageEnvelopeBase const& Base() const { return m_base; }
    Tarv::IPCMessageEnvelopeBase& MutableBase() { return m_base; }

private:
    Tarv::IPCMessageEnvelopeBase m_base;
};
