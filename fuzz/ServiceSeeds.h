#pragma once
// Seed inputs of the service's fuzz targets, made from the example store document
// (VELLMARK_SEED_PATH): every request the client sends, every admin import, and store files
// as vellmarkd writes them. make_fuzz_seeds writes them to disk before a fuzzing run; the
// tests replay them. Store files are made here rather than kept in the tree.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "fuzz/ServiceExercise.h"
#include "service/Catalog.h"

namespace Vellmark::Fuzz::ServiceSeeds {

using namespace Vellmark::Service;

struct Seed {
    std::string name;
    std::string bytes;
};

using Vellmark::Fuzz::ServiceExercise::ExampleDocument;

// One frame of `kind` under `id` carrying `payload`, as a client writes it.
inline std::string Frame(Tarv::IPCFrame::Kind kind, unsigned int id,
                         google::protobuf::Message const& payload, std::uint64_t number = 1) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(payload);
    std::string bytes;
    Tarv::AppendFrame(Tarv::MakeFrame(kind, id, envelope.Base(), number), bytes,
                      IPCFrameLimit::kHardMaxFrameBytes);
    return bytes;
}

inline std::vector<Seed> ServiceRequestSeeds() {
    using namespace VellmarkPB;
    auto const document = ExampleDocument();
    auto const request = [](unsigned int id, google::protobuf::Message const& payload) {
        return Frame(Tarv::IPCFrame::REQUEST, id, payload);
    };
    std::vector<Seed> seeds;
    for (auto const& resource : Vellmark::Admin::Resources()) {
        if (resource.queryId == 0) continue;
        std::unique_ptr<google::protobuf::Message> empty(
            google::protobuf::MessageFactory::generated_factory()
                ->GetPrototype(resource.type)
                ->New());
        seeds.push_back({std::string("get_") + resource.name, request(resource.queryId, *empty)});
    }
    seeds.push_back({"store_presets", request(VELLMARK_MESSAGE_STORE_PRESETS, document.presets())});
    serviceAccounts account = document.serviceaccounts(0);
    account.set_accountid("acct-fuzz-1");
    seeds.push_back({"create_account", request(VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, account)});
    account.set_name("renamed");
    seeds.push_back({"update_account", request(VELLMARK_MESSAGE_UPDATE_SERVICE_ACCOUNT, account)});
    VellmarkDeleteSrvcAccount deletion;
    deletion.set_accountid("acct-fuzz-1");
    seeds.push_back({"delete_account", request(VELLMARK_MESSAGE_DELETE_SERVICE_ACCOUNT, deletion)});
    serviceAccounts gva;
    gva.set_tarvpersonid("person-fuzz");
    gva.set_provideraccountid("someone@example.com");
    gva.set_accounttype("VPA");
    gva.set_provider("GVA");
    gva.mutable_attributes()->set_assistantdeviceid("device-1");
    seeds.push_back({"gva_create", request(VELLMARK_MESSAGE_GVA_CREATE, gva)});
    serviceAccounts device;
    device.mutable_attributes()->set_assistantdeviceid("device-2");
    seeds.push_back({"gva_update", request(VELLMARK_MESSAGE_GVA_UPDATE_DEVICE_ID, device)});
    VellmarkDeleteGVA gvaDeletion;
    gvaDeletion.set_accountid("gva-1");
    seeds.push_back({"gva_delete", request(VELLMARK_MESSAGE_GVA_DELETE, gvaDeletion)});
    CloudSyncReceived acknowledgement;
    acknowledgement.set_messageid(VELLMARK_MESSAGE_SOURCES_UPDATE);
    seeds.push_back(
        {"acknowledgement",
         Frame(Tarv::IPCFrame::ONE_WAY, VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED, acknowledgement)});
    seeds.push_back({"reserved_14", request(14, sources())});
    seeds.push_back({"wrong_type", request(VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT, sources())});
    std::string everything;
    for (auto const& seed : seeds) everything += seed.bytes;
    seeds.push_back({"everything", everything});
    return seeds;
}

inline std::vector<Seed> AdminImportSeeds() {
    auto const document = ExampleDocument();
    std::vector<Seed> seeds;
    seeds.push_back({"seed", std::string(1, '\0') + Vellmark::Json::Print(document, false)});
    auto const& resources = Vellmark::Admin::Resources();
    auto const* reflection = document.GetReflection();
    for (std::size_t i = 0; i < resources.size(); ++i) {
        auto const* field = document.GetDescriptor()->FindFieldByName(resources[i].documentField);
        seeds.push_back({std::string("put_") + resources[i].name,
                         std::string(1, static_cast<char>(i + 1)) +
                             Vellmark::Json::Print(reflection->GetMessage(document, field), true)});
    }
    Vellmark::Admin::ServiceAccountList accounts;
    *accounts.mutable_serviceaccounts() = document.serviceaccounts();
    seeds.push_back(
        {"put_service_accounts", std::string(1, static_cast<char>(resources.size() + 1)) +
                                     Vellmark::Json::Print(accounts, false)});
    return seeds;
}

// Store files as vellmarkd leaves them: a new one, and one seeded from the example.
inline std::vector<Seed> StoreLoadSeeds() {
    std::string const folder =
        Vellmark::Fuzz::ServiceExercise::TemporaryFolder("vellmark-fuzz-seeds");
    auto const fileOf = [&folder](std::string const& name, bool seeded) {
        std::string const path = folder + "/" + name;
        {
            Store store(path);
            if (seeded) {
                Catalog catalog(store);
                Changes changed;
                catalog.Seed(ExampleDocument(), changed);
            }
        }
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    };
    std::vector<Seed> seeds{{"new_store", fileOf("new.db", false)},
                            {"seeded_store", fileOf("seeded.db", true)}};
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return seeds;
}

}  // namespace Vellmark::Fuzz::ServiceSeeds
