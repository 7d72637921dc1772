// One JSON shape per concept across vellmarkctl's commands: numbers as numbers, empty
// lists as lists, payload types named as frames name them; and monitor's filters.
#include <gmock/gmock.h>
#include <unistd.h>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/ServiceFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::EndToEnd {
namespace {

using google::protobuf::Value;

class OutputShapes : public ServiceTest {
protected:
    TestJson::Fields Object(std::vector<std::string> const& command) {
        auto ctl = Ctl(command);
        EXPECT_EQ(ctl->ExitCode(), 0) << ctl->Errors();
        TestJson::Fields fields;
        EXPECT_TRUE(TestJson::ParseObject(ctl->Output(), fields)) << ctl->Output();
        return fields;
    }
    // The objects of monitor --json's lines.
    static std::vector<TestJson::Fields> Lines(std::string const& output) {
        std::vector<TestJson::Fields> lines;
        std::size_t at = 0;
        for (auto end = output.find('\n'); end != std::string::npos;
             at = end + 1, end = output.find('\n', at)) {
            TestJson::Fields fields;
            EXPECT_TRUE(TestJson::ParseObject(output.substr(at, end - at), fields));
            lines.push_back(fields);
        }
        return lines;
    }
    // This process's client, as `admin clients` lists it (other connections may still be
    // on their way out).
    TestJson::Fields OwnClient() {
        auto const listed = Object({"admin", "clients"});
        for (auto const& value : listed.at("clients").list_value().values()) {
            auto const client = TestJson::FieldsOf(value.struct_value());
            if (client.at("pid").number_value() == ::getpid()) return client;
        }
        ADD_FAILURE() << "this process's client is not listed";
        return {};
    }
    std::unique_ptr<ChildProcess> StartMonitor(std::vector<std::string> const& options) {
        std::vector<std::string> arguments{"--runtime-dir", Folder(), "--timeout", "0",
                                           "monitor",       "--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto monitor = std::make_unique<ChildProcess>(VELLMARKCTL_PATH, arguments);
        EXPECT_TRUE(monitor->WaitForError("watching the traffic", kBound)) << monitor->Errors();
        return monitor;
    }
};

TEST_F(OutputShapes, EmptyListsPrintAsEmptyLists) {
    StartService();
    EXPECT_THAT(Ctl({"admin", "clients"})->Output(),
                testing::StartsWith("{\"clients\":[],\"users\":[],\"limits\":{"));
    EXPECT_EQ(Ctl({"admin", "acks"})->Output(), "{\"counts\":[],\"latest\":[]}\n");
    auto put = Ctl({"admin", "put", "groups", WriteFile("groups.json", "{}")});
    ASSERT_EQ(put->ExitCode(), 0) << put->Errors();
    auto groups = Object({"get", "groups"});
    ASSERT_EQ(groups.size(), 1u);
    EXPECT_EQ(groups.begin()->second.kind_case(), Value::kListValue);
}

TEST_F(OutputShapes, SessionsAndCountsAreNumbersInEveryCommand) {
    StartService();
    auto updates = std::make_shared<Inbox<int>>();
    Client().SubscribePresetsRequest(
        "", [updates](VellmarkPB::VellmarkPresets const&) { updates->Put(1); });
    WaitUntilConnected();
    auto monitor = StartMonitor({"--count", "1", "--id", "VELLMARK_MESSAGE_GET_GROUPS"});
    auto groups = std::make_shared<Inbox<int>>();
    Client().GetGroups([groups](VellmarkPB::VellmarkGroups const&) { groups->Put(1); });
    ASSERT_TRUE(groups->WaitFor(1, kBound));
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();
    auto const frame = Lines(monitor->Output()).at(0);
    EXPECT_EQ(frame.at("session").kind_case(), Value::kNumberValue);

    auto const client = OwnClient();
    EXPECT_EQ(client.at("session").kind_case(), Value::kNumberValue);
    EXPECT_EQ(client.at("requests").kind_case(), Value::kNumberValue);
    EXPECT_EQ(client.at("session").number_value(), frame.at("session").number_value());

    auto put =
        Ctl({"admin", "put", "presets",
             WriteFile("presets.json", Vellmark::Json::Print(SeedDocument().presets(), false))});
    ASSERT_EQ(put->ExitCode(), 0);
    ASSERT_TRUE(updates->WaitFor(1, kBound));
    // The client acknowledged the update before handing it over; a reply on the same
    // connection comes after the service has taken that acknowledgement.
    WaitUntilConnected();
    auto const acks = Object({"admin", "acks"});
    ASSERT_EQ(acks.at("counts").list_value().values_size(), 1);
    for (auto const& list : {"counts", "latest"}) {
        EXPECT_EQ(acks.at(list).kind_case(), Value::kListValue);
    }
    for (auto const& count : acks.at("counts").list_value().values()) {
        EXPECT_EQ(TestJson::FieldsOf(count.struct_value()).at("count").kind_case(),
                  Value::kNumberValue);
    }
    for (auto const& latest : acks.at("latest").list_value().values()) {
        EXPECT_EQ(TestJson::FieldsOf(latest.struct_value()).at("session").kind_case(),
                  Value::kNumberValue);
    }
}

TEST_F(OutputShapes, PayloadTypesAreNamedAlikeByIdsAndMonitor) {
    StartService();
    auto monitor = StartMonitor({"--count", "2"});
    ASSERT_EQ(Ctl({"get", "persons"})->ExitCode(), 0);
    ASSERT_EQ(monitor->ExitCode(), 0) << monitor->Errors();
    auto const frames = Lines(monitor->Output());
    ASSERT_EQ(frames.size(), 2u);
    std::string reply;
    auto const ids = Object({"ids"});
    for (auto const& row : ids.at("messageIds").list_value().values()) {
        auto const fields = TestJson::FieldsOf(row.struct_value());
        if (fields.at("id").number_value() == VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS) {
            reply = fields.at("reply").string_value();
        }
    }
    EXPECT_EQ(reply, "persons");
    EXPECT_EQ(frames.at(1).at("payloadType").string_value(), reply);
}

TEST_F(OutputShapes, MonitorShowsOnlyTheFramesAskedFor) {
    StartService();
    // By identifier: of a sources query and a persons query, the persons query's two frames.
    auto byId = StartMonitor({"--count", "2", "--id", "VELLMARK_MESSAGE_GET_PERSONS"});
    ASSERT_EQ(Ctl({"get", "sources"})->ExitCode(), 0);
    ASSERT_EQ(Ctl({"get", "persons"})->ExitCode(), 0);
    ASSERT_EQ(byId->ExitCode(), 0) << byId->Errors();
    auto const persons = Lines(byId->Output());
    ASSERT_EQ(persons.size(), 2u) << byId->Output();
    for (auto const& frame : persons) {
        EXPECT_EQ(frame.at("messageId").number_value(), VellmarkPB::VELLMARK_MESSAGE_GET_PERSONS);
    }
    // By connection: the client's, not vellmarkctl's.
    WaitUntilConnected();
    auto const session = static_cast<std::uint64_t>(OwnClient().at("session").number_value());
    auto byConnection = StartMonitor({"--count", "1", "--connection", std::to_string(session)});
    ASSERT_EQ(Ctl({"get", "sources"})->ExitCode(), 0);
    auto groups = std::make_shared<Inbox<int>>();
    Client().GetGroups([groups](VellmarkPB::VellmarkGroups const&) { groups->Put(1); });
    ASSERT_TRUE(groups->WaitFor(1, kBound));
    ASSERT_EQ(byConnection->ExitCode(), 0) << byConnection->Errors();
    auto const frames = Lines(byConnection->Output());
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].at("session").number_value(), session);
    EXPECT_EQ(frames[0].at("messageId").number_value(), VellmarkPB::VELLMARK_MESSAGE_GET_GROUPS);
    EXPECT_EQ(Ctl({"monitor", "--id", "NOT_AN_ID"})->ExitCode(), 2);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
