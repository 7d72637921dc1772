#pragma once
// TrafficFeed: hands what the console learns to every open page: each frame of the
// product's endpoint, numbered, and the latest value of each state ("clients", "status").
// It also keeps the latest frames, bounded in count and bytes, so that a page can ask for
// the frames it shows as a capture.
//
// Threads: Publish from the admin connection's IO thread, PublishState from any thread,
// the rest from the HTTP threads. Publishing costs one rendering of the frame and one
// short lock per open page; it never waits for a page.
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "console/PageStream.h"

namespace Vellmark::Console {

class TrafficFeed {
public:
    struct Limits {
        PageStream::Limits page;
        // Pages streaming at once (each holds one of the HTTP server's threads).
        std::size_t pages = 4;
        // Kept frames a page gets when it opens, at most.
        std::size_t backlog = 300;
        // Frames kept for captures (and for pages that open).
        std::size_t keptFrames = 20000;
        std::size_t keptBytes = 32u << 20;
    };
    explicit TrafficFeed(Limits limits);

    // A stream for a new page, primed with the latest states and the latest kept frames;
    // null when `pages` are open.
    std::shared_ptr<PageStream> Open();
    // Forgets a page's stream (its connection ended).
    void Close(std::shared_ptr<PageStream> const& stream);
    // Closes every stream: their pages' connections end.
    void CloseAll();

    // Numbers `event`, keeps it, and offers it to every page.
    void Publish(Vellmark::Admin::TrafficEvent const& event);
    // The latest `json` under `name`, for every page open and to be opened.
    void PublishState(std::string const& name, std::string const& json);

    // The latest value published under `name`, or "".
    std::string State(std::string const& name) const;

    // The kept frames among `numbers`, in the order of their numbers.
    std::vector<Vellmark::Admin::TrafficEvent> Kept(std::vector<std::uint64_t> numbers) const;
    // Frames published so far.
    std::uint64_t Published() const;

    // A frame as the page gets it: the monitor's JSON line with its number ("seq") first.
    static std::string FrameJson(std::uint64_t number, Vellmark::Admin::TrafficEvent const& event);

private:
    Limits const m_limits;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<PageStream>> m_pages;
    std::map<std::string, std::string> m_states;
    std::uint64_t m_published = 0;
    std::deque<std::pair<std::uint64_t, Vellmark::Admin::TrafficEvent>> m_kept;
    std::size_t m_keptBytes = 0;
};

}  // namespace Vellmark::Console
