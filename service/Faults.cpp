#include "service/Faults.h"

namespace Vellmark::Service {

void Faults::FailNext(unsigned int id, unsigned int count, std::optional<VellmarkPB::Error> error) {
    if (count == 0) {
        m_planned.erase(id);
        return;
    }
    m_planned[id] = Planned{count, Failure{std::move(error)}};
}

std::optional<Faults::Failure> Faults::Take(unsigned int id) {
    auto found = m_planned.find(id);
    if (found == m_planned.end()) return std::nullopt;
    Failure failure = found->second.failure;
    if (--found->second.remaining == 0) m_planned.erase(found);
    return failure;
}

void Faults::SetDelay(std::chrono::milliseconds delay, unsigned int id) {
    if (delay.count() == 0) {
        m_delays.clear();
        return;
    }
    m_delays[id] = delay;
}

std::chrono::milliseconds Faults::DelayOf(unsigned int id) const {
    auto found = m_delays.find(id);
    if (found != m_delays.end()) return found->second;
    found = m_delays.find(0);
    return found != m_delays.end() ? found->second : std::chrono::milliseconds(0);
}

}  // namespace Vellmark::Service
