#pragma once
// The client on the test seams: a manual task, the connection driver in place of the
// listener and router factory, and a capture of the library's log lines.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "client/VellmarkClientAPI.h"
#include "client/VellmarkClientLog.h"
#include "platform/testing/ConnectionDriver.h"
#include "platform/testing/LogCapture.h"
#include "platform/testing/ManualTask.h"

// Reaches the client's private dumps and error helpers.
class VellmarkClientAPITestPeer {
public:
    explicit VellmarkClientAPITestPeer(VellmarkClientAPI& client) : m_client(client) {}

    void PrintProductSettingsProtobuff(VellmarkPB::ProductSettings const& settings) {
        m_client.PrintProductSettingsProtobuff(settings);
    }
    void PrintServiceAccountResponse(VellmarkPB::serviceAccounts const& account) {
        m_client.PrintServiceAccountResponse(account);
    }
    void PrintPersonsInfoProtobuff(VellmarkPB::persons const& persons) {
        m_client.PrintPersonsInfoProtobuff(persons);
    }
    void PrintPresets(VellmarkPB::VellmarkPresets const& presets) {
        m_client.PrintPresets(presets);
    }
    void PrintDeleteResponse(VellmarkPB::VellmarkDeleteGVA const& result) {
        m_client.PrintDeleteResponse(result);
    }
    void PrintDeleteResponse(VellmarkPB::VellmarkDeleteSrvcAccount const& result) {
        m_client.PrintDeleteResponse(result);
    }
    void CreateErrorMsg(VellmarkPB::Error& error, VellmarkPB::Code code) {
        m_client.CreateErrorMsg(error, code);
    }
    void PrintErrorMessage(VellmarkPB::Error const& error) { m_client.PrintErrorMessage(error); }

private:
    VellmarkClientAPI& m_client;
};

namespace Vellmark::ClientTests {

using namespace Tarv::Testing;

using ClientLines = std::vector<LogCapture::Line>;

// A sources list with one source called `id` (its one required field set).
inline VellmarkPB::sources OneSource(std::string const& id) {
    VellmarkPB::sources sources;
    auto* source = sources.add_source();
    source->set_id(id);
    source->mutable_sourceproviderid()->set_text("provider");
    return sources;
}

// A callback that counts its calls in `calls`.
template <class T>
Callback<T> Counting(int& calls) {
    return [&calls](T const&) { ++calls; };
}

// A line of the library's logger.
inline LogCapture::Line ClientLine(DPrint::Level level, std::string function, std::string text) {
    return LogCapture::Line{"VellmarkClientAPI", level, std::move(function), std::move(text)};
}

class ClientTest : public ::testing::Test {
protected:
    // Declared in this order so that the client goes first and the task last.
    ManualTask task;
    ConnectionDriver driver;
    LogCapture log{VellmarkClientLog()};
    std::unique_ptr<VellmarkClientAPI> client = std::make_unique<VellmarkClientAPI>(&task);
    VellmarkClientAPITestPeer peer{*client};

    // The lines of the library's logger, in order.
    std::vector<LogCapture::Line> Lines() const {
        std::vector<LogCapture::Line> lines;
        for (auto const& line : log.Lines()) {
            if (line.logger == "VellmarkClientAPI") lines.push_back(line);
        }
        return lines;
    }
    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (auto const& line : Lines()) texts.push_back(line.text);
        return texts;
    }
    // Position of the first line equal to `line` at or after `from`; -1 if there is none.
    int IndexOf(LogCapture::Line const& line, int from = 0) const {
        auto lines = Lines();
        for (int i = from; i < static_cast<int>(lines.size()); ++i) {
            if (lines[i] == line) return i;
        }
        return -1;
    }
    int Count(LogCapture::Line const& line) const {
        int n = 0;
        for (auto const& l : Lines()) n += l == line ? 1 : 0;
        return n;
    }

    // Reports a connection and runs the task until idle; returns the new router, which is
    // null if its creation was made to fail.
    std::shared_ptr<FakeRouter> Connect() {
        driver.Connect();
        task.RunUntilIdle();
        return driver.Router();
    }
};

}  // namespace Vellmark::ClientTests
