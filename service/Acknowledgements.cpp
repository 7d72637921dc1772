#include "service/Acknowledgements.h"

#include "admin/AdminProtocol.h"
#include "service/Catalog.h"

namespace Vellmark::Service {

void Acknowledgements::Record(unsigned int updateId, std::uint64_t session) {
    ++m_counts[updateId];
    Vellmark::Admin::Acknowledgement acknowledgement;
    acknowledgement.set_messageid(updateId);
    acknowledgement.set_messagename(Vellmark::Admin::MessageName(updateId));
    acknowledgement.set_session(session);
    acknowledgement.set_receivedat(Timestamp());
    m_latest.push_back(std::move(acknowledgement));
    if (m_latest.size() > kKept) m_latest.pop_front();
}

Vellmark::Admin::AcknowledgementReport Acknowledgements::Report() const {
    Vellmark::Admin::AcknowledgementReport report;
    for (auto const& [id, count] : m_counts) {
        auto* entry = report.add_counts();
        entry->set_messageid(id);
        entry->set_messagename(Vellmark::Admin::MessageName(id));
        entry->set_count(count);
    }
    for (auto const& acknowledgement : m_latest) *report.add_latest() = acknowledgement;
    return report;
}

}  // namespace Vellmark::Service
