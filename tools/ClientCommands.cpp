// The commands that use the service as a product process does: through libVellmarkClient.
#include <iostream>
#include <map>
#include <memory>

#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "admin/Sensitivity.h"
#include "client/VellmarkClientAPI.h"
#include "platform/ipc/IPCDirectory.h"
#include "platform/task/BreakThread.h"
#include "platform/task/Task.h"
#include "tools/Commands.h"
#include "tools/RequestChecks.h"
#include "tools/ServiceProbe.h"
#include "tools/ServiceWait.h"

namespace Vellmark::Ctl {
namespace {

using Printer = std::function<void(google::protobuf::Message const&)>;
using Starter = std::function<void(VellmarkClientAPI&, Printer const&)>;

std::map<std::string, Starter> const& Queries() {
    static std::map<std::string, Starter> const queries = {
        {"sources", [](VellmarkClientAPI& c, Printer const& p) { c.GetSources(p); }},
        {"voice-accounts", [](VellmarkClientAPI& c, Printer const& p) { c.GetVoiceAccounts(p); }},
        {"msp-host-accounts",
         [](VellmarkClientAPI& c, Printer const& p) { c.GetMspHostAccounts(p); }},
        {"product-settings",
         [](VellmarkClientAPI& c, Printer const& p) { c.GetProductSettings(p); }},
        {"persons", [](VellmarkClientAPI& c, Printer const& p) { c.GetPersonsInfo(p); }},
        {"groups", [](VellmarkClientAPI& c, Printer const& p) { c.GetGroups(p); }},
        {"presets", [](VellmarkClientAPI& c, Printer const& p) { c.GetPresets(p); }},
    };
    return queries;
}

std::map<std::string, Starter> const& Subscriptions() {
    static std::map<std::string, Starter> const subscriptions = {
        {"sources",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribeSourcesRequest("", p); }},
        {"voice-accounts",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribeVoiceAccountsRequest(p); }},
        {"msp-host-accounts",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribeMspHostAccountsRequest(p); }},
        {"product-settings",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribeProductSettingsRequest("", p); }},
        {"persons",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribePersonsInfoRequest("", p); }},
        {"groups", [](VellmarkClientAPI& c, Printer const& p) { c.SubscribeGroupsRequest(p); }},
        {"presets",
         [](VellmarkClientAPI& c, Printer const& p) { c.SubscribePresetsRequest("", p); }},
        {"association", [](VellmarkClientAPI& c,
                           Printer const& p) { c.SubscribeIsAssociatedWithAccountRequest(p); }},
    };
    return subscriptions;
}

std::vector<std::string> Names(std::map<std::string, Starter> const& table) {
    std::vector<std::string> names;
    for (auto const& entry : table) names.push_back(entry.first);
    return names;
}

// How long a command whose connection ended waits for the probe to say whether the
// service's credential check ended it (only when that check may refuse this user).
constexpr std::chrono::milliseconds kVerdictBound(1000);

std::string ServicePath() {
    return IPCDirectory::Get().Lookup(Vellmark::Admin::kServiceEndpoint)->Path();
}

// Runs one client command: `start` makes the calls, its callbacks finish `outcome`.
// When nothing finished it within --timeout, `onTimeout` gives the exit code.
int WithClient(Settings const& settings,
               std::function<void(VellmarkClientAPI&, IL::Task&, Outcome&)> const& start,
               std::function<int()> const& onTimeout) {
    if (auto const code = AwaitService(ServicePath(), settings)) return *code;
    // What stops the library from reaching the service is told at once, not after the
    // timeout.
    Outcome outcome;
    ServiceProbe probe(ServicePath(), "--allow-user and --allow-group");
    if (probe.Found()) return Report(*probe.Found());
    probe.Watch([&outcome] { outcome.Finish(kRefusedByService); });
    IL::Task task("vellmarkctl");
    int code = -1;
    {
        VellmarkClientAPI client(&task);
        start(client, task, outcome);
        code = outcome.Wait(settings.Timeout());
    }
    task.Stop();
    if (code == kRefusedByService) return Report(*probe.Verdict());
    // A connection the service's credential check closed ends a request as any drop does;
    // the probe tells which it was, soon after.
    if (code == kNoAnswer) {
        if (auto const refused = probe.AwaitVerdict(kVerdictBound)) return Report(*refused);
    }
    return code >= 0 ? code : onTimeout();
}

int NoAnswer(Settings const& settings) {
    std::cerr << "vellmarkctl: no answer from the Vellmark service within "
              << settings.timeoutSeconds << " s (socket " << ServicePath()
              << "; is vellmarkd running?)\n";
    return kNoAnswer;
}

// Prints a reply and ends the command.
template <class T>
Callback<T> Done(Outcome& outcome, Settings const& settings) {
    return [&outcome, &settings](T const& reply) {
        PrintJson(reply, settings);
        outcome.Finish(kOk);
    };
}

// Prints a refusal on standard error and ends the command.
Callback<VellmarkPB::Error> Refused(Outcome& outcome) {
    return [&outcome](VellmarkPB::Error const& error) {
        PrintRefusal(error);
        outcome.Finish(kRefused);
    };
}

// The request of a command whose one answer (or refusal) ends it.
struct Request {
    // Makes the call; its callbacks finish the outcome. Runs again for a query asked again.
    std::function<void(VellmarkClientAPI&, Outcome&)> send;
    // Only asks: when the connection it went out on ends (the library answers no request
    // that was in flight then), it is asked once more on the next connection. A request
    // that changes the store is not sent twice: the command ends, saying that whether the
    // service carried it out is not known.
    bool query = false;
};

// Runs a command whose one answer (or refusal) ends it; a connection that ends with it
// unanswered ends it at once (exit 3) or, for a query, asks again on the next one.
int Ask(Settings const& settings, Request const& request) {
    CallbackConnection ends;
    CallbackConnection connections;
    int const code = WithClient(
        settings,
        [&](VellmarkClientAPI& client, IL::Task&, Outcome& outcome) {
            // Touched on the client's task only. The observers are in place before the
            // request is on its way: both are posted to the task ahead of it.
            struct Retry {
                bool pending = false;
                bool done = false;
            };
            auto retry = std::make_shared<Retry>();
            ends = client.AddDisconnectionObserver([&outcome, &request, retry] {
                std::string const path = ServicePath();
                if (request.query && !retry->done && AcceptsConnections(path)) {
                    retry->pending = true;
                    std::cerr << "vellmarkctl: the connection to vellmarkd at " << path
                              << " ended before the answer; asking again once it is back"
                              << std::endl;
                    return;
                }
                std::cerr << "vellmarkctl: the connection to vellmarkd at " << path
                          << " ended before the answer"
                          << (request.query ? retry->done ? ", again" : ", and vellmarkd is gone"
                                            : "; whether the service carried out the request "
                                              "is not known (a request in flight when a "
                                              "connection ends is never answered)")
                          << std::endl;
                outcome.Finish(kNoAnswer);
            });
            connections = client.AddConnectionObserver([&client, &outcome, &request, retry] {
                if (!retry->pending) return;
                retry->pending = false;
                retry->done = true;
                request.send(client, outcome);
            });
            request.send(client, outcome);
        },
        [&] { return NoAnswer(settings); });
    ends.Disconnect();
    connections.Disconnect();
    return code;
}

struct SubscribeOptions {
    std::string resource;
    int count = 0;
};

int Subscribe(Settings const& settings, SubscribeOptions const& options) {
    auto received = std::make_shared<std::atomic<int>>(0);
    Starter const& subscribe = Subscriptions().at(options.resource);
    CallbackConnection observing;
    int const code = WithClient(
        settings,
        [&](VellmarkClientAPI& client, IL::Task& task, Outcome& outcome) {
            Printer printer = [&outcome, received, options,
                               &settings](google::protobuf::Message const& update) {
                PrintJson(update, settings);
                if (++*received == options.count) outcome.Finish(kOk);
            };
            // A new connection attaches none of an earlier one's subscriptions, so each one
            // subscribes (again), once it is up.
            auto connections = std::make_shared<int>(0);
            observing = client.AddConnectionObserver(
                [&client, &task, printer, subscribe, connections, resource = options.resource] {
                    subscribe(client, printer);
                    bool const again = ++*connections > 1;
                    // Runs after the subscription's own step on the task: it is in place now.
                    IL::BreakThread(
                        [resource, again] {
                            std::cerr << "vellmarkctl: "
                                      << (again ? "connected again; subscribed again to "
                                                : "subscribed to ")
                                      << resource << std::endl;
                        },
                        &task);
                });
        },
        [&] {
            // Without a count, the time given is how long to watch.
            if (options.count == 0) return kOk;
            std::cerr << "vellmarkctl: " << *received << " of " << options.count
                      << " updates within " << settings.timeoutSeconds << " s\n";
            return kNoAnswer;
        });
    observing.Disconnect();
    return code;
}

}  // namespace

void AddClientCommands(CLI::App& app, Settings& settings, Run& run) {
    auto* get = app.add_subcommand("get", "ask the service once for a resource; prints it");
    AddShowSecrets(*get, settings);
    auto resource = std::make_shared<std::string>();
    get->add_option("resource", *resource, "what to get")
        ->required()
        ->check(CLI::IsMember(Names(Queries())));
    get->callback([&settings, &run, resource] {
        run = [&settings, resource] {
            Request request;
            request.query = true;
            request.send = [&settings, resource](VellmarkClientAPI& client, Outcome& outcome) {
                Queries().at (*resource)(client, [&outcome, &settings](auto const& reply) {
                    // Asked twice, it may be answered twice: the first answer is the one.
                    if (outcome.Finished()) return;
                    PrintJson(reply, settings);
                    outcome.Finish(kOk);
                });
            };
            return Ask(settings, request);
        };
    });

    auto* subscribe = app.add_subcommand(
        "subscribe",
        "print every update of a resource, one JSON document each; ends after --count "
        "updates, or after --timeout when no count is given (0: never)");
    AddShowSecrets(*subscribe, settings);
    auto subscribeOptions = std::make_shared<SubscribeOptions>();
    subscribe->add_option("resource", subscribeOptions->resource, "what to follow")
        ->required()
        ->check(CLI::IsMember(Names(Subscriptions())));
    subscribe->add_option("--count", subscribeOptions->count, "stop after this many updates")
        ->check(CLI::PositiveNumber);
    subscribe->callback([&settings, &run, subscribeOptions] {
        run = [&settings, subscribeOptions] { return Subscribe(settings, *subscribeOptions); };
    });

    auto* store = app.add_subcommand("store-presets",
                                     "store presets (a VellmarkPresets JSON file, - for stdin); "
                                     "prints the stored list");
    AddShowSecrets(*store, settings);
    auto file = std::make_shared<std::string>();
    store->add_option("file", *file, "the presets")->type_name(kFileType)->required();
    store->callback([&settings, &run, file] {
        run = [&settings, file] {
            VellmarkPB::VellmarkPresets presets;
            auto const document = LoadDocument(*file, presets, RequestDocumentBytes());
            CheckRequest(VellmarkPB::VELLMARK_MESSAGE_STORE_PRESETS, presets, &document);
            Request request;
            request.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                client.StorePresets(presets, Done<VellmarkPB::VellmarkPresets>(outcome, settings));
            };
            return Ask(settings, request);
        };
    });

    auto* account = app.add_subcommand("account", "service accounts");
    account->require_subcommand(1);
    for (bool const create : {true, false}) {
        auto* command = account->add_subcommand(
            create ? "create" : "update",
            std::string(create ? "create" : "update") +
                " a service account from a serviceAccounts JSON file (- for stdin)");
        AddShowSecrets(*command, settings);
        auto path = std::make_shared<std::string>();
        command->add_option("file", *path, "the account")->type_name(kFileType)->required();
        command->callback([&settings, &run, path, create] {
            run = [&settings, path, create] {
                VellmarkPB::serviceAccounts data;
                auto const document = LoadDocument(*path, data, RequestDocumentBytes());
                CheckRequest(create ? VellmarkPB::VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT
                                    : VellmarkPB::VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT,
                             data, &document);
                Request request;
                request.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                    auto done = Done<VellmarkPB::serviceAccounts>(outcome, settings);
                    if (create) {
                        client.CreateServiceAccount(data, done, Refused(outcome));
                    } else {
                        client.UpdateServiceAccount(data, done, Refused(outcome));
                    }
                };
                return Ask(settings, request);
            };
        });
    }
    auto* remove = account->add_subcommand("delete", "delete a service account");
    AddShowSecrets(*remove, settings);
    auto accountId = std::make_shared<std::string>();
    remove->add_option("id", *accountId, "its accountID")->required();
    remove->callback([&settings, &run, accountId] {
        run = [&settings, accountId] {
            VellmarkPB::VellmarkDeleteSrvcAccount request;
            request.set_accountid(*accountId);
            CheckRequest(VellmarkPB::VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, request, nullptr);
            Request deletion;
            deletion.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                client.DeleteServiceAccount(
                    *accountId, Done<VellmarkPB::VellmarkDeleteSrvcAccount>(outcome, settings),
                    Refused(outcome));
            };
            return Ask(settings, deletion);
        };
    });

    auto* gva = app.add_subcommand("gva", "voice-assistant (GVA) accounts");
    gva->require_subcommand(1);
    auto* gvaCreate = gva->add_subcommand("create", "create a person's GVA account");
    AddShowSecrets(*gvaCreate, settings);
    auto gvaArgs = std::make_shared<std::array<std::string, 3>>();
    gvaCreate->add_option("person", (*gvaArgs)[0], "tarvPersonID")->required();
    gvaCreate->add_option("provider-account", (*gvaArgs)[1], "providerAccountID")->required();
    gvaCreate->add_option("device", (*gvaArgs)[2], "assistantDeviceId")->required();
    gvaCreate->callback([&settings, &run, gvaArgs] {
        run = [&settings, gvaArgs] {
            // The request as the library makes it.
            VellmarkPB::serviceAccounts request;
            request.set_tarvpersonid((*gvaArgs)[0]);
            request.set_provideraccountid((*gvaArgs)[1]);
            request.set_accounttype("VPA");
            request.set_provider("GVA");
            request.set_disabled(false);
            request.mutable_attributes()->set_assistantdeviceid((*gvaArgs)[2]);
            CheckRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE, request, nullptr);
            Request creation;
            creation.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                client.CreateGVAAccount((*gvaArgs)[0], (*gvaArgs)[1], (*gvaArgs)[2],
                                        Done<VellmarkPB::serviceAccounts>(outcome, settings),
                                        Refused(outcome));
            };
            return Ask(settings, creation);
        };
    });
    auto* gvaDelete = gva->add_subcommand("delete", "delete a GVA account");
    AddShowSecrets(*gvaDelete, settings);
    auto gvaId = std::make_shared<std::string>();
    gvaDelete->add_option("id", *gvaId, "its accountID")->required();
    gvaDelete->callback([&settings, &run, gvaId] {
        run = [&settings, gvaId] {
            VellmarkPB::VellmarkDeleteGVA request;
            request.set_accountid(*gvaId);
            CheckRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_DELETE, request, nullptr);
            Request deletion;
            deletion.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                client.DeleteGVAAccount(*gvaId,
                                        Done<VellmarkPB::VellmarkDeleteGVA>(outcome, settings),
                                        Refused(outcome));
            };
            return Ask(settings, deletion);
        };
    });
    auto* gvaUpdate =
        gva->add_subcommand("update-device-id", "give the GVA accounts a new assistant device id");
    AddShowSecrets(*gvaUpdate, settings);
    auto deviceId = std::make_shared<std::string>();
    gvaUpdate->add_option("id", *deviceId, "the assistantDeviceId")->required();
    gvaUpdate->callback([&settings, &run, deviceId] {
        run = [&settings, deviceId] {
            VellmarkPB::serviceAccounts request;
            request.mutable_attributes()->set_assistantdeviceid(*deviceId);
            CheckRequest(VellmarkPB::VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, request, nullptr);
            Request update;
            update.send = [&](VellmarkClientAPI& client, Outcome& outcome) {
                client.UpdateGVAAssistantDeviceId(
                    *deviceId, Done<VellmarkPB::serviceAccounts>(outcome, settings),
                    Refused(outcome));
            };
            return Ask(settings, update);
        };
    });
}

}  // namespace Vellmark::Ctl
