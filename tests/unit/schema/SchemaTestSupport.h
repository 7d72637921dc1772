// Helpers shared by the wire-schema tests: descriptor checks and round-trips.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vellmark::SchemaTest {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

constexpr auto kOptional = FieldDescriptor::LABEL_OPTIONAL;
constexpr auto kRequired = FieldDescriptor::LABEL_REQUIRED;
constexpr auto kRepeated = FieldDescriptor::LABEL_REPEATED;

constexpr auto kString = FieldDescriptor::TYPE_STRING;
constexpr auto kBool = FieldDescriptor::TYPE_BOOL;
constexpr auto kInt32 = FieldDescriptor::TYPE_INT32;
constexpr auto kEnum = FieldDescriptor::TYPE_ENUM;
constexpr auto kMessage = FieldDescriptor::TYPE_MESSAGE;

// One expected field, in declaration order. `typeName` is the full name of the message or
// enum type, empty for scalars.
struct ExpectedField {
    int number;
    std::string name;
    FieldDescriptor::Label label;
    FieldDescriptor::Type type;
    std::string typeName;
};

// Checks that `descriptor` declares exactly `expected`, in that order.
inline void ExpectFields(const Descriptor* descriptor, const std::vector<ExpectedField>& expected) {
    ASSERT_NE(descriptor, nullptr);
    ASSERT_EQ(descriptor->field_count(), static_cast<int>(expected.size()))
        << descriptor->full_name();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        const ExpectedField& want = expected[i];
        const std::string where = descriptor->full_name() + " field " + std::to_string(i);
        EXPECT_EQ(field->number(), want.number) << where;
        EXPECT_EQ(field->name(), want.name) << where;
        EXPECT_EQ(field->label(), want.label) << where << " (" << field->name() << ")";
        EXPECT_EQ(field->type(), want.type) << where << " (" << field->name() << ")";
        std::string typeName;
        if (field->message_type() != nullptr) {
            typeName = field->message_type()->full_name();
        } else if (field->enum_type() != nullptr) {
            typeName = field->enum_type()->full_name();
        }
        EXPECT_EQ(typeName, want.typeName) << where << " (" << field->name() << ")";
    }
}

// Fails unless every singular field of `message`, at every depth, is present and every
// repeated field holds at least two elements, so that a round-trip exercises all of them.
inline void ExpectFullyPopulated(const google::protobuf::Message& message,
                                 const std::string& path = "") {
    const Descriptor* descriptor = message.GetDescriptor();
    const google::protobuf::Reflection* reflection = message.GetReflection();
    const std::string prefix = path.empty() ? descriptor->name() : path;
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        const std::string where = prefix + "." + field->name();
        const bool isMessage = field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE;
        if (field->is_repeated()) {
            const int size = reflection->FieldSize(message, field);
            EXPECT_GE(size, 2) << where << " needs several elements";
            for (int j = 0; isMessage && j < size; ++j) {
                ExpectFullyPopulated(reflection->GetRepeatedMessage(message, field, j),
                                     where + "[" + std::to_string(j) + "]");
            }
        } else {
            const bool present = reflection->HasField(message, field);
            EXPECT_TRUE(present) << where << " is not set";
            if (present && isMessage) {
                ExpectFullyPopulated(reflection->GetMessage(message, field), where);
            }
        }
    }
}

// Serializes `original` and parses the bytes into a fresh message of the same type.
template <class T>
T RoundTrip(const T& original) {
    std::string bytes;
    EXPECT_TRUE(original.SerializeToString(&bytes)) << original.GetTypeName();
    T parsed;
    EXPECT_TRUE(parsed.ParseFromString(bytes)) << original.GetTypeName();
    return parsed;
}

// Checks that a fully populated `original` comes back from a round-trip equal to itself,
// with nothing left over as unknown fields, and returns the parsed copy.
template <class T>
T ExpectSurvivesRoundTrip(const T& original) {
    ExpectFullyPopulated(original);
    T parsed = RoundTrip(original);
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(original, parsed))
        << "sent:\n"
        << original.DebugString() << "received:\n"
        << parsed.DebugString();
    EXPECT_TRUE(parsed.GetReflection()->GetUnknownFields(parsed).empty());
    return parsed;
}

}  // namespace Vellmark::SchemaTest
