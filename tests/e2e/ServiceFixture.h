#pragma once
// What the end-to-end tests share: a runtime folder and a store of their own, the real
// vellmarkd as a child process, a client of libVellmarkClient on its own task, the admin
// client, and vellmarkctl runs.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminClient.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/task/Task.h"
#include "platform/testing/Inbox.h"
#include "platform/testing/LogCapture.h"
#include "tests/e2e/ChildProcess.h"

namespace Vellmark::EndToEnd {

using namespace std::chrono_literals;
using Admin::AdminClient;
using Admin::AdminError;
using Tarv::Testing::Inbox;
using Tarv::Testing::LogCapture;

// How long a test waits for anything that should come at once.
constexpr auto kBound = std::chrono::milliseconds(10s);

inline bool Same(google::protobuf::Message const& a, google::protobuf::Message const& b) {
    return google::protobuf::util::MessageDifferencer::Equals(a, b);
}

inline Vellmark::Admin::StoreDocument SeedDocument() {
    std::string text;
    Vellmark::Admin::StoreDocument document;
    if (!Vellmark::Json::ReadFile(VELLMARK_SEED_PATH, text).empty() ||
        !Vellmark::Json::Parse(text, document).empty()) {
        ADD_FAILURE() << "cannot read " << VELLMARK_SEED_PATH;
    }
    return document;
}

class ServiceTest : public ::testing::Test {
protected:
    ServiceTest() {
        Vellmark::Json::QuietenKnownWarnings();
        char pattern[] = "/tmp/vellmark-e2e-XXXXXX";
        char* made = ::mkdtemp(pattern);
        m_folder = made ? made : "";
        IPCDirectory::Get().SetRuntimeFolder(m_folder);
    }
    ~ServiceTest() override {
        m_client.reset();
        m_task.Stop();
        m_service.reset();
        IPCDirectory::Get().SetRuntimeFolder("");
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string const& Folder() const { return m_folder; }
    std::string StorePath() const { return m_folder + "/vellmark.db"; }

    // Starts vellmarkd on the test's store (seeded from the example document when asked),
    // with `extra` arguments (at log level 2 unless they name one), and waits until it
    // serves.
    void StartService(bool seed = true, std::vector<std::string> const& extra = {}) {
        std::vector<std::string> arguments{"--db", StorePath(), "--runtime-dir", m_folder};
        if (std::find(extra.begin(), extra.end(), "--log-level") == extra.end()) {
            arguments.insert(arguments.end(), {"--log-level", "2"});
        }
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        if (seed) {
            arguments.push_back("--seed");
            arguments.push_back(VELLMARK_SEED_PATH);
        }
        m_service = std::make_unique<ChildProcess>(VELLMARKD_PATH, arguments);
        ASSERT_TRUE(m_service->WaitForError("vellmarkd: serving", kBound)) << m_service->Errors();
    }
    // SIGTERM, and a clean exit.
    void StopService() {
        m_service->Signal(SIGTERM);
        EXPECT_EQ(m_service->ExitCode(), 0) << m_service->Errors();
        m_service.reset();
    }
    void KillService() {
        m_service->Signal(SIGKILL);
        ASSERT_TRUE(m_service->Wait(kBound).has_value());
        m_service.reset();
    }
    ChildProcess& Service() { return *m_service; }

    // The client, made on first use.
    VellmarkClientAPI& Client() {
        if (!m_client) m_client = std::make_unique<VellmarkClientAPI>(&m_task);
        return *m_client;
    }
    // Returns once the client has a connection: the answer to a query proves it.
    void WaitUntilConnected() {
        auto answered = std::make_shared<Inbox<bool>>();
        Client().GetProductSettings(
            [answered](VellmarkPB::ProductSettings const&) { answered->Put(true); });
        ASSERT_TRUE(answered->WaitFor(1, kBound)) << "the client did not connect";
    }

    // Runs vellmarkctl on this test's runtime folder and waits for it to end.
    std::unique_ptr<ChildProcess> Ctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--runtime-dir", m_folder});
        auto ctl = std::make_unique<ChildProcess>(VELLMARKCTL_PATH, arguments);
        EXPECT_TRUE(ctl->Wait(kBound).has_value()) << "vellmarkctl did not end";
        return ctl;
    }

    // Writes `text` into a file of the test's folder and returns its path.
    std::string WriteFile(std::string const& name, std::string const& text) const {
        std::string const path = m_folder + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    // The admin's view of a resource.
    template <class T>
    T AdminGet(std::string const& resource) {
        AdminClient admin(kBound);
        Vellmark::Admin::Request request;
        request.mutable_get()->set_resource(resource);
        T value;
        EXPECT_EQ(Vellmark::Json::Parse(admin.Command(request), value), "");
        return value;
    }
    void AdminPut(std::string const& resource, google::protobuf::Message const& value) {
        AdminClient admin(kBound);
        Vellmark::Admin::Request request;
        request.mutable_put()->set_resource(resource);
        request.mutable_put()->set_json(Vellmark::Json::Print(value, false));
        admin.Command(request);
    }

    IL::Task m_task{"e2e client"};

private:
    std::string m_folder;
    std::unique_ptr<ChildProcess> m_service;
    std::unique_ptr<VellmarkClientAPI> m_client;
};

}  // namespace Vellmark::EndToEnd
