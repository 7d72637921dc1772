#pragma once
// The client's receive path under a fuzzer: envelopes of any bytes, under any identifier,
// with the expected payload type name, another one or none, reach the router's decoding,
// the AsyncCallbacks on a manual task, the handlers, the dumps at their most detailed
// level, and the caller's callbacks; between them the input disconnects, reconnects, fails
// a router creation, calls operations and runs the task a step at a time. Nothing may
// crash; a callback must run on the task only.
// Shared by the fuzz target and by the test that replays the kept inputs.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "client/VellmarkClientAPI.h"
#include "client/VellmarkClientLog.h"
#include "fuzz/FuzzInput.h"
#include "platform/testing/ConnectionDriver.h"
#include "platform/testing/ManualTask.h"

namespace Vellmark::Fuzz::ClientReceiveExercise {

using namespace Tarv::Testing;

// The payload type each identifier the client takes carries ("" for the others).
inline std::string TypeOf(unsigned int id) {
    switch (id) {
        case 1:
        case 6:
        case 8:
        case 10:
        case 29:
        case 30:
            return "sources";
        case 2:
        case 4:
        case 7:
            return "VellmarkPresets";
        case 3:
        case 9:
            return "persons";
        case 5:
        case 11:
            return "ProductSettings";
        case 12:
            return "AccountAssociated";
        case 15:
        case 21:
            return "serviceAccounts";
        case 17:
            return "VellmarkDeleteGVA";
        case 19:
        case 20:
        case 22:
            return "Error";
        case 23:
        case 24:
        case 27:
            return "VellmarkAcctOpEnvelope";
        case 31:
        case 32:
            return "VellmarkGroups";
        default:
            return "";
    }
}

// `payload` under `id`, its type name the expected one, none, or a wrong one, as `how` says.
inline IPCMessageEnvelope Envelope(std::uint8_t how, unsigned int id, std::string payload) {
    IPCMessageEnvelope envelope;
    envelope.set_payload(std::move(payload));
    switch (how % 4) {
        case 0:
        case 1:
            envelope.set_payload_type_name(TypeOf(id));
            break;
        case 2:
            break;
        case 3:
            envelope.set_payload_type_name("Sources");
            break;
    }
    return envelope;
}

template <class T>
T Parsed(std::string const& bytes) {
    T message;
    message.ParsePartialFromString(bytes);
    return message;
}

// A callback that reads what it is given, as a caller would.
template <class T>
Callback<T> Reader() {
    return [](T const& message) {
        if (message.ByteSizeLong() == ~std::size_t(0)) std::abort();
    };
}

// Calls one operation of the client, chosen by `which`, with arguments from the input.
inline void Call(VellmarkClientAPI& client, std::uint8_t which, FuzzInput& input) {
    using namespace VellmarkPB;
    switch (which % 16) {
        case 0:
            client.GetSources(Reader<sources>());
            break;
        case 1:
            client.GetVoiceAccounts(Reader<sources>());
            break;
        case 2:
            client.GetMspHostAccounts(Reader<sources>());
            break;
        case 3:
            client.GetProductSettings(Reader<ProductSettings>());
            break;
        case 4:
            client.GetPersonsInfo(Reader<persons>());
            break;
        case 5:
            client.GetGroups(Reader<VellmarkGroups>());
            break;
        case 6:
            client.GetPresets(Reader<VellmarkPresets>());
            break;
        case 7:
            switch (input.Byte() % 8) {
                case 0:
                    client.SubscribeSourcesRequest("", Reader<sources>());
                    break;
                case 1:
                    client.SubscribeVoiceAccountsRequest(Reader<sources>());
                    break;
                case 2:
                    client.SubscribeMspHostAccountsRequest(Reader<sources>());
                    break;
                case 3:
                    client.SubscribeProductSettingsRequest("", Reader<ProductSettings>());
                    break;
                case 4:
                    client.SubscribePersonsInfoRequest("", Reader<persons>());
                    break;
                case 5:
                    client.SubscribeGroupsRequest(Reader<VellmarkGroups>());
                    break;
                case 6:
                    client.SubscribePresetsRequest("", Reader<VellmarkPresets>());
                    break;
                case 7:
                    client.SubscribeIsAssociatedWithAccountRequest(Reader<AccountAssociated>());
                    break;
            }
            break;
        case 8:
            client.StorePresets(Parsed<VellmarkPresets>(input.Chunk(4096)),
                                Reader<VellmarkPresets>());
            break;
        case 9: {
            std::string const person = input.Chunk(64);
            std::string const provider = input.Chunk(64);
            client.CreateGVAAccount(person, provider, input.Chunk(64), Reader<serviceAccounts>(),
                                    Reader<Error>());
            break;
        }
        case 10:
            client.DeleteGVAAccount(input.Chunk(64), Reader<VellmarkDeleteGVA>(), Reader<Error>());
            break;
        case 11:
            client.UpdateGVAAssistantDeviceId(input.Chunk(64), Reader<serviceAccounts>(),
                                              Reader<Error>());
            break;
        case 12:
            client.CreateServiceAccount(Parsed<serviceAccounts>(input.Chunk(4096)),
                                        Reader<serviceAccounts>(), Reader<Error>());
            break;
        case 13:
            client.UpdateServiceAccount(Parsed<serviceAccounts>(input.Chunk(4096)),
                                        Reader<serviceAccounts>(), Reader<Error>());
            break;
        case 14:
            client.DeleteServiceAccount(input.Chunk(64), Reader<VellmarkDeleteSrvcAccount>(),
                                        Reader<Error>());
            break;
        case 15: {
            // The public dumps and the redaction, at a level from the input.
            DPrint::Level const level = static_cast<DPrint::Level>(input.Byte() % 6);
            client.PrintSourcesProtobuf(Parsed<sources>(input.Chunk(4096)), level);
            client.PrintGroupsProtobuf(Parsed<VellmarkGroups>(input.Chunk(4096)), level);
            client.RedactSensitiveFieldsSA(Parsed<serviceAccounts>(input.Chunk(4096)));
            break;
        }
    }
}

}  // namespace Vellmark::Fuzz::ClientReceiveExercise

namespace Vellmark::Fuzz {

// Runs one input; the client's log lines (built at the most detailed level) go to `lines`
// when it is given, and nowhere otherwise.
inline void ExerciseClientReceive(std::uint8_t const* data, std::size_t size,
                                  std::vector<std::string>* lines = nullptr) {
    using namespace Vellmark::Fuzz::ClientReceiveExercise;
    auto const previousSink = DPrint::SetSink([lines](DPrint::Record const& record) {
        if (lines && record.logger == "VellmarkClientAPI") lines->emplace_back(record.text);
    });
    auto const previousLevel = VellmarkClientLog().Threshold();
    VellmarkClientLog().SetThreshold(DPrint::Detail);
    {
        ManualTask task;
        ConnectionDriver driver;
        auto client = std::make_unique<VellmarkClientAPI>(&task);
        FuzzInput input(data, size);
        for (int step = 0; step < 512 && !input.Empty(); ++step) {
            std::uint8_t const op = input.Byte();
            auto const router = driver.Router();
            // The low three bits choose the step, the others shade it.
            switch (op & 7) {
                case 0:
                    if (router) {
                        unsigned int const id = input.Byte() % 40;
                        router->Push(id, Envelope(op >> 3, id, input.Chunk(4096)));
                    }
                    break;
                case 1:
                    if (router && !router->Sends().empty()) {
                        auto const sends = router->Sends();
                        std::size_t const index = input.Byte() % sends.size();
                        router->Respond(index,
                                        Envelope(op >> 3, sends[index].id, input.Chunk(4096)));
                    }
                    break;
                case 2:
                    driver.Disconnect();
                    break;
                case 3:
                    if (op & 0x80) driver.FailNextRouter();
                    driver.Connect();
                    break;
                case 4:
                    Call(*client, op >> 3, input);
                    break;
                case 5:
                    task.RunOne();
                    break;
                default:
                    task.RunUntilIdle();
                    break;
            }
        }
        task.RunUntilIdle();
        // Gone with work still queued: the queued entries must do nothing.
        driver.Connect();
        client.reset();
        task.RunUntilIdle();
    }
    VellmarkClientLog().SetThreshold(previousLevel);
    DPrint::SetSink(previousSink);
}

}  // namespace Vellmark::Fuzz
