#pragma once
// LogCapture: records every line written through DPrint while it lives.
//
// Construction installs a sink that stores each line (logger, level, function name and
// text) and raises the given logger's threshold; destruction restores both. Lines may
// come from any thread; Lines() returns a copy taken under the capture's lock, and
// WaitForText lets a test wait for a line written on another thread.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "platform/log/DPrint.h"

namespace Tarv::Testing {

class LogCapture {
public:
    struct Line {
        std::string logger;
        DPrint::Level level;
        std::string function;
        std::string text;
        bool operator==(Line const& other) const;
    };

    explicit LogCapture(DPrint& logger, DPrint::Level threshold = DPrint::Detail);
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    std::vector<Line> Lines() const;
    // The texts of the lines, in order.
    std::vector<std::string> Texts() const;
    void Clear();
    // Waits, with a bound, until `count` lines whose text contains `part` have been
    // written; true if they have.
    bool WaitForText(std::string const& part, std::size_t count = 1,
                     std::chrono::milliseconds bound = std::chrono::seconds(10));
    // How many lines written so far contain `part`.
    std::size_t CountText(std::string const& part) const;

private:
    DPrint& m_logger;
    DPrint::Level m_previousThreshold;
    DPrint::Sink m_previousSink;
    std::size_t CountLocked(std::string const& part) const;

    mutable std::mutex m_mutex;
    std::condition_variable m_written;
    std::vector<Line> m_lines;
};

// Prints a line in test failure messages.
std::ostream& operator<<(std::ostream& out, LogCapture::Line const& line);

}  // namespace Tarv::Testing
