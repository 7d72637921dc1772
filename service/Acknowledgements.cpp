#include "service/Acknowledgements.h"

#include "admin/AdminProtocol.h"
#include "admin/MessageTable.h"
#include "service/Catalog.h"

namespace Vellmark::Service {

bool Acknowledgements::Record(unsigned int updateId, std::uint64_t session) {
    auto const* message = Vellmark::Admin::FindMessage(updateId);
    if (!message || message->role != Vellmark::Admin::MessageRole::Update) {
        ++m_refused;
        return false;
    }
    ++m_counts[updateId];
    m_latest.push_back(Received{updateId, session, std::time(nullptr)});
    if (m_latest.size() > kKept) m_latest.pop_front();
    return true;
}

std::optional<std::string> Acknowledgements::RefusalLine(unsigned int updateId,
                                                         std::uint64_t session,
                                                         Clock::time_point now) {
    // A client that sends them in a loop would otherwise fill the log as fast as it sends.
    auto const held = m_logWindow.Admit(now);
    if (!held) return std::nullopt;
    return "acknowledgement of " + std::to_string(updateId) + " from session " +
           std::to_string(session) +
           " refused: the service pushes no update under this identifier" +
           Tarv::HeldBackSuffix(*held, "refused");
}

Vellmark::Admin::AcknowledgementReport Acknowledgements::Report() const {
    Vellmark::Admin::AcknowledgementReport report;
    for (auto const& [id, count] : m_counts) {
        auto* entry = report.add_counts();
        entry->set_messageid(id);
        entry->set_messagename(Vellmark::Admin::MessageName(id));
        entry->set_count(count);
    }
    for (auto const& received : m_latest) {
        auto* entry = report.add_latest();
        entry->set_messageid(received.updateId);
        entry->set_messagename(Vellmark::Admin::MessageName(received.updateId));
        entry->set_session(received.session);
        entry->set_receivedat(Timestamp(received.at));
    }
    return report;
}

}  // namespace Vellmark::Service
