#include "console/StoreEdits.h"

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "VellmarkAdmin.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/Json.h"

namespace Vellmark::Console {

using Vellmark::Admin::IsMasked;
using Vellmark::Admin::Masked;
using Vellmark::Admin::Sensitivity;
using Vellmark::Admin::SensitivityOf;

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// The class of a text field inside a field classed `holder`, as Mask applies it: a
// wrapper's text takes its holder's class, and what the table does not name is a token.
Sensitivity ClassOf(FieldDescriptor const* field, std::optional<Sensitivity> holder) {
    auto const own = SensitivityOf(field);
    if (!own) return Sensitivity::Token;
    if (*own != Sensitivity::Wrapped) return *own;
    return holder && *holder != Sensitivity::Wrapped ? *holder : Sensitivity::Token;
}

// Clear values of `stored` by field and mask: what a mask met elsewhere may stand for.
using Clears = std::map<std::pair<std::string, std::string>, std::set<std::string>>;

void CollectClears(Message const& message, std::optional<Sensitivity> holder, Clears& clears) {
    auto const* reflection = message.GetReflection();
    std::vector<FieldDescriptor const*> fields;
    reflection->ListFields(message, &fields);
    for (auto const* field : fields) {
        int const count = field->is_repeated() ? reflection->FieldSize(message, field) : 1;
        for (int i = 0; i < count; ++i) {
            if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
                CollectClears(field->is_repeated()
                                  ? reflection->GetRepeatedMessage(message, field, i)
                                  : reflection->GetMessage(message, field),
                              SensitivityOf(field), clears);
            } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
                Sensitivity const sensitivity = ClassOf(field, holder);
                if (!IsMasked(sensitivity)) continue;
                std::string const value = field->is_repeated()
                                              ? reflection->GetRepeatedString(message, field, i)
                                              : reflection->GetString(message, field);
                clears[{field->full_name(), Masked(sensitivity, value)}].insert(value);
            }
        }
    }
}

class Restorer {
public:
    explicit Restorer(Message const& stored) { CollectClears(stored, std::nullopt, m_clears); }

    // Restores `edited`, whose counterpart in the stored document is `stored` (null: none).
    std::string Restore(Message& edited, Message const* stored, std::optional<Sensitivity> holder,
                        std::string const& path) {
        auto const* reflection = edited.GetReflection();
        std::vector<FieldDescriptor const*> fields;
        reflection->ListFields(edited, &fields);
        for (auto const* field : fields) {
            bool const repeated = field->is_repeated();
            int const count = repeated ? reflection->FieldSize(edited, field) : 1;
            int const storedCount = !stored    ? 0
                                    : repeated ? reflection->FieldSize(*stored, field)
                                               : (reflection->HasField(*stored, field) ? 1 : 0);
            for (int i = 0; i < count; ++i) {
                std::string const where = (path.empty() ? "" : path + ".") + field->name() +
                                          (repeated ? "[" + std::to_string(i) + "]" : "");
                std::string problem;
                if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
                    Message& inner = repeated
                                         ? *reflection->MutableRepeatedMessage(&edited, field, i)
                                         : *reflection->MutableMessage(&edited, field);
                    Message const* counterpart =
                        i < storedCount
                            ? (repeated ? &reflection->GetRepeatedMessage(*stored, field, i)
                                        : &reflection->GetMessage(*stored, field))
                            : nullptr;
                    problem = Restore(inner, counterpart, SensitivityOf(field), where);
                } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
                    std::optional<std::string> counterpart;
                    if (i < storedCount) {
                        counterpart = repeated ? reflection->GetRepeatedString(*stored, field, i)
                                               : reflection->GetString(*stored, field);
                    }
                    std::string value = repeated ? reflection->GetRepeatedString(edited, field, i)
                                                 : reflection->GetString(edited, field);
                    problem = RestoreText(field, ClassOf(field, holder), counterpart, value, where);
                    if (problem.empty()) {
                        if (repeated) {
                            reflection->SetRepeatedString(&edited, field, i, value);
                        } else {
                            reflection->SetString(&edited, field, value);
                        }
                    }
                }
                if (!problem.empty()) return problem;
            }
        }
        return {};
    }

private:
    std::string RestoreText(FieldDescriptor const* field, Sensitivity sensitivity,
                            std::optional<std::string> const& counterpart, std::string& value,
                            std::string const& where) const {
        if (!IsMasked(sensitivity) || value.empty()) return {};
        if (counterpart && Masked(sensitivity, *counterpart) == value) {
            value = *counterpart;
            return {};
        }
        auto const found = m_clears.find({field->full_name(), value});
        if (found != m_clears.end() && found->second.size() == 1) {
            value = *found->second.begin();
            return {};
        }
        if (found != m_clears.end()) {
            return where + " holds the mask \"" + value +
                   "\", which stands for more than one stored value here; type the value in "
                   "clear";
        }
        if (LooksMasked(sensitivity, value)) {
            return where + " holds the mask \"" + value +
                   "\", which stands for no stored value; type the value in clear";
        }
        return {};
    }

    Clears m_clears;
};

}  // namespace

std::unique_ptr<google::protobuf::Message> NewResourceMessage(std::string const& resource) {
    if (resource == kServiceAccounts)
        return std::make_unique<Vellmark::Admin::ServiceAccountList>();
    auto const* info = Vellmark::Admin::FindResource(resource);
    if (!info) return nullptr;
    return std::unique_ptr<google::protobuf::Message>(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(info->type)->New());
}

std::string MaskedJson(google::protobuf::Message const& message) {
    std::unique_ptr<google::protobuf::Message> masked(message.New());
    masked->CopyFrom(message);
    Vellmark::Admin::Mask(*masked);
    std::string json = Vellmark::Json::Print(*masked, true);
    return json.empty() ? "{}" : json;
}

std::string RestoreMasked(google::protobuf::Message& edited,
                          google::protobuf::Message const& stored) {
    return Restorer(stored).Restore(edited, &stored, std::nullopt, "");
}

}  // namespace Vellmark::Console
