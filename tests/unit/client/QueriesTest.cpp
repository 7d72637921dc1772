// The seven queries: their lines, requests, reply handlers and stored callbacks.
#include "tests/unit/client/ClientTestSupport.h"

using namespace Vellmark::ClientTests;

namespace {

class Queries : public ClientTest {
protected:
    void SetUp() override {
        router = Connect();
        log.Clear();
    }
    // Lines of the function `name` (and of the posted functions, "operator()").
    ClientLines LinesOf(std::initializer_list<std::string> functions) const {
        ClientLines lines;
        for (auto const& line : Lines()) {
            for (auto const& f : functions) {
                if (line.function == f) lines.push_back(line);
            }
        }
        return lines;
    }
    std::shared_ptr<FakeRouter> router;
};

TEST_F(Queries, GetSourcesWhileDisconnectedIsQueuedThenSentAndAnswered) {
    driver.Disconnect();
    task.RunUntilIdle();
    std::vector<std::string> got;
    client->GetSources([&](VellmarkPB::sources const& s) { got.push_back(s.source(0).id()); });
    task.RunUntilIdle();
    EXPECT_EQ(Count(ClientLine(DPrint::Flow, "operator()",
                               "Not connected, queuing Attach call to AcceptSourcesAPI")),
              1);
    auto second = Connect();
    ASSERT_EQ(second->Sends().size(), 1u);
    EXPECT_EQ(second->Sends()[0].id, 1u);
    second->Respond(0, OneSource("s1"));
    task.RunUntilIdle();
    EXPECT_EQ(got, std::vector<std::string>{"s1"});
}

TEST_F(Queries, GetSourcesLogsSendsAnEmptySourcesRequestAndDeliversTheAnswer) {
    std::vector<std::string> got;
    client->GetSources([&](VellmarkPB::sources const& s) { got.push_back(s.source(0).id()); });
    EXPECT_EQ(Lines(), (ClientLines{ClientLine(DPrint::Flow, "GetSources", "GetSources")}))
        << "only the entry line on the caller's thread";
    task.RunUntilIdle();
    EXPECT_EQ(Lines(),
              (ClientLines{ClientLine(DPrint::Flow, "GetSources", "GetSources"),
                           ClientLine(DPrint::Flow, "operator()", "lambda in GetSources"),
                           ClientLine(DPrint::Flow, "operator()",
                                      "connected, Attaching request to AcceptSourcesAPI")}));
    auto sends = router->Sends();
    ASSERT_EQ(sends.size(), 1u);
    EXPECT_EQ(sends[0].id, 1u);
    EXPECT_TRUE(sends[0].expectsResponse);
    EXPECT_EQ(sends[0].payloadTypeName, "sources");
    EXPECT_EQ(sends[0].payload, "");
    log.Clear();
    router->Respond(0, OneSource("s1"));
    task.RunUntilIdle();
    EXPECT_EQ(got, std::vector<std::string>{"s1"});
    auto lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "AcceptSourcesAPI", "AcceptSourcesAPI"));
    EXPECT_EQ(lines[1], ClientLine(DPrint::Flow, "PrintSourcesProtobuf", "PrintSourcesProtobuf"));
    EXPECT_NE(IndexOf(ClientLine(DPrint::Detail, "PrintSourcesProtobuf", " source id: s1")), -1)
        << "the reply is dumped at level 4";
}

struct QueryCase {
    std::string name;
    std::function<void(VellmarkClientAPI&, int&)> call;  // counts callback calls
    unsigned int id;
    std::string typeName;
    ClientLines sendLines;
    LogCapture::Line handlerLine;
    std::string dumpFunction;
};

void PrintTo(QueryCase const& c, std::ostream* out) {
    *out << c.name;
}

std::vector<QueryCase> QueryCases() {
    using C = VellmarkClientAPI;
    using namespace VellmarkPB;
    auto flow = [](std::string f, std::string t) { return ClientLine(DPrint::Flow, f, t); };
    return {
        {"GetVoiceAccounts",
         [](C& c, int& n) { c.GetVoiceAccounts(Counting<sources>(n)); },
         6,
         "sources",
         {flow("GetVoiceAccounts", "GetVoiceAccounts"),
          flow("operator()", "connected, Attaching request to AcceptVoiceAccountsAPI")},
         flow("AcceptVoiceAccountsAPI", "AcceptVoiceAccountsAPI. Printing received Voice Accounts"),
         "PrintSourcesProtobuf"},
        {"GetMspHostAccounts",
         [](C& c, int& n) { c.GetMspHostAccounts(Counting<sources>(n)); },
         30,
         "sources",
         {flow("GetMspHostAccounts", "GetMspHostAccounts"),
          flow("operator()", "connected, Attaching request to GetMspHostAccounts")},
         flow("AcceptMspHostAccountsAPI",
              "AcceptMspHostAccountsAPI. Printing received MspHost Accounts. Cb.empty=0"),
         "PrintSourcesProtobuf"},
        {"GetProductSettings",
         [](C& c, int& n) { c.GetProductSettings(Counting<ProductSettings>(n)); },
         5,
         "ProductSettings",
         {flow("GetProductSettings", "GetProductSettings"),
          flow("operator()", "lambda in GetProductSettings"),
          flow("operator()", "connected, Attaching request to AcceptProductSettingsAPI")},
         flow("AcceptProductSettingsAPI", "AcceptProductSettingsAPI"),
         "PrintProductSettingsProtobuff"},
        {"GetPersonsInfo",
         [](C& c, int& n) { c.GetPersonsInfo(Counting<persons>(n)); },
         3,
         "persons",
         {flow("GetPersonsInfo", "GetPersonsInfo"),
          flow("operator()", "lambda function in GetPersonInfo"),
          flow("operator()", "connected, Attaching request to AcceptPersonsInfoAPI")},
         flow("AcceptPersonsInfoAPI", "AcceptPersonsInfoAPI - persons info: "),
         "PrintPersonsInfoProtobuff"},
        {"GetGroups",
         [](C& c, int& n) { c.GetGroups(Counting<VellmarkGroups>(n)); },
         31,
         "VellmarkGroups",
         {},
         flow("AcceptVellmarkGroupsAPI", "AcceptVellmarkGroupsAPI. Printing received Groups"),
         "PrintGroupsProtobuf"},
        {"GetPresets",
         [](C& c, int& n) { c.GetPresets(Counting<VellmarkPresets>(n)); },
         2,
         "VellmarkPresets",
         {flow("GetPresets", "GetPresets"),
          flow("operator()", "connected, Attaching request to AcceptPresetsAPI")},
         flow("AcceptPresetsAPI", "AcceptPresetsAPI"),
         "PrintPresets"},
    };
}

class EachQuery : public Queries, public ::testing::WithParamInterface<QueryCase> {};

TEST_P(EachQuery, LogsSendsItsIdentifierAndHandsTheAnswerToItsCallback) {
    int calls = 0;
    GetParam().call(*client, calls);
    task.RunUntilIdle();
    EXPECT_EQ(Lines(), GetParam().sendLines);
    auto sends = router->Sends();
    ASSERT_EQ(sends.size(), 1u);
    EXPECT_EQ(sends[0].id, GetParam().id);
    EXPECT_EQ(sends[0].payloadTypeName, GetParam().typeName);
    EXPECT_EQ(sends[0].payload, "") << "an empty request";

    log.Clear();
    IPCMessageEnvelope reply;
    reply.set_payload_type_name(GetParam().typeName);
    reply.set_payload("");
    ASSERT_TRUE(router->Respond(0, reply));
    task.RunUntilIdle();
    EXPECT_EQ(calls, 1);
    auto lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], GetParam().handlerLine);
    EXPECT_EQ(lines[1].function, GetParam().dumpFunction);
}

INSTANTIATE_TEST_SUITE_P(Queries, EachQuery, ::testing::ValuesIn(QueryCases()),
                         [](auto const& info) { return info.param.name; });

TEST_F(Queries, GetGroupsWhileConnectedLogsNothingBeforeItsRequest) {
    client->GetGroups({});
    task.RunUntilIdle();
    EXPECT_TRUE(Lines().empty());
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 31u);
}

TEST_F(Queries, GetMspHostAccountsWithAnEmptyCallbackStillSendsAndOnlyLogsTheAnswer) {
    client->GetMspHostAccounts({});
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 1u);
    EXPECT_EQ(router->Sends()[0].id, 30u);
    log.Clear();
    router->Respond(0, OneSource("h"));
    task.RunUntilIdle();
    auto lines = Lines();
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0], ClientLine(DPrint::Flow, "AcceptMspHostAccountsAPI",
                                   "AcceptMspHostAccountsAPI. Printing received MspHost "
                                   "Accounts. Cb.empty=1"));
    EXPECT_NE(IndexOf(ClientLine(DPrint::Flow, "PrintSourcesProtobuf", "PrintSourcesProtobuf")),
              -1);
}

TEST_F(Queries, SecondGetSourcesBeforeAnyAnswerTakesBothAnswers) {
    int a = 0, b = 0;
    client->GetSources([&](VellmarkPB::sources const&) { ++a; });
    client->GetSources([&](VellmarkPB::sources const&) { ++b; });
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 2u);
    router->Respond(0, OneSource("1"));
    router->Respond(1, OneSource("2"));
    task.RunUntilIdle();
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 2);
}

TEST_F(Queries, VoiceAccountAndSourcesAnswersGoToTheirOwnCallbacks) {
    std::vector<std::string> sources, voice;
    client->GetSources([&](VellmarkPB::sources const& s) { sources.push_back(s.source(0).id()); });
    client->GetVoiceAccounts(
        [&](VellmarkPB::sources const& s) { voice.push_back(s.source(0).id()); });
    task.RunUntilIdle();
    ASSERT_EQ(router->Sends().size(), 2u);
    EXPECT_EQ(router->Sends()[0].id, 1u);
    EXPECT_EQ(router->Sends()[1].id, 6u);
    router->Respond(1, OneSource("voice"));
    router->Respond(0, OneSource("plain"));
    task.RunUntilIdle();
    EXPECT_EQ(sources, std::vector<std::string>{"plain"});
    EXPECT_EQ(voice, std::vector<std::string>{"voice"});
}

TEST_F(Queries, PersonsUpdateAfterAnAnsweredQueryDoesNotCallTheQueryCallback) {
    int queries = 0, updates = 0;
    client->GetPersonsInfo([&](VellmarkPB::persons const&) { ++queries; });
    client->SubscribePersonsInfoRequest("", [&](VellmarkPB::persons const&) { ++updates; });
    task.RunUntilIdle();
    router->Respond(0, VellmarkPB::persons());
    task.RunUntilIdle();
    ASSERT_EQ(queries, 1);
    EXPECT_EQ(router->Push(9, VellmarkPB::persons()), 1u);
    task.RunUntilIdle();
    EXPECT_EQ(queries, 1);
    EXPECT_EQ(updates, 1);
}

TEST_F(Queries, AnswerWithTheWrongPayloadTypeNeverReachesTheHandler) {
    int calls = 0;
    client->GetSources([&](VellmarkPB::sources const&) { ++calls; });
    task.RunUntilIdle();
    log.Clear();
    router->Respond(0, VellmarkPB::persons());
    task.RunUntilIdle();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(router->MismatchCount(), 1);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(Queries, ProductSettingsAnswerReachesTheCallbackUnchanged) {
    VellmarkPB::ProductSettings got;
    client->GetProductSettings([&](VellmarkPB::ProductSettings const& s) { got = s; });
    task.RunUntilIdle();
    VellmarkPB::ProductSettings sent;
    sent.set_productname("Kitchen");
    sent.set_ttspromptenabled(true);
    router->Respond(0, sent);
    task.RunUntilIdle();
    EXPECT_EQ(got.SerializeAsString(), sent.SerializeAsString());
}

TEST_F(Queries, AnswerWhileNoCallbackIsStoredIsLoggedAndDropped) {
    client->GetPresets({});
    task.RunUntilIdle();
    log.Clear();
    router->Respond(0, VellmarkPB::VellmarkPresets());
    task.RunUntilIdle();
    EXPECT_EQ(Lines().front(), ClientLine(DPrint::Flow, "AcceptPresetsAPI", "AcceptPresetsAPI"));
    EXPECT_NE(IndexOf(ClientLine(DPrint::Flow, "PrintPresets", "preset_size: 0")), -1);
}

}  // namespace
