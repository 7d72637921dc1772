#pragma once
// What the tests of the client's dumps share: the lines a dump writes, under its own
// function name, and a fixture that runs a dump under every threshold.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/client/ClientTestSupport.h"

namespace Vellmark::ClientTests {

using LineList = std::vector<LogCapture::Line>;

// Makes the lines of one dump, each under the dump's own function name.
struct Dump {
    char const* function;
    LogCapture::Line operator()(DPrint::Level level, std::string text) const {
        return ClientLine(level, function, std::move(text));
    }
};

inline constexpr Dump kSources{"PrintSourcesProtobuf"};
inline constexpr Dump kGroups{"PrintGroupsProtobuf"};
inline constexpr Dump kSettings{"PrintProductSettingsProtobuff"};
inline constexpr Dump kAccount{"PrintServiceAccountResponse"};
inline constexpr Dump kPersons{"PrintPersonsInfoProtobuff"};
inline constexpr Dump kPresets{"PrintPresets"};
inline constexpr Dump kDelete{"PrintDeleteResponse"};
inline constexpr Dump kError{"PrintErrorMessage"};

inline constexpr DPrint::Level kFlow = DPrint::Flow;
inline constexpr DPrint::Level kInfo = DPrint::Info;
inline constexpr DPrint::Level kDetail = DPrint::Detail;

inline LineList operator+(LineList a, LineList const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The lines of `lines` that a logger with `threshold` writes.
inline LineList UpTo(DPrint::Level threshold, LineList lines) {
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [threshold](auto const& line) { return line.level > threshold; }),
                lines.end());
    return lines;
}

inline bool AnyLineContains(LineList const& lines, std::string const& value) {
    return std::any_of(lines.begin(), lines.end(), [&value](auto const& line) {
        return line.text.find(value) != std::string::npos;
    });
}

class DiagnosticsTest : public ClientTest {
protected:
    // Drops the lines the client wrote while being constructed.
    void SetUp() override { log.Clear(); }

    // Runs `dump` once for each threshold below Detail and expects, each time, exactly the
    // lines of `all` that the threshold allows.
    void ExpectOnlyLinesTheThresholdAllows(std::function<void()> const& dump, LineList const& all) {
        for (auto threshold : {DPrint::Error, DPrint::Warning, DPrint::Flow, DPrint::Info}) {
            SCOPED_TRACE("threshold " + std::to_string(threshold));
            log.Clear();
            VellmarkClientLog().SetThreshold(threshold);
            dump();
            EXPECT_EQ(Lines(), UpTo(threshold, all));
        }
    }
};

}  // namespace Vellmark::ClientTests
