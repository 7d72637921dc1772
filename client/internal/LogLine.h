#pragma once
// LogLine: writes one streamed line through the library's logger, under `function`'s name.
// Nothing is formatted unless the logger writes `level`.
#include <sstream>

#include "client/VellmarkClientLog.h"

template <class... Parts>
void LogLine(DPrint::Level level, char const* function, Parts const&... parts) {
    DPrint const& log = VellmarkClientLog();
    if (!log.IsLog(level)) return;
    std::ostringstream stream;
    log.Prefix(stream, level, function);
    (stream << ... << parts);
    log.Put(stream, level);
}
