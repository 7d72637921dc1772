// Creating, updating and deleting service accounts.
#include <google/protobuf/util/message_differencer.h>

#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

using google::protobuf::util::MessageDifferencer;

VellmarkPB::serviceAccounts Account(std::string const& id) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid(id);
    account.set_provider("spotify");
    return account;
}

VellmarkPB::VellmarkAcctOpEnvelope Success(std::string const& id) {
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    *reply.mutable_account() = Account(id);
    return reply;
}

// Records what reached the two callbacks of one request.
struct Outcome {
    std::vector<VellmarkPB::serviceAccounts> successes;
    std::vector<VellmarkPB::VellmarkDeleteSrvcAccount> deletions;
    std::vector<VellmarkPB::Error> errors;
    Callback<VellmarkPB::serviceAccounts> OnSuccess() {
        return [this](VellmarkPB::serviceAccounts const& a) { successes.push_back(a); };
    }
    Callback<VellmarkPB::VellmarkDeleteSrvcAccount> OnDeleted() {
        return [this](VellmarkPB::VellmarkDeleteSrvcAccount const& d) { deletions.push_back(d); };
    }
    Callback<VellmarkPB::Error> OnError() {
        return [this](VellmarkPB::Error const& e) { errors.push_back(e); };
    }
};

class ServiceAccounts : public ClientTest {};

TEST_F(ServiceAccounts, DeleteWithAnEmptyIdFailsBeforeReturningAndSendsNothing) {
    auto router = Connect();
    log.Clear();
    Outcome outcome;
    client->DeleteServiceAccount("", outcome.OnDeleted(), outcome.OnError());
    ASSERT_EQ(outcome.errors.size(), 1u) << "reported before the call returns";
    EXPECT_EQ(outcome.errors[0].code(), 6);
    EXPECT_EQ(outcome.errors[0].subcode(), 1005);
    EXPECT_EQ(outcome.errors[0].message(), "Input data error: CODE_EMPTY_ACCOUNT_ID");
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Info, "DeleteServiceAccount", ""),
                                    ClientLine(DPrint::Info, "CreateErrorMsg", "CreateErrorMsg")}));
    EXPECT_EQ(task.Pending(), 0u);
    task.RunUntilIdle();
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(ServiceAccounts, DeleteWithAnEmptyIdAndNoErrorCallbackDoesNothingElse) {
    auto router = Connect();
    client->DeleteServiceAccount("", {}, {});
    EXPECT_EQ(task.Pending(), 0u);
    EXPECT_TRUE(router->Sends().empty());
}

TEST_F(ServiceAccounts, CreateWhileDisconnectedIsQueuedAtLevel2AndSentWith23AfterConnecting) {
    client->CreateServiceAccount(Account("a1"), {}, {});
    task.RunUntilIdle();
    EXPECT_EQ(Count(ClientLine(DPrint::Flow, "operator()",
                               "Not connected, queuing call to CreateServiceAccountACcount")),
              1);
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 23u);
    EXPECT_TRUE(MessageDifferencer::Equals(router->SentPayload<VellmarkPB::serviceAccounts>(0),
                                           Account("a1")));
}

TEST_F(ServiceAccounts, UpdateWhileDisconnectedIsQueuedAtLevel3) {
    client->UpdateServiceAccount(Account("a1"), {}, {});
    task.RunUntilIdle();
    EXPECT_EQ(Count(ClientLine(DPrint::Info, "operator()",
                               "Not connected, queuing call to UpdateServiceAccountDeviceId")),
              1);
    auto router = Connect();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 27u);
}

TEST_F(ServiceAccounts, CreateLogsSendsTheAccountUnchangedAndReportsSuccess) {
    auto router = Connect();
    log.Clear();
    Outcome outcome;
    client->CreateServiceAccount(Account("a1"), outcome.OnSuccess(), outcome.OnError());
    task.RunUntilIdle();
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Info, "CreateServiceAccount", ""),
                           ClientLine(DPrint::Info, "CreateServiceAccount", "CreateServiceAccount"),
                           ClientLine(DPrint::Info, "operator()", "do_enable")}));
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].payloadTypeName, "serviceAccounts");
    log.Clear();
    router->Respond(0, Success("a1"));
    task.RunUntilIdle();
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Info, "HandleCreateOrUpdateResponse",
                                               "Success for account: a1")}));
    ASSERT_EQ(outcome.successes.size(), 1u);
    EXPECT_TRUE(MessageDifferencer::Equals(outcome.successes[0], Account("a1")));
    EXPECT_TRUE(outcome.errors.empty());
}

TEST_F(ServiceAccounts, UpdateLogsDoUpdateAndSendsUnder27) {
    auto router = Connect();
    log.Clear();
    client->UpdateServiceAccount(Account("a1"), {}, {});
    task.RunUntilIdle();
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Info, "UpdateServiceAccount", ""),
                           ClientLine(DPrint::Info, "UpdateServiceAccount", "UpdateServiceAccount"),
                           ClientLine(DPrint::Info, "operator()", "do_update")}));
    EXPECT_EQ(router->Sends()[0].id, 27u);
}

TEST_F(ServiceAccounts, DeleteSendsOnlyTheAccountIdAndReportsTheDeletion) {
    auto router = Connect();
    log.Clear();
    Outcome outcome;
    client->DeleteServiceAccount("a9", outcome.OnDeleted(), outcome.OnError());
    task.RunUntilIdle();
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Info, "DeleteServiceAccount", ""),
                           ClientLine(DPrint::Info, "DeleteServiceAccount", "DeleteServiceAccount"),
                           ClientLine(DPrint::Info, "operator()", "do_enable"),
                           ClientLine(DPrint::Detail, "operator()",
                                      "Send ServiceAccount delete request to IPCServer")}));
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 24u);
    VellmarkPB::VellmarkDeleteSrvcAccount expected;
    expected.set_accountid("a9");
    EXPECT_TRUE(MessageDifferencer::Equals(
        router->SentPayload<VellmarkPB::VellmarkDeleteSrvcAccount>(0), expected));
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    reply.mutable_delaccount()->set_accountid("a9");
    reply.mutable_delaccount()->set_status(1);
    log.Clear();
    router->Respond(0, reply);
    task.RunUntilIdle();
    EXPECT_EQ(
        Lines(),
        (ClientLines{ClientLine(DPrint::Info, "HandleDeleteResponse", "Success for account: a9")}));
    ASSERT_EQ(outcome.deletions.size(), 1u);
    EXPECT_EQ(outcome.deletions[0].status(), 1);
}

TEST_F(ServiceAccounts, SuccessWithoutAnAccountReportsAnEmptyAccount) {
    auto router = Connect();
    Outcome outcome;
    client->CreateServiceAccount(Account("a1"), outcome.OnSuccess(), outcome.OnError());
    task.RunUntilIdle();
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    router->Respond(0, reply);
    task.RunUntilIdle();
    ASSERT_EQ(outcome.successes.size(), 1u);
    EXPECT_EQ(outcome.successes[0].ByteSizeLong(), 0u);
    EXPECT_TRUE(outcome.errors.empty());
}

TEST_F(ServiceAccounts, FailureWithoutAnErrorReportsAnEmptyError) {
    auto router = Connect();
    Outcome outcome;
    client->UpdateServiceAccount(Account("a1"), outcome.OnSuccess(), outcome.OnError());
    task.RunUntilIdle();
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(false);
    log.Clear();
    router->Respond(0, reply);
    task.RunUntilIdle();
    ASSERT_EQ(outcome.errors.size(), 1u);
    EXPECT_EQ(outcome.errors[0].ByteSizeLong(), 0u);
    EXPECT_TRUE(outcome.successes.empty());
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Info, "HandleCreateOrUpdateResponse",
                                               "Failure for account: ")}));
}

TEST_F(ServiceAccounts, ReplyWithoutSuccessCountsAsFailureAndPassesTheErrorOnUnchanged) {
    auto router = Connect();
    Outcome outcome;
    client->DeleteServiceAccount("a1", outcome.OnDeleted(), outcome.OnError());
    task.RunUntilIdle();
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.mutable_error()->set_code(6);
    reply.mutable_error()->set_subcode(1007);
    reply.mutable_error()->set_message("unknown account");
    router->Respond(0, reply);
    task.RunUntilIdle();
    ASSERT_EQ(outcome.errors.size(), 1u);
    EXPECT_TRUE(MessageDifferencer::Equals(outcome.errors[0], reply.error()));
    EXPECT_TRUE(outcome.deletions.empty());
}

TEST_F(ServiceAccounts, EmptyCallbacksAreSkipped) {
    auto router = Connect();
    client->CreateServiceAccount(Account("a1"), {}, {});
    client->DeleteServiceAccount("a1", {}, {});
    task.RunUntilIdle();
    router->Respond(0, Success("a1"));
    VellmarkPB::VellmarkAcctOpEnvelope failure;
    failure.set_success(false);
    router->Respond(1, failure);
    EXPECT_EQ(task.RunUntilIdle(), 2u);
}

TEST_F(ServiceAccounts, EachRequestAnswersItsOwnCallbacks) {
    auto router = Connect();
    Outcome first, second;
    client->CreateServiceAccount(Account("a1"), first.OnSuccess(), first.OnError());
    client->CreateServiceAccount(Account("a2"), second.OnSuccess(), second.OnError());
    task.RunUntilIdle();
    router->Respond(1, Success("a2"));
    router->Respond(0, Success("a1"));
    task.RunUntilIdle();
    ASSERT_EQ(first.successes.size(), 1u);
    ASSERT_EQ(second.successes.size(), 1u);
    EXPECT_EQ(first.successes[0].accountid(), "a1");
    EXPECT_EQ(second.successes[0].accountid(), "a2");
}

}  // namespace
