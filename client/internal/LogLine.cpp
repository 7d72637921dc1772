#include "client/internal/LogLine.h"

LogLineStream::LogLineStream(DPrint::Level level, char const* function) : m_level(level) {
    VellmarkClientLog().Prefix(m_stream, level, function);
}

LogLineStream::~LogLineStream() = default;

void LogLineStream::Put() {
    VellmarkClientLog().Put(m_stream, m_level);
}
