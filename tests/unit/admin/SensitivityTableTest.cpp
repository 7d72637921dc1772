// The sensitivity table against the schemas themselves: every text field of every message
// is classified, every wrapper is held by a classified field, and every entry names a field.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/Sensitivity.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using Vellmark::Admin::Sensitivity;
using Vellmark::Admin::SensitivityOf;

// The schemas of the build, as the build lists them (VELLMARK_CLASSIFIED_SCHEMAS).
std::vector<std::string> SchemaFiles() {
    std::vector<std::string> files;
    std::istringstream list(VELLMARK_CLASSIFIED_SCHEMAS);
    for (std::string name; std::getline(list, name, ',');) files.push_back(name);
    return files;
}

// Every message of `file`, nested ones included.
void ForEachMessage(Descriptor const* message, std::function<void(Descriptor const*)> const& f) {
    f(message);
    for (int i = 0; i < message->nested_type_count(); ++i) {
        ForEachMessage(message->nested_type(i), f);
    }
}

void ForEachField(std::function<void(FieldDescriptor const*)> const& f) {
    // Referenced so that the admin schema is linked in and registered.
    Vellmark::Admin::StoreDocument::descriptor();
    for (auto const& name : SchemaFiles()) {
        auto const* file = DescriptorPool::generated_pool()->FindFileByName(name);
        ASSERT_NE(file, nullptr) << name << " is not in the generated pool";
        for (int i = 0; i < file->message_type_count(); ++i) {
            ForEachMessage(file->message_type(i), [&](Descriptor const* message) {
                for (int j = 0; j < message->field_count(); ++j) f(message->field(j));
            });
        }
    }
}

bool IsText(FieldDescriptor const* field) {
    return field->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
}

bool HoldsWrappedText(Descriptor const* message) {
    for (int i = 0; i < message->field_count(); ++i) {
        if (SensitivityOf(message->field(i)) == Sensitivity::Wrapped) return true;
    }
    return false;
}

TEST(SensitivityTable, TheBuildListsTheSchemas) {
    auto const files = SchemaFiles();
    auto const has = [&](std::string const& name) {
        return std::find(files.begin(), files.end(), name) != files.end();
    };
    EXPECT_TRUE(has("VellmarkServiceAccounts.proto"));
    EXPECT_TRUE(has("VellmarkSystemAssoicated.proto"));
    EXPECT_TRUE(has("Errors.proto"));
    EXPECT_TRUE(has("VellmarkAdmin.proto"));
    EXPECT_GE(files.size(), 17u);
}

TEST(SensitivityTable, ClassifiesEveryTextFieldOfEverySchema) {
    int texts = 0;
    ForEachField([&](FieldDescriptor const* field) {
        if (!IsText(field)) return;
        ++texts;
        EXPECT_TRUE(SensitivityOf(field).has_value())
            << field->full_name() << " (" << field->file()->name()
            << ") is not in the sensitivity table: classify it in SensitivityTable.cpp";
    });
    EXPECT_GT(texts, 100);
}

TEST(SensitivityTable, EveryWrapperIsHeldByAClassifiedField) {
    ForEachField([&](FieldDescriptor const* field) {
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) return;
        if (!HoldsWrappedText(field->message_type())) return;
        auto const holder = SensitivityOf(field);
        EXPECT_TRUE(holder && *holder != Sensitivity::Wrapped)
            << field->full_name() << " holds a wrapper and needs a class of its own";
    });
}

TEST(SensitivityTable, EveryEntryNamesAFieldItCanClassify) {
    for (auto const& [name, sensitivity] : Vellmark::Admin::SensitivityTable()) {
        auto const* field = DescriptorPool::generated_pool()->FindFieldByName(name);
        ASSERT_NE(field, nullptr) << name << " names no field";
        if (IsText(field)) continue;
        // A message field is classified only to tell what its wrapper holds.
        EXPECT_EQ(field->cpp_type(), FieldDescriptor::CPPTYPE_MESSAGE) << name;
        EXPECT_TRUE(HoldsWrappedText(field->message_type())) << name << " holds no wrapper";
        EXPECT_NE(sensitivity, Sensitivity::Wrapped) << name;
    }
}

TEST(SensitivityTable, TheKnownSecretsAreMasked) {
    auto const classOf = [](std::string const& name) {
        auto const* field = DescriptorPool::generated_pool()->FindFieldByName(name);
        EXPECT_NE(field, nullptr) << name;
        return field ? SensitivityOf(field) : std::nullopt;
    };
    EXPECT_EQ(classOf("VellmarkPB.Tokens.refresh_token"), Sensitivity::Token);
    EXPECT_EQ(classOf("VellmarkPB.Tokens.access_token"), Sensitivity::Token);
    EXPECT_EQ(classOf("VellmarkPB.VellmarkSource.source.Credential.text"), Sensitivity::Token);
    EXPECT_EQ(classOf("VellmarkPB.VellmarkSource.source.username"), Sensitivity::UserName);
    EXPECT_EQ(classOf("VellmarkPB.Attributes.email"), Sensitivity::UserName);
    EXPECT_EQ(classOf("VellmarkPB.serviceAccounts.tarvPersonID"), Sensitivity::PersonId);
    EXPECT_EQ(classOf("VellmarkPB.serviceAccounts.accountID"), Sensitivity::AccountId);
    EXPECT_EQ(classOf("VellmarkPB.VellmarkSource.source.name"), Sensitivity::FreeText);
}

}  // namespace
