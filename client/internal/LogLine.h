#pragma once
// LogLine: writes one streamed line through the library's logger, under `function`'s name.
// Nothing is formatted unless the logger writes `level`.
//
// Each call site costs the test of the level and one call: the line is built by one
// function per list of (decayed) part types, and the stream made and written out of line.
#include <ostream>
#include <sstream>
#include <type_traits>

#include "client/VellmarkClientLog.h"

// A line under way: its stream, started with the logger's prefix.
class LogLineStream {
public:
    LogLineStream(DPrint::Level level, char const* function);
    ~LogLineStream();
    LogLineStream(LogLineStream const&) = delete;
    LogLineStream& operator=(LogLineStream const&) = delete;

    std::ostream& Stream() { return m_stream; }
    // Writes the line.
    void Put();

private:
    DPrint::Level const m_level;
    std::ostringstream m_stream;
};

template <class... Parts>
[[gnu::noinline]] void WriteLogLine(DPrint::Level level, char const* function,
                                    Parts const&... parts) {
    LogLineStream line(level, function);
    (line.Stream() << ... << parts);
    line.Put();
}

template <class... Parts>
void LogLine(DPrint::Level level, char const* function, Parts const&... parts) {
    if (!VellmarkClientLog().IsLog(level)) return;
    WriteLogLine<std::decay_t<Parts const>...>(level, function, parts...);
}
