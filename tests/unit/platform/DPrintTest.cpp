#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/log/DPrint.h"
#include "platform/testing/LogCapture.h"

using namespace Tarv::Testing;

namespace {

using namespace std::chrono_literals;

constexpr auto kThreadBound = 60s;

// Streams as "counted" and counts how often it was streamed.
struct Counted {
    int* count;
};

std::ostream& operator<<(std::ostream& out, Counted const& counted) {
    ++*counted.count;
    return out << "counted";
}

std::string Describe(int& count) {
    ++count;
    return "described";
}

// The logging idiom: nothing is formatted unless the level is on.
void LogStreamed(DPrint const& log, DPrint::Level level, Counted const& counted) {
    if (log.IsLog(level)) {
        std::ostringstream stream;
        log.Prefix(stream, level, "Fn");
        stream << counted;
        log.Put(stream, level);
    }
}

void LogFormatted(DPrint const& log, DPrint::Level level, int& count) {
    if (log.IsLog(level)) log.Log(level, "%s", Describe(count).c_str());
}

// Sets or unsets an environment variable and puts the old value back afterwards.
class ScopedEnvironment {
public:
    ScopedEnvironment(char const* name, char const* value) : m_name(name) {
        if (char const* old = std::getenv(name)) {
            m_had = true;
            m_old = old;
        }
        if (value) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (m_had) {
            ::setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            ::unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    bool m_had = false;
    std::string m_old;
};

// Sends file descriptor 2 into a temporary file while it lives.
class StandardErrorToFile {
public:
    StandardErrorToFile() : m_file(std::tmpfile()), m_saved(::dup(2)) {
        if (m_file && m_saved >= 0) m_redirected = ::dup2(::fileno(m_file), 2) >= 0;
    }
    ~StandardErrorToFile() {
        Restore();
        if (m_file) std::fclose(m_file);
    }
    bool Redirected() const { return m_redirected; }

    // Restores standard error and returns everything written to it meanwhile.
    std::string Release() {
        Restore();
        std::string content;
        if (!m_file) return content;
        char buffer[4096];
        off_t offset = 0;
        for (;;) {
            ssize_t const got = ::pread(::fileno(m_file), buffer, sizeof(buffer), offset);
            if (got <= 0) break;
            content.append(buffer, static_cast<std::size_t>(got));
            offset += got;
        }
        return content;
    }

private:
    void Restore() {
        if (m_saved >= 0) {
            ::dup2(m_saved, 2);
            ::close(m_saved);
            m_saved = -1;
        }
    }

    std::FILE* m_file;
    int m_saved;
    bool m_redirected = false;
};

std::vector<std::string> SplitLines(std::string const& content) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t const end = content.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(content.substr(start));  // an unterminated tail
            break;
        }
        lines.push_back(content.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// Splits "YYYY-MM-DDTHH:MM:SS.uuuuuuZ rest" into the time it names and the rest.
bool SplitStamp(std::string const& line, std::chrono::system_clock::time_point& stamped,
                std::string& rest) {
    constexpr std::size_t kStampLength = 27;  // up to and including 'Z'
    if (line.size() <= kStampLength || line[19] != '.' || line[26] != 'Z' || line[27] != ' ') {
        return false;
    }
    for (std::size_t i = 20; i < 26; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(line[i]))) return false;
    }
    std::tm utc{};
    char const* const parsed = ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    if (parsed != line.c_str() + 19) return false;
    stamped = std::chrono::system_clock::from_time_t(::timegm(&utc)) +
              std::chrono::microseconds(std::stol(line.substr(20, 6)));
    rest = line.substr(kStampLength + 1);
    return true;
}

// Every test starts with the default sink and puts back whatever sink was there before.
class DPrintTest : public ::testing::Test {
protected:
    void SetUp() override { m_outerSink = DPrint::SetSink({}); }
    void TearDown() override { DPrint::SetSink(std::move(m_outerSink)); }

    DPrint::Sink m_outerSink;
};

TEST_F(DPrintTest, LinesAboveThresholdAreNotBuilt) {
    DPrint log("TestLogger");
    LogCapture capture(log, DPrint::Flow);
    int count = 0;

    LogStreamed(log, DPrint::Info, Counted{&count});
    LogStreamed(log, DPrint::Detail, Counted{&count});
    LogFormatted(log, DPrint::Info, count);
    LogFormatted(log, DPrint::Detail, count);

    EXPECT_EQ(count, 0);
    EXPECT_TRUE(capture.Lines().empty());
}

TEST_F(DPrintTest, LinesAtOrBelowThresholdAreWritten) {
    DPrint log("TestLogger");
    LogCapture capture(log, DPrint::Flow);
    int count = 0;

    LogStreamed(log, DPrint::Flow, Counted{&count});
    LogStreamed(log, DPrint::Error, Counted{&count});
    LogFormatted(log, DPrint::Flow, count);
    LogFormatted(log, DPrint::Warning, count);

    EXPECT_EQ(count, 4);
    std::vector<LogCapture::Line> const expected{
        {"TestLogger", DPrint::Flow, "Fn", "counted"},
        {"TestLogger", DPrint::Error, "Fn", "counted"},
        {"TestLogger", DPrint::Flow, "", "described"},
        {"TestLogger", DPrint::Warning, "", "described"},
    };
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, PutAndLogAboveThresholdWriteNothing) {
    DPrint log("TestLogger");
    LogCapture capture(log, DPrint::Warning);

    std::ostringstream stream;
    log.Prefix(stream, DPrint::Flow, "Fn");
    stream << "streamed";
    log.Put(stream, DPrint::Flow);
    log.Log(DPrint::Info, "formatted %d", 1);
    EXPECT_TRUE(capture.Lines().empty());

    log.SetThreshold(DPrint::Info);
    log.Log(DPrint::Info, "formatted %d", 2);
    EXPECT_EQ(capture.Texts(), std::vector<std::string>{"formatted 2"});
}

TEST_F(DPrintTest, IsLogFollowsTheThreshold) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Info);
    EXPECT_EQ(log.Threshold(), DPrint::Info);
    EXPECT_TRUE(log.IsLog(DPrint::Error));
    EXPECT_TRUE(log.IsLog(DPrint::Info));
    EXPECT_FALSE(log.IsLog(DPrint::Detail));
    log.SetThreshold(DPrint::Error);
    EXPECT_TRUE(log.IsLog(DPrint::Error));
    EXPECT_FALSE(log.IsLog(DPrint::Warning));
}

TEST_F(DPrintTest, PrefixAndPutGiveFunctionAndTextSeparately) {
    DPrint log("VellmarkClientAPI");
    LogCapture capture(log);

    std::ostringstream stream;
    log.Prefix(stream, DPrint::Flow, "Connected");
    stream << "router " << 7 << ": ready";
    log.Put(stream, DPrint::Flow);

    std::vector<LogCapture::Line> const expected{
        {"VellmarkClientAPI", DPrint::Flow, "Connected", "router 7: ready"}};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, PrefixWithEmptyTextGivesEmptyText) {
    DPrint log("TestLogger");
    LogCapture capture(log);

    std::ostringstream stream;
    log.Prefix(stream, DPrint::Info, "GetSources");
    log.Put(stream, DPrint::Info);

    std::vector<LogCapture::Line> const expected{{"TestLogger", DPrint::Info, "GetSources", ""}};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, PutWithoutPrefixWritesTheWholeStreamAsText) {
    DPrint log("TestLogger");
    LogCapture capture(log);

    std::ostringstream stream;
    stream << "Connected: not a prefix";
    log.Put(stream, DPrint::Detail);

    std::vector<LogCapture::Line> const expected{
        {"TestLogger", DPrint::Detail, "", "Connected: not a prefix"}};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, ReusedStreamWithoutNewPrefixHasNoFunction) {
    DPrint log("TestLogger");
    LogCapture capture(log);

    std::ostringstream stream;
    log.Prefix(stream, DPrint::Flow, "First");
    stream << "one";
    log.Put(stream, DPrint::Flow);
    stream.str("");
    stream << "two and more text";
    log.Put(stream, DPrint::Flow);

    std::vector<LogCapture::Line> const expected{
        {"TestLogger", DPrint::Flow, "First", "one"},
        {"TestLogger", DPrint::Flow, "", "two and more text"}};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, LogFormatsWithoutFunctionName) {
    DPrint log("VellmarkClientAPI");
    LogCapture capture(log);

    log.Log(DPrint::Info, "Version: %s", "v3.1.6-0-g14567ae-dirty");
    log.Log(DPrint::Flow, "%d of %u, %c", -3, 5u, 'x');

    std::vector<LogCapture::Line> const expected{
        {"VellmarkClientAPI", DPrint::Info, "", "Version: v3.1.6-0-g14567ae-dirty"},
        {"VellmarkClientAPI", DPrint::Flow, "", "-3 of 5, x"}};
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(DPrintTest, LongLogLineIsComplete) {
    DPrint log("TestLogger");
    LogCapture capture(log);
    std::string body;
    for (int i = 0; body.size() < 10000; ++i) body += std::to_string(i) + ',';

    log.Log(DPrint::Flow, "begin %s end", body.c_str());

    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Texts().front(), "begin " + body + " end");
}

TEST_F(DPrintTest, LongLineReachesStandardErrorComplete) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    std::string const body(6000, 'z');

    StandardErrorToFile error;
    ASSERT_TRUE(error.Redirected());
    log.Log(DPrint::Flow, "%s|", body.c_str());
    std::string const written = error.Release();

    std::string const tail = " TestLogger[2] " + body + "|\n";
    ASSERT_GE(written.size(), tail.size());
    EXPECT_EQ(written.substr(written.size() - tail.size()), tail);
    EXPECT_EQ(written.find('\n'), written.size() - 1);
}

TEST_F(DPrintTest, ThresholdFollowsTarvLogLevel) {
    struct Case {
        char const* value;
        DPrint::Level level;
    };
    for (Case const& c :
         {Case{"0", DPrint::Error}, Case{"1", DPrint::Warning}, Case{"2", DPrint::Flow},
          Case{"3", DPrint::Info}, Case{"4", DPrint::Detail}, Case{" 3", DPrint::Info}}) {
        ScopedEnvironment environment("TARV_LOG_LEVEL", c.value);
        EXPECT_EQ(DPrint::ThresholdFromEnvironment(), c.level) << "TARV_LOG_LEVEL=" << c.value;
        DPrint log("TestLogger");
        EXPECT_EQ(log.Threshold(), c.level) << "TARV_LOG_LEVEL=" << c.value;
    }
}

TEST_F(DPrintTest, ThresholdIsWarningWithoutValidTarvLogLevel) {
    {
        ScopedEnvironment environment("TARV_LOG_LEVEL", nullptr);
        EXPECT_EQ(DPrint::ThresholdFromEnvironment(), DPrint::Warning);
        EXPECT_EQ(DPrint("TestLogger").Threshold(), DPrint::Warning);
    }
    for (char const* value : {"", "garbage", "5", "-1", "3x", "99999999999999999999", "2.5"}) {
        ScopedEnvironment environment("TARV_LOG_LEVEL", value);
        EXPECT_EQ(DPrint::ThresholdFromEnvironment(), DPrint::Warning)
            << "TARV_LOG_LEVEL=" << value;
        EXPECT_EQ(DPrint("TestLogger").Threshold(), DPrint::Warning) << "TARV_LOG_LEVEL=" << value;
    }
}

TEST_F(DPrintTest, SetSinkReturnsThePreviousSink) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    std::vector<std::string> first;
    std::vector<std::string> second;

    DPrint::Sink const defaultSink =
        DPrint::SetSink([&first](DPrint::Record const& r) { first.emplace_back(r.text); });
    EXPECT_FALSE(defaultSink);  // the default sink is represented by an empty one
    DPrint::Sink const previous =
        DPrint::SetSink([&second](DPrint::Record const& r) { second.emplace_back(r.text); });
    log.Log(DPrint::Flow, "to second");
    ASSERT_TRUE(previous);
    previous(DPrint::Record{std::chrono::system_clock::now(), "L", DPrint::Flow, "", "direct"});

    EXPECT_EQ(first, std::vector<std::string>{"direct"});
    EXPECT_EQ(second, std::vector<std::string>{"to second"});

    DPrint::Sink const last = DPrint::SetSink({});
    ASSERT_TRUE(last);
    last(DPrint::Record{std::chrono::system_clock::now(), "L", DPrint::Flow, "", "again"});
    EXPECT_EQ(second, (std::vector<std::string>{"to second", "again"}));
}

TEST_F(DPrintTest, SinkReceivesTimeOfTheLine) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    std::vector<std::chrono::system_clock::time_point> times;
    DPrint::SetSink([&times](DPrint::Record const& r) { times.push_back(r.time); });

    auto const before = std::chrono::system_clock::now();
    log.Log(DPrint::Flow, "now");
    auto const after = std::chrono::system_clock::now();

    ASSERT_EQ(times.size(), 1u);
    EXPECT_LE(before, times.front());
    EXPECT_LE(times.front(), after);
}

TEST_F(DPrintTest, EmptySinkRestoresTheDefaultSink) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    int custom = 0;
    DPrint::SetSink([&custom](DPrint::Record const&) { ++custom; });
    DPrint::Sink const replaced = DPrint::SetSink({});
    EXPECT_TRUE(replaced);

    StandardErrorToFile error;
    ASSERT_TRUE(error.Redirected());
    log.Log(DPrint::Flow, "back to standard error");
    std::string const written = error.Release();

    EXPECT_EQ(custom, 0);
    EXPECT_NE(written.find("TestLogger[2] back to standard error\n"), std::string::npos) << written;
}

TEST_F(DPrintTest, DefaultSinkWritesTimeLoggerLevelFunctionAndText) {
    DPrint log("VellmarkClientAPI");
    log.SetThreshold(DPrint::Info);

    StandardErrorToFile error;
    ASSERT_TRUE(error.Redirected());
    auto const before = std::chrono::system_clock::now();
    std::ostringstream stream;
    log.Prefix(stream, DPrint::Flow, "Connected");
    stream << "router up";
    log.Put(stream, DPrint::Flow);
    log.Log(DPrint::Info, "Version: %s", "v1");
    auto const after = std::chrono::system_clock::now();
    std::string const written = error.Release();

    std::vector<std::string> const lines = SplitLines(written);
    ASSERT_EQ(lines.size(), 2u) << written;
    ASSERT_EQ(written.back(), '\n');
    std::vector<std::string> rests;
    for (std::string const& line : lines) {
        std::chrono::system_clock::time_point stamped;
        std::string rest;
        ASSERT_TRUE(SplitStamp(line, stamped, rest)) << line;
        EXPECT_LE(std::chrono::time_point_cast<std::chrono::microseconds>(before), stamped);
        EXPECT_LE(stamped, after);
        rests.push_back(rest);
    }
    EXPECT_EQ(rests[0], "VellmarkClientAPI[2] Connected: router up");
    EXPECT_EQ(rests[1], "VellmarkClientAPI[3] Version: v1");
}

// Each line says which thread wrote it and its number in that thread; even lines are
// streamed with a function name, odd ones formatted.
void LogFromThreads(DPrint const& log, int threads, int linesPerThread,
                    std::string const& padding) {
    std::promise<void> start;
    std::shared_future<void> const started = start.get_future().share();
    std::vector<std::future<void>> workers;
    for (int t = 0; t < threads; ++t) {
        workers.push_back(
            std::async(std::launch::async, [&log, &padding, started, t, linesPerThread] {
                started.wait();
                for (int i = 0; i < linesPerThread; ++i) {
                    if (i % 2 == 0) {
                        std::ostringstream stream;
                        log.Prefix(stream, DPrint::Flow, "Worker");
                        stream << "thread " << t << " line " << i << ' ' << padding;
                        log.Put(stream, DPrint::Flow);
                    } else {
                        log.Log(DPrint::Flow, "thread %d line %d %s", t, i, padding.c_str());
                    }
                }
            }));
    }
    start.set_value();
    for (auto& worker : workers) {
        ASSERT_EQ(worker.wait_for(kThreadBound), std::future_status::ready);
    }
}

// Checks "thread T line I padding" texts: all present, each thread's in its order.
void ExpectAllLinesInThreadOrder(std::vector<std::pair<std::string, std::string>> const& lines,
                                 int threads, int linesPerThread, std::string const& padding) {
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(threads * linesPerThread));
    std::vector<int> next(static_cast<std::size_t>(threads), 0);
    for (auto const& [function, text] : lines) {
        int t = -1;
        int i = -1;
        char rest[2] = {};
        ASSERT_EQ(std::sscanf(text.c_str(), "thread %d line %d %1s", &t, &i, rest), 3) << text;
        ASSERT_GE(t, 0);
        ASSERT_LT(t, threads);
        EXPECT_EQ(i, next[static_cast<std::size_t>(t)]) << text;
        next[static_cast<std::size_t>(t)] = i + 1;
        EXPECT_EQ(text,
                  "thread " + std::to_string(t) + " line " + std::to_string(i) + ' ' + padding);
        EXPECT_EQ(function, i % 2 == 0 ? "Worker" : "") << text;
    }
    for (int count : next) EXPECT_EQ(count, linesPerThread);
}

TEST_F(DPrintTest, ConcurrentLinesAreCapturedCompleteAndInThreadOrder) {
    DPrint log("TestLogger");
    LogCapture capture(log, DPrint::Flow);
    std::string const padding(200, 'p');

    LogFromThreads(log, 8, 500, padding);

    std::vector<std::pair<std::string, std::string>> lines;
    for (LogCapture::Line const& line : capture.Lines()) {
        EXPECT_EQ(line.logger, "TestLogger");
        EXPECT_EQ(line.level, DPrint::Flow);
        lines.emplace_back(line.function, line.text);
    }
    ExpectAllLinesInThreadOrder(lines, 8, 500, padding);
}

TEST_F(DPrintTest, ConcurrentLinesOnStandardErrorNeverInterleave) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    std::string const padding(300, 'q');

    StandardErrorToFile error;
    ASSERT_TRUE(error.Redirected());
    LogFromThreads(log, 8, 500, padding);
    std::string const written = error.Release();

    ASSERT_FALSE(written.empty());
    EXPECT_EQ(written.back(), '\n');
    std::string const marker = "TestLogger[2] ";
    std::vector<std::pair<std::string, std::string>> lines;
    for (std::string const& line : SplitLines(written)) {
        std::chrono::system_clock::time_point stamped;
        std::string body;
        ASSERT_TRUE(SplitStamp(line, stamped, body)) << line;
        ASSERT_EQ(body.rfind(marker, 0), 0u) << line;
        body.erase(0, marker.size());
        std::string function;
        if (body.rfind("Worker: ", 0) == 0) {
            function = "Worker";
            body.erase(0, 8);
        }
        lines.emplace_back(function, body);
    }
    ExpectAllLinesInThreadOrder(lines, 8, 500, padding);
}

}  // namespace
