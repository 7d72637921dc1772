#pragma once
// Seed inputs of the client's receive path (ClientReceiveExercise.h), made from messages of
// the example store document (VELLMARK_SEED_PATH): every query answered, every update
// pushed, account operations with their errors, a connection lost and made again, wrong
// payload types, and the public dumps.
#include <cstdint>
#include <string>
#include <vector>

#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkAdmin.pb.h"
#include "admin/Json.h"

namespace Vellmark::Fuzz::ClientSeeds {

struct Seed {
    std::string name;
    std::string bytes;
};

// One step of the exercise: the low three bits choose it, the others shade it.
enum Step : std::uint8_t { kPush = 0, kRespond, kDisconnect, kConnect, kCall, kRunOne, kRunAll };

class Program {
public:
    Program& Op(Step step, std::uint8_t shade = 0) {
        m_bytes.push_back(static_cast<char>((shade << 3) | step));
        return *this;
    }
    Program& Byte(std::uint8_t value) {
        m_bytes.push_back(static_cast<char>(value));
        return *this;
    }
    Program& Chunk(std::string const& bytes) {
        Byte(static_cast<std::uint8_t>(bytes.size() >> 8))
            .Byte(static_cast<std::uint8_t>(bytes.size()));
        m_bytes += bytes;
        return *this;
    }
    Program& Chunk(google::protobuf::Message const& message) {
        return Chunk(message.SerializePartialAsString());
    }
    std::string const& Bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

inline Vellmark::Admin::StoreDocument ExampleDocument() {
    std::string text;
    Vellmark::Admin::StoreDocument document;
    Vellmark::Json::ReadFile(VELLMARK_SEED_PATH, text);
    Vellmark::Json::Parse(text, document);
    return document;
}

inline std::vector<Seed> ClientReceiveSeeds() {
    auto const document = ExampleDocument();
    std::vector<Seed> seeds;

    // The seven queries, made before the connection and answered after it, in call order:
    // sources, voice accounts, host accounts, settings, persons, groups, presets.
    Program queries;
    for (std::uint8_t which = 0; which < 7; ++which) queries.Op(kCall, which);
    queries.Op(kConnect).Op(kRunAll);
    google::protobuf::Message const* answers[] = {
        &document.sources(),         &document.voiceaccounts(), &document.msphostaccounts(),
        &document.productsettings(), &document.persons(),       &document.groups(),
        &document.presets()};
    for (std::uint8_t index = 0; index < 7; ++index) {
        queries.Op(kRespond).Byte(index).Chunk(*answers[index]);
    }
    seeds.push_back({"answers_every_query", queries.Op(kRunAll).Bytes()});

    // Every subscription, then an update of each.
    Program updates;
    updates.Op(kConnect).Op(kRunAll);
    for (std::uint8_t which = 0; which < 8; ++which) updates.Op(kCall, 7).Byte(which);
    updates.Op(kRunAll);
    struct Update {
        std::uint8_t id;
        google::protobuf::Message const* payload;
    };
    for (auto const& update :
         {Update{8, &document.sources()}, Update{10, &document.voiceaccounts()},
          Update{29, &document.msphostaccounts()}, Update{11, &document.productsettings()},
          Update{9, &document.persons()}, Update{32, &document.groups()},
          Update{7, &document.presets()}, Update{12, &document.association()}}) {
        updates.Op(kPush).Byte(update.id).Chunk(*update.payload);
    }
    seeds.push_back({"pushes_every_update", updates.Op(kRunAll).Bytes()});

    // Account operations, their replies and their errors.
    VellmarkPB::VellmarkAcctOpEnvelope reply;
    reply.set_success(true);
    *reply.mutable_account() = document.serviceaccounts(0);
    VellmarkPB::Error error;
    error.set_code(6);
    error.set_subcode(1009);
    error.set_messageid(VellmarkPB::VELLMARK_MESSAGE_GVA_CREATE);
    error.set_message("refused");
    Program accounts;
    accounts.Op(kConnect).Op(kRunAll);
    accounts.Op(kCall, 12).Chunk(document.serviceaccounts(0));
    accounts.Op(kCall, 9).Chunk("person-1").Chunk("someone@example.com").Chunk("device-1");
    accounts.Op(kCall, 14).Chunk("acct-1").Op(kCall, 10).Chunk("gva-1").Op(kCall, 11).Chunk("d");
    accounts.Op(kRunAll).Op(kRespond).Byte(0).Chunk(reply);
    accounts.Op(kRespond).Byte(1).Chunk(document.serviceaccounts(1));
    for (std::uint8_t id : {19, 20, 22}) accounts.Op(kPush).Byte(id).Chunk(error);
    seeds.push_back({"account_operations", accounts.Op(kRunAll).Bytes()});

    // A connection lost and made again, once through a failed router creation.
    Program reconnection;
    reconnection.Op(kCall, 0).Op(kConnect).Op(kRunAll).Op(kDisconnect).Op(kCall, 3).Op(kRunOne);
    reconnection.Op(kConnect, 16).Op(kRunAll).Op(kConnect).Op(kRunAll);
    reconnection.Op(kCall, 8).Chunk(document.presets()).Op(kRunAll);
    seeds.push_back({"disconnect_and_reconnect", reconnection.Bytes()});

    // Payloads under a wrong type name, none, and bytes that do not parse.
    Program wrong;
    wrong.Op(kConnect).Op(kRunAll).Op(kCall, 7).Byte(0).Op(kRunAll);
    wrong.Op(kPush, 3).Byte(8).Chunk(document.sources());
    wrong.Op(kPush, 2).Byte(8).Chunk(std::string("\xff\xff\xff\x0f", 4));
    seeds.push_back({"wrong_payload_types", wrong.Op(kRunAll).Bytes()});

    Program dumps;
    dumps.Op(kCall, 15).Byte(3).Chunk(document.sources()).Chunk(document.groups());
    dumps.Chunk(document.serviceaccounts(0));
    seeds.push_back({"dumps", dumps.Bytes()});
    return seeds;
}

}  // namespace Vellmark::Fuzz::ClientSeeds
