// Voice-assistant (GVA) account operations, their replies and their error notifications.
#include <google/protobuf/util/message_differencer.h>

#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using google::protobuf::util::MessageDifferencer;

struct Recorder {
    std::vector<std::string> calls;
    template <class T>
    Callback<T> Named(std::string name) {
        return [this, name](T const&) { calls.push_back(name); };
    }
    std::vector<VellmarkPB::Error> errors;
    Callback<VellmarkPB::Error> OnError() {
        return [this](VellmarkPB::Error const& e) { errors.push_back(e); };
    }
};

VellmarkPB::Error ServiceError(VellmarkPB::MessageId failed) {
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(1009);
    error.set_message("already there");
    error.set_messageid(failed);
    return error;
}

class GvaAccounts : public ClientTest {};

TEST_F(GvaAccounts, CreateWithNoPersonAndNoAccountReports1004OnTheCallersThread) {
    Recorder r;
    client->CreateGVAAccount("", "", "x", {}, r.OnError());
    ASSERT_EQ(r.errors.size(), 1u);
    EXPECT_EQ(r.errors[0].code(), 6);
    EXPECT_EQ(r.errors[0].subcode(), 1004);
    EXPECT_EQ(r.errors[0].message(), "Input data error: CODE_EMPTY_PERSON_ID");
    EXPECT_EQ(task.Pending(), 0u) << "nothing posted";
}

TEST_F(GvaAccounts, CreateWithNoProviderAccountReports1005) {
    Recorder r;
    client->CreateGVAAccount("p", "", "", {}, r.OnError());
    ASSERT_EQ(r.errors.size(), 1u);
    EXPECT_EQ(r.errors[0].subcode(), 1005);
    EXPECT_EQ(task.Pending(), 0u);
}

TEST_F(GvaAccounts, CreateWithAnEmptyDeviceIdIsSentWithItEmpty) {
    auto router = Connect();
    Recorder r;
    client->CreateGVAAccount("p", "a", "", {}, r.OnError());
    task.RunUntilIdle();
    EXPECT_TRUE(r.errors.empty());
    ASSERT_EQ(router->Sends().size(), 1u);
    auto request = router->SentPayload<VellmarkPB::serviceAccounts>(0);
    EXPECT_TRUE(request.attributes().has_assistantdeviceid());
    EXPECT_EQ(request.attributes().assistantdeviceid(), "");
}

TEST_F(GvaAccounts, UpdateWithAnEmptyDeviceIdReports1012AndDeleteWithAnEmptyIdReports1005) {
    Recorder r;
    client->UpdateGVAAssistantDeviceId("", {}, r.OnError());
    client->DeleteGVAAccount("", {}, r.OnError());
    ASSERT_EQ(r.errors.size(), 2u);
    EXPECT_EQ(r.errors[0].subcode(), 1012);
    EXPECT_EQ(r.errors[1].subcode(), 1005);
    EXPECT_EQ(task.Pending(), 0u);
}

TEST_F(GvaAccounts, CreateBuildsTheRequestFromItsArgumentsAndSendsUnder15) {
    auto router = Connect();
    log.Clear();
    client->CreateGVAAccount("person", "provider-acct", "device", {}, {});
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Info, "CreateGVAAccount", "CreateGVAAccount")}));
    task.RunUntilIdle();
    EXPECT_EQ(Lines().back(), ClientLine(DPrint::Info, "operator()", "do_enable"));
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 15u);
    VellmarkPB::serviceAccounts expected;
    expected.set_tarvpersonid("person");
    expected.set_provideraccountid("provider-acct");
    expected.set_accounttype("VPA");
    expected.set_provider("GVA");
    expected.set_disabled(false);
    expected.mutable_attributes()->set_assistantdeviceid("device");
    EXPECT_TRUE(
        MessageDifferencer::Equals(router->SentPayload<VellmarkPB::serviceAccounts>(0), expected));
}

TEST_F(GvaAccounts, DeleteAndUpdateSendOnlyTheirOneField) {
    auto router = Connect();
    log.Clear();
    client->DeleteGVAAccount("acct", {}, {});
    client->UpdateGVAAssistantDeviceId("dev", {}, {});
    task.RunUntilIdle();
    EXPECT_EQ(
        Lines(),
        (ClientLines{
            ClientLine(DPrint::Info, "DeleteGVAAccount", "DeleteGVAAccount"),
            ClientLine(DPrint::Info, "UpdateGVAAssistantDeviceId", "UpdateGVAAssistantDeviceId"),
            ClientLine(DPrint::Info, "operator()", "do_enable"),
            ClientLine(DPrint::Detail, "operator()", "Send GVA delete request to IPCServer"),
            ClientLine(DPrint::Info, "operator()", "do_enable")}));
    ASSERT_EQ(router->Sends().size(), 2u);
    EXPECT_EQ(router->Sends()[0].id, 17u);
    EXPECT_EQ(router->Sends()[1].id, 21u);
    VellmarkPB::VellmarkDeleteGVA deletion;
    deletion.set_accountid("acct");
    EXPECT_TRUE(MessageDifferencer::Equals(router->SentPayload<VellmarkPB::VellmarkDeleteGVA>(0),
                                           deletion));
    VellmarkPB::serviceAccounts update;
    update.mutable_attributes()->set_assistantdeviceid("dev");
    EXPECT_TRUE(
        MessageDifferencer::Equals(router->SentPayload<VellmarkPB::serviceAccounts>(1), update));
}

TEST_F(GvaAccounts, TwoCreatesBeforeAnyReplyDeliverTheFirstReplyToTheSecondCaller) {
    auto router = Connect();
    Recorder r;
    client->CreateGVAAccount("p", "a", "d", r.Named<VellmarkPB::serviceAccounts>("first"), {});
    client->CreateGVAAccount("p", "b", "d", r.Named<VellmarkPB::serviceAccounts>("second"), {});
    task.RunUntilIdle();
    router->Respond(0, VellmarkPB::serviceAccounts());
    task.RunUntilIdle();
    EXPECT_EQ(r.calls, std::vector<std::string>{"second"});
}

TEST_F(GvaAccounts, CreatedReplyIsLoggedDumpedAndHandedOn) {
    auto router = Connect();
    std::vector<std::string> created;
    client->CreateGVAAccount(
        "p", "a", "d",
        [&](VellmarkPB::serviceAccounts const& s) { created.push_back(s.accountid()); }, {});
    task.RunUntilIdle();
    log.Clear();
    VellmarkPB::serviceAccounts reply;
    reply.set_accountid("gva-1");
    router->Respond(0, reply);
    task.RunUntilIdle();
    EXPECT_EQ(created, std::vector<std::string>{"gva-1"});
    auto lines = Lines();
    ASSERT_EQ(lines.size(), 10u) << "the handler's line and the nine lines of the account";
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "GVACreated", "GVACreated"));
    EXPECT_EQ(lines[6],
              ClientLine(DPrint::Detail, "PrintServiceAccountResponse", "accounID: gva-1"));
}

TEST_F(GvaAccounts, RepliesWithoutACallbackAreOnlyLogged) {
    auto router = Connect();
    client->CreateGVAAccount("p", "a", "d", {}, {});
    client->UpdateGVAAssistantDeviceId("d", {}, {});
    client->DeleteGVAAccount("g", {}, {});
    task.RunUntilIdle();
    log.Clear();
    router->Respond(0, VellmarkPB::serviceAccounts());
    router->Respond(1, VellmarkPB::serviceAccounts());
    router->Respond(2, VellmarkPB::VellmarkDeleteGVA());
    task.RunUntilIdle();
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Flow, "GVACreated", "GVACreated"),
                                    ClientLine(DPrint::Info, "GVAAssistantDeviceIdUpdated",
                                               "GVAAssistantDeviceIdUpdated"),
                                    ClientLine(DPrint::Info, "GVADeleted", "GVADeleted")}));
}

TEST_F(GvaAccounts, DeleteReplyWithNoFieldsPrintsAllFiveLines) {
    auto router = Connect();
    int deleted = 0;
    client->DeleteGVAAccount("g", [&](VellmarkPB::VellmarkDeleteGVA const&) { ++deleted; }, {});
    task.RunUntilIdle();
    log.Clear();
    router->Respond(0, VellmarkPB::VellmarkDeleteGVA());
    task.RunUntilIdle();
    EXPECT_EQ(deleted, 1);
    auto const d = DPrint::Detail;
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Info, "GVADeleted", "GVADeleted"),
                                    ClientLine(d, "PrintDeleteResponse", "accountID: "),
                                    ClientLine(d, "PrintDeleteResponse", "Code: 0"),
                                    ClientLine(d, "PrintDeleteResponse", "Subcode: 0"),
                                    ClientLine(d, "PrintDeleteResponse", "status: 0"),
                                    ClientLine(d, "PrintDeleteResponse", "message: ")}));
}

TEST_F(GvaAccounts, ServiceErrorReachesTheErrorCallbackUnchanged) {
    auto router = Connect();
    Recorder r;
    client->CreateGVAAccount("p", "a", "d", {}, r.OnError());
    task.RunUntilIdle();
    log.Clear();
    auto const error = ServiceError(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    ASSERT_EQ(router->Push(19, error), 1u);
    task.RunUntilIdle();
    ASSERT_EQ(r.errors.size(), 1u);
    EXPECT_TRUE(MessageDifferencer::Equals(r.errors[0], error));
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Info, "HandleGVACreateError", "HandleGVACreateError"),
                           ClientLine(DPrint::Detail, "HandleGVACreateError",
                                      "Received error from server - internal message: "
                                      "VELLMARK_MESSAGE_GVA_CREATE")}));
}

TEST_F(GvaAccounts, EachErrorIdentifierReachesItsOwnErrorCallback) {
    auto router = Connect();
    Recorder create, remove, update;
    client->CreateGVAAccount("p", "a", "d", {}, create.OnError());
    client->DeleteGVAAccount("g", {}, remove.OnError());
    client->UpdateGVAAssistantDeviceId("d", {}, update.OnError());
    task.RunUntilIdle();
    router->Push(22, ServiceError(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID));
    router->Push(20, ServiceError(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE));
    task.RunUntilIdle();
    EXPECT_TRUE(create.errors.empty());
    ASSERT_EQ(remove.errors.size(), 1u);
    EXPECT_EQ(remove.errors[0].messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE);
    ASSERT_EQ(update.errors.size(), 1u);
    EXPECT_EQ(update.errors[0].messageid(), VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID);
}

TEST_F(GvaAccounts, ErrorOn20WithNoDeleteErrorCallbackOnlyLogsTheHandlersName) {
    auto router = Connect();
    log.Clear();
    router->Push(20, ServiceError(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE));
    task.RunUntilIdle();
    EXPECT_EQ(
        Lines(),
        (ClientLines{ClientLine(DPrint::Info, "HandleGVADeleteError", "HandleGVADeleteError")}));
}

TEST_F(GvaAccounts, CreateWhileDisconnectedStoresTheCallbacksAtOnceAndSends15AfterConnecting) {
    Recorder r;
    client->CreateGVAAccount("p", "a", "d", r.Named<VellmarkPB::serviceAccounts>("queued"),
                             r.OnError());
    task.RunUntilIdle();
    EXPECT_EQ(Lines().back(), ClientLine(DPrint::Flow, "operator()",
                                         "Not connected, queuing call to CreateGVAACcount"));
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 15u);
    // The error attachment was in place before the queued request went out.
    router->Push(19, ServiceError(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE));
    router->Respond(0, VellmarkPB::serviceAccounts());
    task.RunUntilIdle();
    EXPECT_EQ(r.errors.size(), 1u);
    EXPECT_EQ(r.calls, std::vector<std::string>{"queued"});
}

TEST_F(GvaAccounts, CallbacksAreStoredWhenTheCallIsQueuedNotWhenItIsSent) {
    Recorder r;
    client->CreateGVAAccount("p", "a", "d", r.Named<VellmarkPB::serviceAccounts>("first"), {});
    client->CreateGVAAccount("p", "b", "d", r.Named<VellmarkPB::serviceAccounts>("second"), {});
    task.RunUntilIdle();
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 2u);
    router->Respond(0, VellmarkPB::serviceAccounts());
    task.RunUntilIdle();
    EXPECT_EQ(r.calls, std::vector<std::string>{"second"});
}

}  // namespace
