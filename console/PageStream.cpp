#include "console/PageStream.h"

namespace Vellmark::Console {

PageStream::PageStream(Limits limits) : m_limits(limits) {}

void PageStream::Offer(std::shared_ptr<std::string const> const& frame) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closed) return;
    if (m_frames.size() >= m_limits.frames || m_bytes + frame->size() > m_limits.bytes) {
        ++m_dropped;
    } else {
        m_frames.push_back(frame);
        m_bytes += frame->size();
    }
    m_news.notify_one();
}

void PageStream::SetState(std::string const& name, std::string const& json) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_states[name] = json;
    m_news.notify_one();
}

void PageStream::Close() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
    m_news.notify_all();
}

bool PageStream::Closed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

std::uint64_t PageStream::Dropped() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

bool PageStream::HasNews() const {
    return m_closed || !m_frames.empty() || !m_states.empty() || m_dropped != m_droppedTold;
}

std::string PageStream::Next(std::chrono::milliseconds bound) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_news.wait_for(lock, bound, [this] { return HasNews(); });
    if (m_closed) return {};
    std::string text;
    for (auto const& [name, json] : m_states) {
        text += "event: " + name + "\ndata: " + json + "\n\n";
    }
    m_states.clear();
    if (m_dropped != m_droppedTold) {
        text += "event: dropped\ndata: " + std::to_string(m_dropped) + "\n\n";
        m_droppedTold = m_dropped;
    }
    if (!m_frames.empty()) {
        text += "event: traffic\ndata: [";
        for (std::size_t i = 0; i < m_limits.batch && !m_frames.empty(); ++i) {
            if (i > 0) text += ',';
            text += *m_frames.front();
            m_bytes -= m_frames.front()->size();
            m_frames.pop_front();
        }
        text += "]\n\n";
    }
    return text;
}

}  // namespace Vellmark::Console
