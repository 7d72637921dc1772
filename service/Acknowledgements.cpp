#include "service/Acknowledgements.h"

#include "admin/AdminProtocol.h"
#include "service/Catalog.h"

namespace Vellmark::Service {

void Acknowledgements::Record(unsigned int updateId, std::uint64_t session) {
    ++m_counts[updateId];
    m_latest.push_back(Received{updateId, session, std::time(nullptr)});
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
