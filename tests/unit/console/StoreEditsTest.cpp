// The store as the page edits it: masks the page left as they were come back as the clear
// values they stand for; a mask that stands for nothing, or for more than one value,
// refuses the edit.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include "VellmarkAdmin.pb.h"
#include "VellmarkPresets.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"
#include "console/StoreEdits.h"

namespace Vellmark::Console {
namespace {

using Vellmark::Admin::Sensitivity;

Vellmark::Admin::StoreDocument Seed() {
    std::string text;
    Vellmark::Admin::StoreDocument document;
    EXPECT_EQ(Vellmark::Json::ReadFile(VELLMARK_SEED_PATH, text), "");
    EXPECT_EQ(Vellmark::Json::Parse(text, document), "");
    return document;
}

// `message` as the page is shown it, read back as the page sends it.
template <class T>
T AsShown(T const& message) {
    T shown;
    EXPECT_EQ(Vellmark::Json::Parse(MaskedJson(message), shown), "");
    return shown;
}

bool Same(google::protobuf::Message const& a, google::protobuf::Message const& b) {
    return google::protobuf::util::MessageDifferencer::Equals(a, b);
}

TEST(StoreEdits, WhatThePageShowsHoldsNoSecret) {
    auto const seed = Seed();
    std::string const shown = MaskedJson(seed);
    auto const secrets = Vellmark::Admin::SecretValues(seed);
    ASSERT_FALSE(secrets.empty());
    for (auto const& secret : secrets) EXPECT_EQ(shown.find(secret), std::string::npos) << secret;
}

TEST(StoreEdits, MasksLeftAsTheyWereComeBackAsTheStoredValues) {
    auto const seed = Seed();
    auto edited = AsShown(seed);
    ASSERT_FALSE(Same(edited, seed));
    EXPECT_EQ(RestoreMasked(edited, seed), "");
    EXPECT_TRUE(Same(edited, seed)) << edited.DebugString();
}

TEST(StoreEdits, AnEditedNameIsTakenAndTheSecretsAroundItKept) {
    auto const stored = Seed().presets();
    auto edited = AsShown(stored);
    edited.mutable_presets(0)->mutable_value()->mutable_actions(0)->mutable_metadata()->set_name(
        "Jazz FM");
    EXPECT_EQ(RestoreMasked(edited, stored), "");
    auto const& metadata = edited.presets(0).value().actions(0).metadata();
    EXPECT_EQ(metadata.name(), "Jazz FM");
    EXPECT_EQ(metadata.accountid(), stored.presets(0).value().actions(0).metadata().accountid());
}

TEST(StoreEdits, AValueTypedInClearIsTaken) {
    auto const stored = Seed().presets();
    auto edited = AsShown(stored);
    edited.mutable_presets(1)
        ->mutable_value()
        ->mutable_actions(0)
        ->mutable_metadata()
        ->set_accountid("acct-new-0001");
    EXPECT_EQ(RestoreMasked(edited, stored), "");
    EXPECT_EQ(edited.presets(1).value().actions(0).metadata().accountid(), "acct-new-0001");
}

TEST(StoreEdits, AMaskMovedToAnotherPlaceStandsForItsOnlyStoredValue) {
    auto const stored = Seed().presets();
    auto shown = AsShown(stored);
    // The first preset deleted in the page: the second moves up.
    VellmarkPB::VellmarkPresets edited;
    *edited.add_presets() = shown.presets(1);
    EXPECT_EQ(RestoreMasked(edited, stored), "");
    EXPECT_TRUE(Same(edited.presets(0), stored.presets(1))) << edited.DebugString();
}

TEST(StoreEdits, AMaskThatStandsForMoreThanOneStoredValueRefusesTheEdit) {
    // Two accounts whose identifiers mask alike; a third entry, where none was stored,
    // holds that mask: it could stand for either.
    Vellmark::Admin::ServiceAccountList stored;
    stored.add_serviceaccounts()->set_accountid("acct-aaaa-1234");
    stored.add_serviceaccounts()->set_accountid("acct-bbbb-1234");
    auto edited = AsShown(stored);
    edited.add_serviceaccounts()->set_accountid(edited.serviceaccounts(0).accountid());
    EXPECT_EQ(RestoreMasked(edited, stored),
              "serviceAccounts[2].accountID holds the mask \"----------1234\", which stands for "
              "more than one stored value here; type the value in clear");
}

TEST(StoreEdits, AMaskThatStandsForNoStoredValueRefusesTheEdit) {
    auto const stored = Seed().presets();
    auto edited = AsShown(stored);
    edited.mutable_presets(0)
        ->mutable_value()
        ->mutable_actions(0)
        ->mutable_metadata()
        ->set_accountid("----------------9999");
    EXPECT_EQ(
        RestoreMasked(edited, stored),
        "presets[0].value.actions[0].metadata.accountID holds the mask "
        "\"----------------9999\", which stands for no stored value; type the value in clear");
}

TEST(StoreEdits, AMaskedTokenComesBackWhole) {
    Vellmark::Admin::ServiceAccountList stored;
    *stored.add_serviceaccounts() = Seed().serviceaccounts(0);
    auto edited = AsShown(stored);
    ASSERT_NE(edited.serviceaccounts(0).tokens().refresh_token(),
              stored.serviceaccounts(0).tokens().refresh_token());
    EXPECT_EQ(RestoreMasked(edited, stored), "");
    EXPECT_EQ(edited.serviceaccounts(0).tokens().refresh_token(),
              stored.serviceaccounts(0).tokens().refresh_token());
}

TEST(StoreEdits, MasksAreToldFromTypedValues) {
    EXPECT_TRUE(LooksMasked(Sensitivity::AccountId,
                            Vellmark::Admin::Masked(Sensitivity::AccountId, "acct-1234")));
    EXPECT_TRUE(LooksMasked(Sensitivity::UserName, "-"));
    EXPECT_TRUE(LooksMasked(
        Sensitivity::Token,
        Vellmark::Admin::Masked(Sensitivity::Token, "rt-4f9a1c0e7b2d4e6f8a9b0c1d2e3f4a5b")));
    EXPECT_TRUE(LooksMasked(Sensitivity::Token, "********"));
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, "acct-1234"));
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, "ab"));
    EXPECT_FALSE(LooksMasked(Sensitivity::Token, "rt-4f9a1c0e7b2d4e6f8a9b0c1d2e3f4a5b"));
    EXPECT_FALSE(LooksMasked(Sensitivity::FreeText, "-------1234"));
    EXPECT_FALSE(LooksMasked(Sensitivity::AccountId, ""));
}

TEST(StoreEdits, EveryResourceHasItsMessage) {
    for (auto const& resource : Vellmark::Admin::Resources()) {
        auto message = NewResourceMessage(resource.name);
        ASSERT_NE(message, nullptr) << resource.name;
        EXPECT_EQ(message->GetDescriptor(), resource.type);
    }
    EXPECT_EQ(NewResourceMessage(kServiceAccounts)->GetDescriptor(),
              Vellmark::Admin::ServiceAccountList::descriptor());
    EXPECT_EQ(NewResourceMessage("secrets"), nullptr);
}

}  // namespace
}  // namespace Vellmark::Console
