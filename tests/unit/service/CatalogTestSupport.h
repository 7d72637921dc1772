#pragma once
// What the Catalog's tests share: a Catalog on a fresh store, requests and documents built
// by hand, and the checks of a refusal.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "service/Catalog.h"
#include "tests/unit/service/ServiceTestSupport.h"

namespace Vellmark::ServiceTest {

using Vellmark::Service::Catalog;
using Vellmark::Service::Changes;
using Vellmark::Service::Store;

inline constexpr int kRefused = 6;

inline VellmarkPB::serviceAccounts ServiceAccount(std::string const& id,
                                                  std::string const& name = "",
                                                  std::string const& provider = "SPOTIFY") {
    VellmarkPB::serviceAccounts account;
    account.set_accountid(id);
    if (!name.empty()) account.set_name(name);
    account.set_provider(provider);
    return account;
}

inline VellmarkPB::serviceAccounts GVARequest(std::string const& person,
                                              std::string const& provider) {
    VellmarkPB::serviceAccounts request;
    request.set_tarvpersonid(person);
    request.set_provideraccountid(provider);
    return request;
}

inline VellmarkPB::Presets Preset(std::string const& key, std::string const& name) {
    VellmarkPB::Presets preset;
    preset.set_key(key);
    preset.mutable_value()->add_actions()->mutable_metadata()->set_name(name);
    return preset;
}

inline VellmarkPB::VellmarkPresets Presets(std::vector<VellmarkPB::Presets> const& list) {
    VellmarkPB::VellmarkPresets presets;
    for (auto const& preset : list) *presets.add_presets() = preset;
    return presets;
}

// "key=name" for each preset, in order.
inline std::vector<std::string> Summary(VellmarkPB::VellmarkPresets const& presets) {
    std::vector<std::string> summary;
    for (auto const& preset : presets.presets()) {
        summary.push_back(preset.key() + "=" + preset.value().actions(0).metadata().name());
    }
    return summary;
}

inline VellmarkPB::VellmarkSource_source Source(std::string const& id) {
    VellmarkPB::VellmarkSource_source source;
    source.set_id(id);
    source.mutable_sourceproviderid()->set_text("PROVIDER");
    return source;
}

inline void ExpectRefusal(VellmarkPB::Error const& error, VellmarkPB::MessageId id,
                          VellmarkPB::Code code) {
    EXPECT_EQ(error.code(), kRefused);
    EXPECT_EQ(error.subcode(), code);
    EXPECT_EQ(error.messageid(), id);
    EXPECT_FALSE(error.message().empty());
}

inline void ExpectSame(google::protobuf::Message const& expected,
                       google::protobuf::Message const& actual) {
    std::string differences;
    google::protobuf::util::MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&differences);
    EXPECT_TRUE(differencer.Compare(expected, actual)) << differences;
}

// A document with every resource and two accounts, all fields filled by hand.
inline Vellmark::Admin::StoreDocument FullDocument() {
    Vellmark::Admin::StoreDocument document;
    *document.mutable_sources()->add_source() = Source("s-1");
    *document.mutable_voiceaccounts()->add_source() = Source("gva-7");
    *document.mutable_msphostaccounts()->add_source() = Source("msp-1");
    document.mutable_productsettings()->set_name("Den");
    document.mutable_productsettings()->set_timeformat(VellmarkPB::TIME_FORMAT_24HOUR_ID);
    auto* person = document.mutable_persons()->add_person();
    person->set_key("p-1");
    person->set_value("owner");
    document.mutable_groups()->add_groups()->set_groupid("g-1");
    *document.mutable_presets()->add_presets() = Preset("1", "Radio");
    document.mutable_association()->set_status(VellmarkPB::ASSOCIATED);
    *document.add_serviceaccounts() = ServiceAccount("s-1", "Music");
    auto gva = GVARequest("p-1", "google-1");
    gva.set_accountid("gva-7");
    gva.set_provider("GVA");
    *document.add_serviceaccounts() = gva;
    return document;
}

class CatalogTest : public ::testing::Test {
protected:
    TempFolder folder;
    Store store{folder.File("store.db")};
    Catalog catalog{store};

    VellmarkPB::sources List(char const* name) {
        VellmarkPB::sources list;
        list.CopyFrom(*catalog.Read(*Vellmark::Admin::FindResource(name)));
        return list;
    }
    VellmarkPB::VellmarkPresets StoredPresets() {
        VellmarkPB::VellmarkPresets presets;
        presets.CopyFrom(*catalog.Read(*Vellmark::Admin::FindResource("presets")));
        return presets;
    }
    std::vector<std::string> SourceIds(char const* name) {
        std::vector<std::string> ids;
        auto const list = List(name);
        for (auto const& source : list.source()) ids.push_back(source.id());
        return ids;
    }
    std::vector<std::string> AccountIds() {
        std::vector<std::string> ids;
        for (auto const& account : store.Accounts()) ids.push_back(account.accountid());
        return ids;
    }
    VellmarkPB::serviceAccounts Create(VellmarkPB::serviceAccounts const& account) {
        Changes changed;
        auto const outcome = catalog.CreateServiceAccount(account, changed);
        auto const* reply = std::get_if<VellmarkPB::VellmarkAcctOpEnvelope>(&outcome);
        if (!reply) {
            ADD_FAILURE() << std::get<VellmarkPB::Error>(outcome).message();
            return {};
        }
        EXPECT_TRUE(reply->success());
        return reply->account();
    }
    VellmarkPB::serviceAccounts CreateGVA(std::string const& person) {
        Changes changed;
        auto const outcome =
            catalog.CreateGVAAccount(GVARequest(person, "google-" + person), changed);
        auto const* account = std::get_if<VellmarkPB::serviceAccounts>(&outcome);
        if (!account) {
            ADD_FAILURE() << std::get<VellmarkPB::Error>(outcome).message();
            return {};
        }
        return *account;
    }
};

}  // namespace Vellmark::ServiceTest
