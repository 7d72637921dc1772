#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/log/DPrint.h"
#include "platform/testing/LogCapture.h"

using namespace Tarv::Testing;

namespace {

std::string Printed(LogCapture::Line const& line) {
    std::ostringstream out;
    out << line;
    return out.str();
}

TEST(LogCaptureTest, CapturesLoggerLevelFunctionAndText) {
    DPrint log("VellmarkClientAPI");
    LogCapture capture(log);

    std::ostringstream stream;
    log.Prefix(stream, DPrint::Flow, "Connected");
    stream << "text";
    log.Put(stream, DPrint::Flow);
    log.Log(DPrint::Detail, "field %d", 4);

    std::vector<LogCapture::Line> const expected{
        {"VellmarkClientAPI", DPrint::Flow, "Connected", "text"},
        {"VellmarkClientAPI", DPrint::Detail, "", "field 4"}};
    EXPECT_EQ(capture.Lines(), expected);
    EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"text", "field 4"}));
}

TEST(LogCaptureTest, CaptureSetsThresholdAndRestoresIt) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Warning);
    {
        LogCapture capture(log, DPrint::Info);
        EXPECT_EQ(log.Threshold(), DPrint::Info);
        log.Log(DPrint::Info, "kept");
        log.Log(DPrint::Detail, "dropped");
        EXPECT_EQ(capture.Texts(), std::vector<std::string>{"kept"});
    }
    EXPECT_EQ(log.Threshold(), DPrint::Warning);
}

TEST(LogCaptureTest, DefaultCaptureThresholdIsDetail) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Error);
    LogCapture capture(log);
    EXPECT_EQ(log.Threshold(), DPrint::Detail);
}

TEST(LogCaptureTest, CaptureRestoresThePreviousSink) {
    DPrint log("TestLogger");
    log.SetThreshold(DPrint::Flow);
    std::vector<std::string> own;
    DPrint::Sink outer =
        DPrint::SetSink([&own](DPrint::Record const& r) { own.emplace_back(r.text); });
    {
        LogCapture capture(log, DPrint::Flow);
        log.Log(DPrint::Flow, "while capturing");
        EXPECT_EQ(capture.Texts(), std::vector<std::string>{"while capturing"});
    }
    log.Log(DPrint::Flow, "after capturing");
    DPrint::SetSink(std::move(outer));

    EXPECT_EQ(own, std::vector<std::string>{"after capturing"});
}

TEST(LogCaptureTest, NestedCapturesRestoreInTurn) {
    DPrint log("TestLogger");
    LogCapture outer(log, DPrint::Flow);
    {
        LogCapture inner(log, DPrint::Detail);
        log.Log(DPrint::Detail, "inner");
        EXPECT_EQ(inner.Texts(), std::vector<std::string>{"inner"});
    }
    EXPECT_EQ(log.Threshold(), DPrint::Flow);
    log.Log(DPrint::Flow, "outer");
    EXPECT_EQ(outer.Texts(), std::vector<std::string>{"outer"});
}

TEST(LogCaptureTest, ClearDropsCapturedLines) {
    DPrint log("TestLogger");
    LogCapture capture(log);
    log.Log(DPrint::Flow, "one");
    capture.Clear();
    EXPECT_TRUE(capture.Lines().empty());
    log.Log(DPrint::Flow, "two");
    EXPECT_EQ(capture.Texts(), std::vector<std::string>{"two"});
}

TEST(LogCaptureTest, LinePrintsLevelFunctionAndText) {
    EXPECT_EQ(Printed({"VellmarkClientAPI", DPrint::Flow, "Connected", "text"}),
              "[2] Connected: text");
    EXPECT_EQ(Printed({"VellmarkClientAPI", DPrint::Info, "", "Version: v1"}), "[3] Version: v1");
}

TEST(LogCaptureTest, LinesEqualOnlyWhenEveryFieldEquals) {
    LogCapture::Line const line{"L", DPrint::Flow, "F", "T"};
    EXPECT_TRUE(line == (LogCapture::Line{"L", DPrint::Flow, "F", "T"}));
    EXPECT_FALSE(line == (LogCapture::Line{"M", DPrint::Flow, "F", "T"}));
    EXPECT_FALSE(line == (LogCapture::Line{"L", DPrint::Info, "F", "T"}));
    EXPECT_FALSE(line == (LogCapture::Line{"L", DPrint::Flow, "G", "T"}));
    EXPECT_FALSE(line == (LogCapture::Line{"L", DPrint::Flow, "F", "U"}));
}

}  // namespace
