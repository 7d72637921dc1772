#include "platform/log/DPrint.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>

namespace {

// Slot in each stream that holds where the line's text starts, after the function prefix.
// Zero means the stream was not started with Prefix.
int TextStartIndex() {
    static int const index = std::ios_base::xalloc();
    return index;
}

// The process-wide sink and its lock. Never destroyed, so that loggers used by other
// static objects keep working during static initialisation and at exit.
struct SinkState {
    std::mutex mutex;
    DPrint::Sink sink;  // empty: the default sink
};

SinkState& State() {
    static SinkState* const state = new SinkState;
    return *state;
}

char const kSeparator[] = ": ";
constexpr std::size_t kSeparatorLength = sizeof(kSeparator) - 1;

// Writes all of `data` to standard error; one write call unless the kernel takes less.
void WriteToStandardError(std::string const& data) {
    char const* next = data.data();
    std::size_t left = data.size();
    while (left > 0) {
        ssize_t const written = ::write(2, next, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;  // nowhere left to report to
        }
        next += written;
        left -= static_cast<std::size_t>(written);
    }
}

// "2026-11-21T01:18:12.123456Z VellmarkClientAPI[2] Connected: text\n"
void DefaultSink(DPrint::Record const& record) {
    using namespace std::chrono;
    auto const sinceEpoch = duration_cast<microseconds>(record.time.time_since_epoch());
    auto const wholeSeconds = floor<seconds>(sinceEpoch);
    long const micros = static_cast<long>((sinceEpoch - wholeSeconds).count());
    std::time_t const time = static_cast<std::time_t>(wholeSeconds.count());
    std::tm utc{};
    gmtime_r(&time, &utc);

    char stamp[64];
    std::size_t length = std::strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &utc);
    length += static_cast<std::size_t>(
        std::snprintf(stamp + length, sizeof(stamp) - length, ".%06ldZ ", micros));
    char level[16];
    std::size_t const levelLength = static_cast<std::size_t>(
        std::snprintf(level, sizeof(level), "[%d] ", static_cast<int>(record.level)));

    std::string line;
    line.reserve(length + record.logger.size() + levelLength + record.function.size() +
                 kSeparatorLength + record.text.size() + 1);
    line.append(stamp, length);
    line.append(record.logger);
    line.append(level, levelLength);
    if (!record.function.empty()) {
        line.append(record.function);
        line.append(kSeparator, kSeparatorLength);
    }
    line.append(record.text);
    line.push_back('\n');
    WriteToStandardError(line);
}

}  // namespace

DPrint::DPrint(std::string name)
    : m_name(std::move(name)), m_threshold(ThresholdFromEnvironment()) {}

void DPrint::Prefix(std::ostringstream& stream, Level, char const* function) const {
    stream << (function ? function : "") << kSeparator;
    std::streamoff const textStart = stream.tellp();
    stream.iword(TextStartIndex()) = textStart > 0 ? static_cast<long>(textStart) : 0;
}

void DPrint::Put(std::ostringstream& stream, Level level) const {
    long& textStart = stream.iword(TextStartIndex());
    std::size_t const start = textStart > 0 ? static_cast<std::size_t>(textStart) : 0;
    textStart = 0;  // a reused stream starts afresh
    if (!IsLog(level)) return;

    std::string const line = stream.str();
    std::string_view const all(line);
    if (start < kSeparatorLength || start > all.size()) {
        Write(level, {}, all);
        return;
    }
    Write(level, all.substr(0, start - kSeparatorLength), all.substr(start));
}

void DPrint::Log(Level level, char const* format, ...) const {
    if (!IsLog(level)) return;

    std::va_list args;
    va_start(args, format);
    std::va_list retry;
    va_copy(retry, args);
    char small[512];
    int const length = std::vsnprintf(small, sizeof(small), format, args);
    va_end(args);

    if (length < 0) {
        va_end(retry);
        return;
    }
    if (static_cast<std::size_t>(length) < sizeof(small)) {
        va_end(retry);
        Write(level, {}, std::string_view(small, static_cast<std::size_t>(length)));
        return;
    }
    // Too long for the stack buffer: format again into a buffer of the exact size.
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, retry);
    va_end(retry);
    text.resize(static_cast<std::size_t>(length));
    Write(level, {}, text);
}

DPrint::Sink DPrint::SetSink(Sink sink) {
    SinkState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    std::swap(state.sink, sink);
    return sink;
}

DPrint::Level DPrint::ThresholdFromEnvironment() {
    char const* const value = std::getenv("TARV_LOG_LEVEL");
    if (value == nullptr) return Warning;
    char* end = nullptr;
    errno = 0;
    long const number = std::strtol(value, &end, 10);
    if (end == value || errno == ERANGE) return Warning;
    while (*end == ' ' || *end == '\t' || *end == '\n') ++end;
    if (*end != '\0') return Warning;
    if (number < Error || number > Detail) return Warning;
    return static_cast<Level>(number);
}

void DPrint::Write(Level level, std::string_view function, std::string_view text) const {
    SinkState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    // Stamped under the lock, so that times never go backwards from line to line.
    Record const record{std::chrono::system_clock::now(), m_name, level, function, text};
    if (state.sink) {
        state.sink(record);
    } else {
        DefaultSink(record);
    }
}
