#pragma once
// DPrint: a named logger with numbered levels.
//
// A line is written when its level is at or below the logger's threshold. Lower numbers
// are more severe: 0 error, 1 warning, 2 flow (headings, what happens), 3 less frequent
// events and redacted identifiers, 4 field-by-field detail. Build a line only after
// IsLog(level) said yes, so that nothing is formatted for a line that is not written.
//
// The threshold starts at the value of the environment variable TARV_LOG_LEVEL (a number
// 0-4; Warning when unset or not a number) and can be changed in code with SetThreshold.
// Lines go to one process-wide sink; the default sink writes one line per call to standard
// error: UTC time, logger name, level in brackets, function name and text.
//
// Every operation may be called from any thread at once; lines never interleave. A sink
// runs under the logger's lock, so it must not log itself.
#include <atomic>
#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/TarvExport.h"

class TARV_EXPORT DPrint {
public:
    enum Level : int { Error = 0, Warning = 1, Flow = 2, Info = 3, Detail = 4 };

    // One written line, as a sink receives it. The views are valid during the call only.
    struct Record {
        std::chrono::system_clock::time_point time;
        std::string_view logger;
        Level level;
        std::string_view function;  // empty for lines written with Log
        std::string_view text;
    };
    using Sink = std::function<void(Record const&)>;

    explicit DPrint(std::string name);
    DPrint(DPrint const&) = delete;
    DPrint& operator=(DPrint const&) = delete;

    std::string const& Name() const { return m_name; }

    // True when a line at `level` would be written. One relaxed atomic load.
    bool IsLog(Level level) const { return level <= m_threshold.load(std::memory_order_relaxed); }
    void SetThreshold(Level level) { m_threshold.store(level, std::memory_order_relaxed); }
    Level Threshold() const {
        return static_cast<Level>(m_threshold.load(std::memory_order_relaxed));
    }

    // Starts a streamed line: records `function` as the line's function name. Write the
    // text into `stream` afterwards and finish with Put.
    void Prefix(std::ostringstream& stream, Level level, char const* function) const;
    // Writes the line started with Prefix (or, without Prefix, the whole stream as text).
    void Put(std::ostringstream& stream, Level level) const;
    // Writes a printf-style line, if IsLog(level).
    void Log(Level level, char const* format, ...) const __attribute__((format(printf, 3, 4)));

    // Replaces the process-wide sink and returns the previous one. An empty sink restores
    // the default (standard error).
    static Sink SetSink(Sink sink);
    // The threshold that TARV_LOG_LEVEL asks for, or Warning.
    static Level ThresholdFromEnvironment();

private:
    void Write(Level level, std::string_view function, std::string_view text) const;

    std::string m_name;
    std::atomic<int> m_threshold;
};
