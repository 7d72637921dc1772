#include "platform/testing/LogCapture.h"

#include <ostream>
#include <utility>

namespace Tarv::Testing {

bool LogCapture::Line::operator==(Line const& other) const {
    return logger == other.logger && level == other.level && function == other.function &&
           text == other.text;
}

LogCapture::LogCapture(DPrint& logger, DPrint::Level threshold)
    : m_logger(logger), m_previousThreshold(logger.Threshold()) {
    m_previousSink = DPrint::SetSink([this](DPrint::Record const& record) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(Line{std::string(record.logger), record.level,
                               std::string(record.function), std::string(record.text)});
        m_written.notify_all();
    });
    m_logger.SetThreshold(threshold);
}

LogCapture::~LogCapture() {
    m_logger.SetThreshold(m_previousThreshold);
    DPrint::SetSink(std::move(m_previousSink));
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::string> LogCapture::Texts() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> texts;
    texts.reserve(m_lines.size());
    for (Line const& line : m_lines) texts.push_back(line.text);
    return texts;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

bool LogCapture::WaitForText(std::string const& part, std::size_t count,
                             std::chrono::milliseconds bound) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_written.wait_for(lock, bound, [&] { return CountLocked(part) >= count; });
}

std::size_t LogCapture::CountText(std::string const& part) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return CountLocked(part);
}

std::size_t LogCapture::CountLocked(std::string const& part) const {
    std::size_t count = 0;
    for (Line const& line : m_lines) count += line.text.find(part) != std::string::npos;
    return count;
}

std::ostream& operator<<(std::ostream& out, LogCapture::Line const& line) {
    out << '[' << static_cast<int>(line.level) << "] ";
    if (!line.function.empty()) out << line.function << ": ";
    return out << line.text;
}

}  // namespace Tarv::Testing
