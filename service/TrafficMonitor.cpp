#include "service/TrafficMonitor.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <chrono>
#include <cstring>
#include <ctime>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"

namespace Vellmark::Service {

namespace {

// UTC time of day with milliseconds ("10:15:02.347"), from microseconds since the epoch.
std::string TimeOfDay(std::int64_t micros) {
    std::time_t const seconds = static_cast<std::time_t>(micros / 1000000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(micros % 1000000 / 1000));
    return text;
}

// The payload as masked JSON, or a note on why it cannot be shown.
std::string PayloadJson(IPCMessageEnvelope const& envelope) {
    auto const* type = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(
        "VellmarkPB." + envelope.payload_type_name());
    if (!type) return "\"(" + std::to_string(envelope.payload().size()) + " bytes)\"";
    std::unique_ptr<google::protobuf::Message> message(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    if (!envelope.GetPayload(*message)) return "\"(does not parse)\"";
    Vellmark::Admin::Mask(*message);
    return Vellmark::Json::Print(*message, false);
}

}  // namespace

void TrafficMonitor::Add(std::shared_ptr<IPCServerSession> const& watcher) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_watchers.push_back(watcher);
    m_watched = true;
}

void TrafficMonitor::Received(std::uint64_t session, char const* kind, unsigned int id,
                              std::uint64_t number, IPCMessageEnvelope const& envelope) {
    if (!m_watched) return;
    std::lock_guard<std::mutex> sequence(m_sequence);
    Report("in", session, kind, id, number, envelope);
}

bool TrafficMonitor::Send(std::uint64_t session, char const* kind, unsigned int id,
                          std::uint64_t number, IPCMessageEnvelope const& envelope,
                          std::function<bool()> const& send) {
    if (!m_watched) return send();
    std::lock_guard<std::mutex> sequence(m_sequence);
    bool const sent = send();
    if (sent) Report("out", session, kind, id, number, envelope);
    return sent;
}

void TrafficMonitor::Report(char const* direction, std::uint64_t session, char const* kind,
                            unsigned int id, std::uint64_t number,
                            IPCMessageEnvelope const& envelope) {
    std::vector<std::shared_ptr<IPCServerSession>> watchers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_watchers.begin(); it != m_watchers.end();) {
            auto watcher = it->lock();
            if (watcher && watcher->IsOpen()) {
                watchers.push_back(std::move(watcher));
                ++it;
            } else {
                it = m_watchers.erase(it);
            }
        }
        if (m_watchers.empty()) m_watched = false;  // until the next Add
    }
    if (watchers.empty()) return;

    auto const micros = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
    Vellmark::Admin::TrafficEvent event;
    event.set_time(TimeOfDay(micros));
    event.set_timemicros(micros);
    event.set_direction(direction);
    event.set_session(session);
    event.set_kind(kind);
    event.set_messageid(id);
    event.set_messagename(Vellmark::Admin::MessageName(id));
    if (std::strcmp(kind, "request") == 0 || std::strcmp(kind, "response") == 0) {
        event.set_requestnumber(number);
    }
    event.set_payloadtype(envelope.payload_type_name());
    event.set_payloadjson(PayloadJson(envelope));
    IPCMessageEnvelope out;
    out.SetPayload(event);
    for (auto const& watcher : watchers) watcher->Notify(Vellmark::Admin::kTrafficId, out);
}

}  // namespace Vellmark::Service
