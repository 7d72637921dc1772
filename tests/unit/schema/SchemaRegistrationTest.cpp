// Registration of the wire schema with the descriptor pool: file names, imports, the
// mark-up options and the schema-wide rules on labels and defaults.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Errors.pb.h"
#include "LocalProducts.pb.h"
#include "ProtoToMarkup/MarkupOptions.pb.h"
#include "VellmarkAcctOpEnvelope.pb.h"
#include "VellmarkDeleteGVA.pb.h"
#include "VellmarkDeleteSrvcAccount.pb.h"
#include "VellmarkGroups.pb.h"
#include "VellmarkMessageId.pb.h"
#include "VellmarkPersons.pb.h"
#include "VellmarkPreset.pb.h"
#include "VellmarkPresets.pb.h"
#include "VellmarkProductSettings.pb.h"
#include "VellmarkServiceAccounts.pb.h"
#include "VellmarkSource.pb.h"
#include "VellmarkSourceSettings.pb.h"
#include "VellmarkSources.pb.h"
#include "VellmarkSystemAssoicated.pb.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;

constexpr const char* kMarkupFile = "ProtoToMarkup/MarkupOptions.proto";

// The schema files with their imports besides the mark-up options, in registration order.
const std::vector<std::pair<std::string, std::vector<std::string>>>& SchemaFiles() {
    static const std::vector<std::pair<std::string, std::vector<std::string>>> files = {
        {"VellmarkAcctOpEnvelope.proto",
         {"VellmarkServiceAccounts.proto", "Errors.proto", "VellmarkDeleteSrvcAccount.proto"}},
        {"VellmarkDeleteGVA.proto", {}},
        {"VellmarkDeleteSrvcAccount.proto", {}},
        {"VellmarkGroups.proto", {"VellmarkSourceSettings.proto"}},
        {"VellmarkPersons.proto", {}},
        {"VellmarkPreset.proto", {}},
        {"VellmarkPresets.proto", {"VellmarkPreset.proto"}},
        {"VellmarkProductSettings.proto", {}},
        {"VellmarkServiceAccounts.proto", {}},
        {"VellmarkSource.proto", {"VellmarkSourceSettings.proto"}},
        {"VellmarkSources.proto", {"VellmarkSource.proto"}},
        {"VellmarkSourceSettings.proto", {}},
        {"VellmarkSystemAssoicated.proto", {}},
        {"LocalProducts.proto", {}},
    };
    return files;
}

const FileDescriptor* FindFile(const std::string& name) {
    return DescriptorPool::generated_pool()->FindFileByName(name);
}

// Every message of the schema files, nested ones included.
std::vector<const Descriptor*> AllSchemaMessages() {
    std::vector<const Descriptor*> result;
    std::vector<const Descriptor*> pending;
    for (const auto& entry : SchemaFiles()) {
        const FileDescriptor* file = FindFile(entry.first);
        if (file == nullptr) {
            ADD_FAILURE() << entry.first << " is not registered";
            continue;
        }
        for (int i = 0; i < file->message_type_count(); ++i) {
            pending.push_back(file->message_type(i));
        }
    }
    while (!pending.empty()) {
        const Descriptor* message = pending.back();
        pending.pop_back();
        result.push_back(message);
        for (int i = 0; i < message->nested_type_count(); ++i) {
            pending.push_back(message->nested_type(i));
        }
    }
    return result;
}

std::vector<const FieldDescriptor*> AllSchemaFields() {
    std::vector<const FieldDescriptor*> result;
    for (const Descriptor* message : AllSchemaMessages()) {
        for (int i = 0; i < message->field_count(); ++i) {
            result.push_back(message->field(i));
        }
    }
    return result;
}

std::vector<std::string> Sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

TEST(SchemaRegistration, EverySchemaFileIsFoundUnderItsName) {
    for (const auto& entry : SchemaFiles()) {
        const FileDescriptor* file = FindFile(entry.first);
        ASSERT_NE(file, nullptr) << entry.first;
        EXPECT_EQ(file->name(), entry.first);
    }
}

TEST(SchemaRegistration, ServiceLibraryAndMarkupFilesAreFoundUnderTheirNames) {
    for (const char* name : {"Errors.proto", "VellmarkMessageId.proto", kMarkupFile}) {
        const FileDescriptor* file = FindFile(name);
        ASSERT_NE(file, nullptr) << name;
        EXPECT_EQ(file->name(), name);
    }
}

TEST(SchemaRegistration, AssociationFileIsFoundOnlyUnderItsOwnSpelling) {
    ASSERT_NE(FindFile("VellmarkSystemAssoicated.proto"), nullptr);
    EXPECT_EQ(FindFile("VellmarkSystemAssoicated.proto"),
              VellmarkPB::AccountAssociated::descriptor()->file());
}

TEST(SchemaRegistration, OtherSpellingsOfTheAssociationFileAreNotFound) {
    for (const char* name : {"VellmarkSystemAssociated.proto", "vellmarksystemassoicated.proto",
                             "Protobufs/VellmarkSystemAssoicated.proto", "VellmarkSystemAssoicated",
                             "VellmarkSystemAssoicated.pb"}) {
        EXPECT_EQ(FindFile(name), nullptr) << name;
    }
}

TEST(SchemaRegistration, SchemaFilesAreNotFoundUnderTheirSourcePaths) {
    for (const auto& entry : SchemaFiles()) {
        EXPECT_EQ(FindFile("Protobufs/" + entry.first), nullptr) << entry.first;
    }
    EXPECT_EQ(FindFile("lan/Errors.proto"), nullptr);
    EXPECT_EQ(FindFile("MarkupOptions.proto"), nullptr);
}

TEST(SchemaRegistration, EachFileImportsTheMarkupOptionsAndItsListedSchemas) {
    for (const auto& entry : SchemaFiles()) {
        const FileDescriptor* file = FindFile(entry.first);
        ASSERT_NE(file, nullptr) << entry.first;
        std::vector<std::string> imports;
        for (int i = 0; i < file->dependency_count(); ++i) {
            imports.push_back(file->dependency(i)->name());
        }
        std::vector<std::string> expected = entry.second;
        expected.push_back(kMarkupFile);
        EXPECT_EQ(Sorted(imports), Sorted(expected)) << entry.first;
        EXPECT_EQ(file->public_dependency_count(), 0) << entry.first;
    }
}

TEST(SchemaRegistration, EveryFileIsProto2InPackageVellmarkPB) {
    for (const auto& entry : SchemaFiles()) {
        const FileDescriptor* file = FindFile(entry.first);
        ASSERT_NE(file, nullptr) << entry.first;
        EXPECT_EQ(file->syntax(), FileDescriptor::SYNTAX_PROTO2) << entry.first;
        EXPECT_EQ(file->package(), "VellmarkPB") << entry.first;
    }
}

TEST(SchemaRegistration, EachFileDefinesItsListedMessagesAndEnums) {
    const std::map<std::string, std::vector<std::string>> defines = {
        {"VellmarkAcctOpEnvelope.proto", {"VellmarkAcctOpEnvelope"}},
        {"VellmarkDeleteGVA.proto", {"VellmarkDeleteGVA"}},
        {"VellmarkDeleteSrvcAccount.proto", {"VellmarkDeleteSrvcAccount"}},
        {"VellmarkGroups.proto",
         {"VellmarkGroups", "VellmarkGroupSettings", "VellmarkGroupMember",
          "VellmarkGroupAttributes", "VellmarkGroup", "Void"}},
        {"VellmarkPersons.proto", {"persons", "Person"}},
        {"VellmarkPreset.proto",
         {"Actions", "metaData", "Value", "payLoad", "contentItem", "Presets"}},
        {"VellmarkPresets.proto", {"VellmarkPresets"}},
        {"VellmarkProductSettings.proto", {"ProductSettings", "enum TimeFormat"}},
        {"VellmarkServiceAccounts.proto", {"Tokens", "Attributes", "serviceAccounts"}},
        {"VellmarkSource.proto", {"VellmarkSource"}},
        {"VellmarkSources.proto", {"sources"}},
        {"VellmarkSourceSettings.proto", {"sourceSetting", "sourceSettings"}},
        {"VellmarkSystemAssoicated.proto", {"AccountAssociated", "enum AssociateStatus"}},
        {"LocalProducts.proto", {"LocalProducts", "LocalProduct"}},
    };
    ASSERT_EQ(defines.size(), SchemaFiles().size());
    for (const auto& entry : defines) {
        const FileDescriptor* file = FindFile(entry.first);
        ASSERT_NE(file, nullptr) << entry.first;
        std::vector<std::string> names;
        for (int i = 0; i < file->message_type_count(); ++i) {
            names.push_back(file->message_type(i)->name());
        }
        for (int i = 0; i < file->enum_type_count(); ++i) {
            names.push_back("enum " + file->enum_type(i)->name());
        }
        EXPECT_EQ(Sorted(names), Sorted(entry.second)) << entry.first;
        EXPECT_EQ(file->extension_count(), 0) << entry.first;
        EXPECT_EQ(file->service_count(), 0) << entry.first;
    }
}

TEST(SchemaRegistration, MarkupObjectIsOnEveryMessageButTheUnmarkedOnes) {
    const std::set<std::string> unmarked = {
        "VellmarkPB.VellmarkSource",
        "VellmarkPB.sourceSetting",
        "VellmarkPB.sourceSetting.KeyName",
        "VellmarkPB.sourceSetting.Value",
        "VellmarkPB.Void",
        "VellmarkPB.persons",
    };
    const std::vector<const Descriptor*> messages = AllSchemaMessages();
    ASSERT_GT(messages.size(), unmarked.size());
    std::set<std::string> seenUnmarked;
    for (const Descriptor* message : messages) {
        const auto& options = message->options();
        if (unmarked.count(message->full_name()) != 0) {
            seenUnmarked.insert(message->full_name());
            EXPECT_FALSE(options.HasExtension(ProtoToMarkup::markup_object))
                << message->full_name();
        } else {
            EXPECT_TRUE(options.HasExtension(ProtoToMarkup::markup_object)) << message->full_name();
            EXPECT_EQ(options.GetExtension(ProtoToMarkup::markup_object), 1)
                << message->full_name();
        }
    }
    EXPECT_EQ(seenUnmarked, unmarked);
}

TEST(SchemaRegistration, MarkupListIsOnlyOnThePersonAndPresetLists) {
    const std::set<std::string> listed = {"VellmarkPB.persons.person",
                                          "VellmarkPB.VellmarkPresets.presets"};
    std::set<std::string> seen;
    for (const FieldDescriptor* field : AllSchemaFields()) {
        const auto& options = field->options();
        if (listed.count(field->full_name()) != 0) {
            seen.insert(field->full_name());
            EXPECT_TRUE(field->is_repeated()) << field->full_name();
            EXPECT_TRUE(options.HasExtension(ProtoToMarkup::markup_list)) << field->full_name();
            EXPECT_EQ(options.GetExtension(ProtoToMarkup::markup_list), 1) << field->full_name();
        } else {
            EXPECT_FALSE(options.HasExtension(ProtoToMarkup::markup_list)) << field->full_name();
        }
    }
    EXPECT_EQ(seen, listed);
}

TEST(SchemaRegistration, ProviderIdOfASourceIsTheOnlyRequiredField) {
    std::vector<std::string> required;
    for (const FieldDescriptor* field : AllSchemaFields()) {
        if (field->is_required()) {
            required.push_back(field->full_name());
        }
    }
    EXPECT_EQ(required,
              std::vector<std::string>{"VellmarkPB.VellmarkSource.source.sourceproviderid"});
}

TEST(SchemaRegistration, CollectDataIsTheOnlyFieldWithAnExplicitDefault) {
    std::vector<std::string> withDefault;
    for (const FieldDescriptor* field : AllSchemaFields()) {
        if (field->has_default_value()) {
            withDefault.push_back(field->full_name());
        }
    }
    ASSERT_EQ(withDefault, std::vector<std::string>{"VellmarkPB.Attributes.collectData"});
    EXPECT_EQ(VellmarkPB::Attributes::descriptor()
                  ->FindFieldByName("collectData")
                  ->default_value_string(),
              "no");
}

TEST(SchemaRegistration, GeneratedClassesBelongToTheirFiles) {
    const std::map<const Descriptor*, std::string> owners = {
        {VellmarkPB::VellmarkAcctOpEnvelope::descriptor(), "VellmarkAcctOpEnvelope.proto"},
        {VellmarkPB::VellmarkDeleteGVA::descriptor(), "VellmarkDeleteGVA.proto"},
        {VellmarkPB::VellmarkDeleteSrvcAccount::descriptor(), "VellmarkDeleteSrvcAccount.proto"},
        {VellmarkPB::VellmarkGroups::descriptor(), "VellmarkGroups.proto"},
        {VellmarkPB::persons::descriptor(), "VellmarkPersons.proto"},
        {VellmarkPB::Presets::descriptor(), "VellmarkPreset.proto"},
        {VellmarkPB::VellmarkPresets::descriptor(), "VellmarkPresets.proto"},
        {VellmarkPB::ProductSettings::descriptor(), "VellmarkProductSettings.proto"},
        {VellmarkPB::serviceAccounts::descriptor(), "VellmarkServiceAccounts.proto"},
        {VellmarkPB::VellmarkSource_source::descriptor(), "VellmarkSource.proto"},
        {VellmarkPB::sources::descriptor(), "VellmarkSources.proto"},
        {VellmarkPB::sourceSettings::descriptor(), "VellmarkSourceSettings.proto"},
        {VellmarkPB::AccountAssociated::descriptor(), "VellmarkSystemAssoicated.proto"},
        {VellmarkPB::LocalProducts::descriptor(), "LocalProducts.proto"},
        {VellmarkPB::Error::descriptor(), "Errors.proto"},
        {VellmarkPB::CloudSyncReceived::descriptor(), "VellmarkMessageId.proto"},
    };
    for (const auto& entry : owners) {
        EXPECT_EQ(entry.first->file()->name(), entry.second) << entry.first->full_name();
        EXPECT_EQ(entry.first->file(), FindFile(entry.second)) << entry.first->full_name();
    }
}

}  // namespace
