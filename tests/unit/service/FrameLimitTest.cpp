// Answers always fit: every resource can grow to the frame limit and not one byte past it,
// and a write that would pass it is refused with nothing stored.
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "VellmarkGroups.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"
#include "service/Catalog.h"
#include "tests/unit/service/ServiceTestSupport.h"

using namespace Vellmark::Service;

namespace {

using google::protobuf::Message;
using google::protobuf::util::MessageDifferencer;
using Vellmark::ServiceTest::TempFolder;

constexpr std::size_t kLimit = 16 * 1024;

// The body of the largest frame that carries `value` as `resource`'s answer or update.
std::size_t FrameBytesOf(Vellmark::Admin::ResourceInfo const& resource, Message const& value) {
    IPCMessageEnvelope envelope;
    envelope.SetPayload(value);
    std::size_t bytes = 0;
    for (unsigned int id : {resource.queryId, resource.updateId}) {
        if (id != 0) bytes = std::max(bytes, IPCFrameLimit::FrameBytes(id, envelope));
    }
    return bytes;
}

// A value of `resource` with `size` bytes of text in one of its fields.
using Filler = std::function<void(Message&, std::size_t size)>;

Filler FillerOf(std::string const& resource) {
    if (resource == "sources" || resource == "voice-accounts" || resource == "msp-host-accounts") {
        return [](Message& m, std::size_t size) {
            auto* source = static_cast<VellmarkPB::sources&>(m).add_source();
            source->mutable_sourceproviderid()->set_text("P");
            source->mutable_name()->set_text(std::string(size, 'n'));
        };
    }
    if (resource == "product-settings") {
        return [](Message& m, std::size_t size) {
            static_cast<VellmarkPB::ProductSettings&>(m).set_name(std::string(size, 'n'));
        };
    }
    if (resource == "persons") {
        return [](Message& m, std::size_t size) {
            static_cast<VellmarkPB::persons&>(m).add_person()->set_value(std::string(size, 'v'));
        };
    }
    if (resource == "groups") {
        return [](Message& m, std::size_t size) {
            static_cast<VellmarkPB::VellmarkGroups&>(m).add_groups()->set_groupid(
                std::string(size, 'g'));
        };
    }
    if (resource == "presets") {
        return [](Message& m, std::size_t size) {
            static_cast<VellmarkPB::VellmarkPresets&>(m).add_presets()->set_key(
                std::string(size, 'k'));
        };
    }
    return nullptr;  // the association: a status, nothing that grows
}

std::unique_ptr<Message> Filled(Vellmark::Admin::ResourceInfo const& resource, std::size_t size) {
    std::unique_ptr<Message> value(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(resource.type)->New());
    FillerOf(resource.name)(*value, size);
    return value;
}

// The largest text that keeps `resource` within the limit.
std::size_t LargestFitting(Vellmark::Admin::ResourceInfo const& resource) {
    std::size_t size = kLimit - 64;
    while (FrameBytesOf(resource, *Filled(resource, size + 1)) <= kLimit) ++size;
    while (FrameBytesOf(resource, *Filled(resource, size)) > kLimit) --size;
    return size;
}

class FrameLimitTest : public ::testing::Test {
protected:
    TempFolder folder;
    Store store{folder.File("store.db")};
    Catalog catalog{store, kLimit};

    Vellmark::Admin::ResourceInfo const& Resource(char const* name) {
        return *Vellmark::Admin::FindResource(name);
    }
    bool Stored(Vellmark::Admin::ResourceInfo const& resource, Message const& value) {
        return MessageDifferencer::Equals(*catalog.Read(resource), value);
    }
};

TEST_F(FrameLimitTest, EveryResourceGrowsToTheLimitAndNotOneBytePast) {
    for (auto const& resource : Vellmark::Admin::Resources()) {
        SCOPED_TRACE(resource.name);
        if (!FillerOf(resource.name)) {
            VellmarkPB::AccountAssociated association;
            association.set_status(VellmarkPB::ASSOCIATED);
            EXPECT_LT(FrameBytesOf(resource, association), 64u);
            continue;
        }
        std::size_t const size = LargestFitting(resource);
        auto const atLimit = Filled(resource, size);
        std::size_t const bytes = FrameBytesOf(resource, *atLimit);
        EXPECT_LE(bytes, kLimit);
        EXPECT_GE(bytes + 4, kLimit) << "within a length prefix of the limit";
        Changes changed;
        EXPECT_TRUE(std::holds_alternative<Written>(catalog.Put(resource, *atLimit, changed)));
        EXPECT_TRUE(Stored(resource, *atLimit));
        EXPECT_EQ(changed, Changes{resource.name});

        auto const pastLimit = Filled(resource, size + 1);
        EXPECT_GT(FrameBytesOf(resource, *pastLimit), kLimit);
        Changes none;
        auto const refused = catalog.Put(resource, *pastLimit, none);
        auto const* refusal = std::get_if<VellmarkPB::Error>(&refused);
        ASSERT_NE(refusal, nullptr) << "one byte past the limit was stored";
        EXPECT_EQ(refusal->subcode(), VellmarkPB::CODE_RESOURCE_TOO_LARGE);
        EXPECT_NE(refusal->message().find("over the frame limit of 16384"), std::string::npos)
            << refusal->message();
        EXPECT_TRUE(Stored(resource, *atLimit)) << "what was stored stays";
        EXPECT_TRUE(none.empty());
    }
}

TEST_F(FrameLimitTest, AnAccountThatWouldOverfillItsListIsRefusedAndNothingChanges) {
    auto const& sources = Resource("sources");
    int created = 0;
    VellmarkPB::Error refusal;
    for (;; ++created) {
        VellmarkPB::serviceAccounts account;
        account.set_accountid("acct-" + std::to_string(created));
        account.set_provider("SPOTIFY");
        account.set_name(std::string(3000, 'a'));
        Changes changed;
        auto const outcome = catalog.CreateServiceAccount(account, changed);
        if (auto const* refused = std::get_if<VellmarkPB::Error>(&outcome)) {
            refusal = *refused;
            EXPECT_TRUE(changed.empty());
            break;
        }
        ASSERT_LT(created, 10) << "sources never filled up";
    }
    EXPECT_EQ(refusal.subcode(), VellmarkPB::CODE_RESOURCE_TOO_LARGE);
    EXPECT_NE(refusal.message().find("sources would take a frame of"), std::string::npos)
        << refusal.message();
    EXPECT_EQ(catalog.Accounts().serviceaccounts_size(), created);
    auto const list = catalog.Read(sources);
    EXPECT_EQ(static_cast<VellmarkPB::sources const&>(*list).source_size(), created);
    EXPECT_LE(FrameBytesOf(sources, *list), kLimit);
}

TEST_F(FrameLimitTest, PresetsAndAGVAAccountThatWouldNotFitAreRefused) {
    VellmarkPB::VellmarkPresets presets;
    presets.add_presets()->set_key(std::string(kLimit, 'k'));
    Changes changed;
    auto const stored = catalog.StorePresets(presets, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(stored));
    EXPECT_EQ(std::get<VellmarkPB::Error>(stored).subcode(), VellmarkPB::CODE_RESOURCE_TOO_LARGE);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(Stored(Resource("presets"), VellmarkPB::VellmarkPresets()));

    VellmarkPB::serviceAccounts request;
    request.set_tarvpersonid("person-1");
    request.set_provideraccountid(std::string(kLimit, 'p'));
    auto const gva = catalog.CreateGVAAccount(request, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(gva));
    EXPECT_EQ(std::get<VellmarkPB::Error>(gva).subcode(), VellmarkPB::CODE_RESOURCE_TOO_LARGE);
    EXPECT_TRUE(changed.empty());
    EXPECT_EQ(catalog.Accounts().serviceaccounts_size(), 0);
}

TEST_F(FrameLimitTest, ASeedWithAResourceTooBigIsRefusedWhole) {
    Vellmark::Admin::StoreDocument document;
    document.mutable_persons()->add_person()->set_key("person-1");
    document.mutable_productsettings()->set_name(std::string(kLimit, 'n'));
    Changes changed;
    auto const seeded = catalog.Seed(document, changed);
    ASSERT_TRUE(std::holds_alternative<VellmarkPB::Error>(seeded));
    EXPECT_EQ(std::get<VellmarkPB::Error>(seeded).subcode(), VellmarkPB::CODE_RESOURCE_TOO_LARGE);
    EXPECT_TRUE(changed.empty());
    EXPECT_TRUE(Stored(Resource("persons"), VellmarkPB::persons()));
}

TEST_F(FrameLimitTest, AStoreWrittenWithALargerLimitIsRefusedAtStart) {
    Catalog generous(store, 4 * kLimit);
    Changes changed;
    ASSERT_TRUE(std::holds_alternative<Written>(
        generous.Put(Resource("groups"), *Filled(Resource("groups"), 2 * kLimit), changed)));
    generous.CheckEveryResourceFits();
    try {
        catalog.CheckEveryResourceFits();
        ADD_FAILURE() << "a resource over the limit was kept";
    } catch (StoreError const& error) {
        EXPECT_NE(std::string(error.what()).find("groups takes a frame of"), std::string::npos)
            << error.what();
        EXPECT_NE(std::string(error.what()).find("--max-frame-bytes"), std::string::npos);
    }
}

}  // namespace
