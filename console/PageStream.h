#pragma once
// PageStream: what one open page still has to receive, as Server-Sent Events. Traffic
// frames wait in a queue bounded in count and bytes; a frame that finds it full is dropped
// and counted, and the page is told the count, so a page that cannot keep up costs the
// console memory up to the bound and the service nothing. The client list and the link's
// state are kept as their latest value only.
//
// Threads: Offer, SetState and Close from any thread; Next from the one HTTP thread that
// serves the page. The feed and that thread share it.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Vellmark::Console {

class PageStream {
public:
    struct Limits {
        std::size_t frames = 2000;
        std::size_t bytes = 8u << 20;
        // Frames sent in one event, at most.
        std::size_t batch = 200;
    };
    explicit PageStream(Limits limits);

    // Queues one frame (a JSON object), or drops and counts it when the queue is full.
    void Offer(std::shared_ptr<std::string const> const& frame);
    // Replaces what the page is told under `name` ("clients", "status") with `json`.
    void SetState(std::string const& name, std::string const& json);
    // Wakes Next, which from now on returns "" at once.
    void Close();
    bool Closed() const;

    // Waits until there is something to send, the stream is closed or `bound` has passed;
    // returns the events to write (states first, then the drop count when it changed,
    // then a batch of frames as one "traffic" event holding a JSON array), or "".
    std::string Next(std::chrono::milliseconds bound);

    // Frames dropped so far.
    std::uint64_t Dropped() const;

private:
    bool HasNews() const;

    Limits const m_limits;
    mutable std::mutex m_mutex;
    std::condition_variable m_news;
    std::deque<std::shared_ptr<std::string const>> m_frames;
    std::size_t m_bytes = 0;
    std::map<std::string, std::string> m_states;
    std::uint64_t m_dropped = 0;
    std::uint64_t m_droppedTold = 0;
    bool m_closed = false;
};

}  // namespace Vellmark::Console
