#include "console/TrafficFeed.h"

#include <algorithm>

#include "tools/MonitorFormat.h"

namespace Vellmark::Console {

TrafficFeed::TrafficFeed(Limits limits) : m_limits(limits) {}

std::shared_ptr<PageStream> TrafficFeed::Open() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pages.size() >= m_limits.pages) return nullptr;
    auto stream = std::make_shared<PageStream>(m_limits.page);
    for (auto const& [name, json] : m_states) stream->SetState(name, json);
    // Under the lock, so that no frame published meanwhile comes before these.
    std::size_t const backlog = std::min(m_kept.size(), m_limits.backlog);
    for (auto kept = m_kept.end() - static_cast<std::ptrdiff_t>(backlog); kept != m_kept.end();
         ++kept) {
        stream->Offer(std::make_shared<std::string const>(FrameJson(kept->first, kept->second)));
    }
    m_pages.push_back(stream);
    return stream;
}

void TrafficFeed::Close(std::shared_ptr<PageStream> const& stream) {
    stream->Close();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pages.erase(std::remove(m_pages.begin(), m_pages.end(), stream), m_pages.end());
}

void TrafficFeed::CloseAll() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto const& page : m_pages) page->Close();
    m_pages.clear();
}

std::string TrafficFeed::FrameJson(std::uint64_t number,
                                   Vellmark::Admin::TrafficEvent const& event) {
    std::string line = Vellmark::Ctl::JsonLine(event);
    // One line of JSON: the object without its newline, numbered.
    while (!line.empty() && line.back() == '\n') line.pop_back();
    return "{\"seq\":" + std::to_string(number) + "," + line.substr(1);
}

void TrafficFeed::Publish(Vellmark::Admin::TrafficEvent const& event) {
    std::uint64_t number;
    std::vector<std::shared_ptr<PageStream>> pages;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        number = ++m_published;
        m_kept.emplace_back(number, event);
        m_keptBytes += event.ByteSizeLong();
        while (m_kept.size() > m_limits.keptFrames ||
               (m_keptBytes > m_limits.keptBytes && m_kept.size() > 1)) {
            m_keptBytes -= m_kept.front().second.ByteSizeLong();
            m_kept.pop_front();
        }
        pages = m_pages;
    }
    if (pages.empty()) return;
    auto const frame = std::make_shared<std::string const>(FrameJson(number, event));
    for (auto const& page : pages) page->Offer(frame);
}

void TrafficFeed::PublishState(std::string const& name, std::string const& json) {
    std::vector<std::shared_ptr<PageStream>> pages;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_states[name] = json;
        pages = m_pages;
    }
    for (auto const& page : pages) page->SetState(name, json);
}

std::string TrafficFeed::State(std::string const& name) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto const found = m_states.find(name);
    return found == m_states.end() ? std::string() : found->second;
}

std::vector<Vellmark::Admin::TrafficEvent> TrafficFeed::Kept(
    std::vector<std::uint64_t> numbers) const {
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    std::vector<Vellmark::Admin::TrafficEvent> events;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto kept = m_kept.begin();
    for (auto const number : numbers) {
        kept = std::lower_bound(kept, m_kept.end(), number,
                                [](auto const& entry, std::uint64_t n) { return entry.first < n; });
        if (kept == m_kept.end()) break;
        if (kept->first == number) events.push_back(kept->second);
    }
    return events;
}

std::uint64_t TrafficFeed::Published() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_published;
}

}  // namespace Vellmark::Console
