#pragma once
// What the console's tests share: the real vellmarkd (tests/e2e/ServiceFixture.h), the real
// vellmark-console started on it as a child process, and HTTP calls to it.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <httplib.h>

#include <condition_variable>
#include <mutex>
#include <regex>
#include <thread>

#include "tests/e2e/ServiceFixture.h"

namespace Vellmark::ConsoleTest {

using namespace Vellmark::EndToEnd;

// The clear values that masking hides in `documents`, by the sensitivity table.
inline std::vector<std::string> SecretsOf(
    std::vector<google::protobuf::Message const*> const& documents) {
    std::vector<std::string> secrets;
    for (auto const* document : documents) {
        auto const values = Vellmark::Admin::SecretValues(*document);
        secrets.insert(secrets.end(), values.begin(), values.end());
    }
    return secrets;
}

// Fails for every secret that `text` holds in clear.
inline void ExpectNoSecret(std::string const& where, std::string const& text,
                           std::vector<std::string> const& secrets) {
    for (auto const& secret : secrets) {
        EXPECT_EQ(text.find(secret), std::string::npos) << where << " shows \"" << secret << "\"";
    }
}

// How long a console may take to stop: it ends its waits for the service first, each of
// which an emulator under load may stretch.
constexpr auto kStopBound = std::chrono::milliseconds(60s);

class ConsoleTest : public ServiceTest {
protected:
    ~ConsoleTest() override {
        // A console that ended already is not signalled: its pid may be another's now.
        if (m_console && !m_console->Wait(std::chrono::milliseconds(0))) {
            m_console->Signal(SIGTERM);
            m_console->Wait(kStopBound);
        }
    }

    // Starts vellmark-console on this test's runtime folder with `extra` arguments and
    // waits for the URL it prints.
    void StartConsole(std::vector<std::string> const& extra = {}) {
        std::vector<std::string> arguments{"--runtime-dir", Folder(), "--port", "0"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        m_console = std::make_unique<ChildProcess>(VELLMARK_CONSOLE_PATH, arguments);
        ASSERT_TRUE(m_console->WaitForOutput("\n", kBound)) << m_console->Errors();
        std::smatch match;
        std::string const output = m_console->Output();
        ASSERT_TRUE(std::regex_search(
            output, match, std::regex(R"(http://127\.0\.0\.1:(\d+)/\?token=([0-9a-f]{64})\n)")))
            << output;
        m_port = std::stoi(match[1]);
        m_token = match[2];
    }
    ChildProcess& Console() { return *m_console; }
    int Port() const { return m_port; }
    std::string const& Token() const { return m_token; }

    // A client of the console; with `token` it carries it as a bearer token.
    std::unique_ptr<httplib::Client> Http(bool token = true) const {
        auto client = std::make_unique<httplib::Client>("127.0.0.1", m_port);
        client->set_read_timeout(std::chrono::seconds(30));
        if (token) client->set_bearer_token_auth(m_token);
        return client;
    }

    // The events the console streams until `done` holds for what arrived so far, or the
    // bound passed. A heartbeat comes at least every 15 s, so the stream ends soon after.
    std::string Stream(std::function<bool(std::string const&)> const& done) {
        struct Shared {
            std::mutex mutex;
            std::condition_variable changed;
            std::string text;
            bool finished = false;
            bool stop = false;
        };
        auto shared = std::make_shared<Shared>();
        auto client = Http();
        std::thread reader([&client, shared] {
            client->Get("/api/events", [shared](char const* data, std::size_t length) {
                std::lock_guard<std::mutex> lock(shared->mutex);
                shared->text.append(data, length);
                shared->changed.notify_all();
                return !shared->stop;
            });
            std::lock_guard<std::mutex> lock(shared->mutex);
            shared->finished = true;
            shared->changed.notify_all();
        });
        std::string text;
        {
            std::unique_lock<std::mutex> lock(shared->mutex);
            shared->changed.wait_for(lock, kBound,
                                     [&] { return shared->finished || done(shared->text); });
            shared->stop = true;
            text = shared->text;
        }
        client->stop();
        reader.join();
        return text;
    }

    // The clear values the store holds now, by the sensitivity table.
    std::vector<std::string> StoredSecrets() {
        AdminClient admin(kBound);
        Vellmark::Admin::Request request;
        request.set_exportstore(true);
        Vellmark::Admin::StoreDocument document;
        EXPECT_EQ(Vellmark::Json::Parse(admin.Command(request), document), "");
        auto const seed = SeedDocument();
        return SecretsOf({&document, &seed});
    }

private:
    std::unique_ptr<ChildProcess> m_console;
    int m_port = 0;
    std::string m_token;
};

}  // namespace Vellmark::ConsoleTest
