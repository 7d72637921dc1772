// The commands that play the cloud, through vellmarkd's admin endpoint.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

#include "admin/AdminClient.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "tools/AdminConnection.h"
#include "tools/Commands.h"
#include "tools/RequestChecks.h"

namespace Vellmark::Ctl {
namespace {

using Admin::AdminClient;
using Admin::AdminError;

char const kServiceAccounts[] = "service-accounts";

std::vector<std::string> AdminResources() {
    std::vector<std::string> names;
    for (auto const& resource : Vellmark::Admin::Resources()) names.push_back(resource.name);
    names.push_back(kServiceAccounts);
    return names;
}

// Sends one admin request and prints what it returns: as the service wrote it, or, when
// `shown` is given, as a document of that type printed (and masked) by PrintJson, in the
// shape every command prints. `request` is filled on the main thread after the command
// line has been read; bad input throws BadInput before sending.
int AdminCall(Settings const& settings, Vellmark::Admin::Request request,
              std::unique_ptr<google::protobuf::Message> shown = nullptr) {
    request.set_pretty(settings.pretty && !shown);
    return WithAdmin(settings, [&](AdminClient& admin) -> int {
        std::string const json = admin.Command(request);
        if (shown) {
            PrintJson(json, *shown, settings);
        } else if (!json.empty()) {
            PrintText(json);
        }
        return kOk;
    });
}

// The message a resource's JSON must make, to check a file before it is sent.
std::unique_ptr<google::protobuf::Message> MessageOf(std::string const& resource) {
    if (resource == kServiceAccounts)
        return std::make_unique<Vellmark::Admin::ServiceAccountList>();
    auto const* info = Vellmark::Admin::FindResource(resource);
    return std::unique_ptr<google::protobuf::Message>(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(info->type)->New());
}

}  // namespace

void AddAdminCommands(CLI::App& app, Settings& settings, Run& run) {
    auto* admin = app.add_subcommand(
        "admin", "play the cloud: change what vellmarkd keeps, make it fail, see what it saw");
    admin->require_subcommand(1);
    auto const resources = AdminResources();

    auto* put = admin->add_subcommand(
        "put",
        "replace a resource with a JSON file (- for stdin); connected clients get its update");
    auto putArgs = std::make_shared<std::pair<std::string, std::string>>();
    put->add_option("resource", putArgs->first, "what to replace")
        ->required()
        ->check(CLI::IsMember(resources));
    put->add_option("file", putArgs->second, "its new content")->type_name(kFileType)->required();
    put->callback([&settings, &run, putArgs] {
        run = [&settings, putArgs] {
            auto message = MessageOf(putArgs->first);
            auto const document = LoadDocument(putArgs->second, *message, AdminDocumentBytes());
            CheckAdminDocument(*message, document);
            Vellmark::Admin::Request request;
            request.mutable_put()->set_resource(putArgs->first);
            request.mutable_put()->set_json(Vellmark::Json::Print(*message, false));
            return AdminCall(settings, request);
        };
    });

    auto* get = admin->add_subcommand("get", "print a resource as the service keeps it");
    AddShowSecrets(*get, settings);
    auto getResource = std::make_shared<std::string>();
    get->add_option("resource", *getResource, "what to print")
        ->required()
        ->check(CLI::IsMember(resources));
    get->callback([&settings, &run, getResource] {
        run = [&settings, getResource] {
            Vellmark::Admin::Request request;
            request.mutable_get()->set_resource(*getResource);
            return AdminCall(settings, request, MessageOf(*getResource));
        };
    });

    // Commands without arguments: each sets one flag of the request; the reply is printed
    // as a document of `Shown` (none: as the service wrote it).
    auto const addFlagCommand = [&](char const* name, char const* help,
                                    void (Vellmark::Admin::Request::*set)(bool),
                                    google::protobuf::Message const* shown) {
        admin->add_subcommand(name, help)->callback([&settings, &run, set, shown] {
            run = [&settings, set, shown] {
                Vellmark::Admin::Request request;
                (request.*set)(true);
                return AdminCall(
                    settings, request,
                    std::unique_ptr<google::protobuf::Message>(shown ? shown->New() : nullptr));
            };
        });
    };
    addFlagCommand("clients",
                   "list the connected clients: session, pid, uid, connectedAt, requests",
                   &Vellmark::Admin::Request::set_listclients,
                   &Vellmark::Admin::ClientList::default_instance());
    addFlagCommand("acks",
                   "the update acknowledgements received, counted per identifier, and the latest",
                   &Vellmark::Admin::Request::set_listacknowledgements,
                   &Vellmark::Admin::AcknowledgementReport::default_instance());
    addFlagCommand("drop-connections", "close every client connection (clients reconnect)",
                   &Vellmark::Admin::Request::set_dropconnections, nullptr);

    auto* exportStore = admin->add_subcommand(
        "export",
        "print the whole store as one JSON document: a faithful backup, secrets in clear, "
        "that `admin seed` restores; keep it private, or use --redact for a copy safe to "
        "attach to a bug report");
    auto redact = std::make_shared<bool>(false);
    exportStore->add_flag("--redact", *redact,
                          "mask tokens, identifiers and user names (the copy cannot be seeded "
                          "back as it was)");
    exportStore->callback([&settings, &run, redact] {
        run = [&settings, redact] {
            Vellmark::Admin::Request request;
            request.set_exportstore(true);
            // A faithful backup unless --redact: secrets in clear either way it is printed.
            Settings shown = settings;
            shown.showSecrets = !*redact;
            return AdminCall(shown, request, std::make_unique<Vellmark::Admin::StoreDocument>());
        };
    });

    auto* failNext = admin->add_subcommand(
        "fail-next", "make the next requests under an identifier fail, or go unanswered");
    struct FailArgs {
        std::string id;
        unsigned int count = 1;
        std::string error;
        bool noAnswer = false;
    };
    auto failArgs = std::make_shared<FailArgs>();
    failNext->add_option("id", failArgs->id, "the identifier: a number or a MessageId name")
        ->type_name(kMessageIdType)
        ->required();
    failNext->add_option("--count", failArgs->count, "how many requests (0: cancel)")
        ->capture_default_str();
    auto* errorOption = failNext->add_option(
        "--error", failArgs->error,
        "the Error to answer, as JSON, e.g. '{\"code\":6,\"subcode\":1009,\"message\":\"...\"}'");
    auto* noAnswerOption = failNext->add_flag("--no-answer", failArgs->noAnswer, "answer nothing");
    errorOption->excludes(noAnswerOption);
    failNext->callback([&settings, &run, failArgs] {
        run = [&settings, failArgs] {
            if (failArgs->error.empty() && !failArgs->noAnswer && failArgs->count > 0) {
                throw BadInput("fail-next needs --error JSON or --no-answer");
            }
            Vellmark::Admin::Request request;
            auto* plan = request.mutable_failnext();
            plan->set_messageid(ParseMessageId(failArgs->id));
            plan->set_count(failArgs->count);
            if (!failArgs->error.empty()) {
                std::string const problem =
                    Vellmark::Json::Parse(failArgs->error, *plan->mutable_error());
                if (!problem.empty()) throw BadInput("--error: not an Error document: " + problem);
            }
            return AdminCall(settings, request);
        };
    });

    auto* delay = admin->add_subcommand("delay", "hold replies back (0 ms: stop delaying)");
    auto delayArgs = std::make_shared<std::pair<unsigned int, std::string>>();
    delay->add_option("milliseconds", delayArgs->first, "how long")->required();
    delay->add_option("--id", delayArgs->second, "only replies under this identifier")
        ->type_name(kMessageIdType);
    delay->callback([&settings, &run, delayArgs] {
        run = [&settings, delayArgs] {
            Vellmark::Admin::Request request;
            request.mutable_delay()->set_milliseconds(delayArgs->first);
            if (!delayArgs->second.empty()) {
                request.mutable_delay()->set_messageid(ParseMessageId(delayArgs->second));
            }
            return AdminCall(settings, request);
        };
    });

    auto* seed = admin->add_subcommand(
        "seed", "replace the whole store with a JSON document (as export prints it)");
    auto seedFile = std::make_shared<std::string>();
    seed->add_option("file", *seedFile, "the document (- for stdin)")
        ->type_name(kFileType)
        ->required();
    seed->callback([&settings, &run, seedFile] {
        run = [&settings, seedFile] {
            Vellmark::Admin::StoreDocument store;
            auto const document = LoadDocument(*seedFile, store, AdminDocumentBytes());
            CheckAdminDocument(store, document);
            Vellmark::Admin::Request request;
            request.mutable_seed()->set_json(Vellmark::Json::Print(store, false));
            return AdminCall(settings, request);
        };
    });

    auto* push = admin->add_subcommand(
        "push",
        "load-test the subscribers: push a resource's update to every client COUNT times, at "
        "most WINDOW unacknowledged per client; prints what it took once all are acknowledged (so "
        "every connected client must subscribe to it)");
    struct PushArgs {
        std::string resource;
        unsigned int count = 1000;
        unsigned int window = 64;
    };
    auto pushArgs = std::make_shared<PushArgs>();
    std::vector<std::string> pushed;
    for (auto const& resource : Vellmark::Admin::Resources()) {
        if (resource.updateId != 0) pushed.push_back(resource.name);
    }
    push->add_option("resource", pushArgs->resource, "whose update")
        ->required()
        ->check(CLI::IsMember(pushed));
    push->add_option("--count", pushArgs->count, "updates per client")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000000u));
    push->add_option("--window", pushArgs->window, "unacknowledged updates per client at most")
        ->capture_default_str()
        ->check(CLI::Range(1u, 100000u));
    push->callback([&settings, &run, pushArgs] {
        run = [&settings, pushArgs] {
            Vellmark::Admin::Request request;
            request.mutable_push()->set_resource(pushArgs->resource);
            request.mutable_push()->set_count(pushArgs->count);
            request.mutable_push()->set_window(pushArgs->window);
            return AdminCall(settings, request, std::make_unique<Vellmark::Admin::PushReport>());
        };
    });

    AddMonitorCommand(app, settings, run);
}

}  // namespace Vellmark::Ctl
