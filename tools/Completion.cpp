// What bash completion offers, read from the command line's own definition, so that the
// completion script keeps no list of its own.
#include <algorithm>
#include <set>

#include "VellmarkAdmin.pb.h"
#include "VellmarkMessageId.pb.h"
#include "admin/AdminProtocol.h"
#include "admin/MessageTable.h"
#include "tools/Commands.h"

namespace Vellmark::Ctl {
namespace {

bool TakesValue(CLI::Option const& option) {
    return option.get_type_size() > 0 || option.get_expected_min() > 0;
}

CLI::Option* OptionNamed(CLI::App& app, std::string const& word) {
    for (CLI::App* at = &app; at; at = at->get_parent()) {
        for (CLI::Option* option : at->get_options()) {
            if (!option->get_positional() && option->check_name(word)) return option;
        }
    }
    return nullptr;
}

CLI::App* SubcommandNamed(CLI::App& app, std::string const& word) {
    auto const found =
        app.get_subcommands([&word](CLI::App* sub) { return sub->check_name(word); });
    return found.empty() ? nullptr : found.front();
}

std::vector<std::string> MessageIdNames() {
    std::vector<std::string> names;
    auto const* ids = VellmarkPB::MessageId_descriptor();
    for (int i = 0; i < ids->value_count(); ++i) names.push_back(ids->value(i)->name());
    return names;
}

// What describe takes: identifiers, resources and the message types of both protocols.
std::vector<std::string> DescribedNames() {
    std::vector<std::string> names = MessageIdNames();
    std::set<std::string> types{Vellmark::Admin::StoreDocument::descriptor()->name(),
                                Vellmark::Admin::ServiceAccountList::descriptor()->name()};
    for (auto const& resource : Vellmark::Admin::Resources()) {
        names.push_back(resource.name);
        types.insert(resource.type->name());
    }
    for (auto const& row : Vellmark::Admin::MessageTable()) {
        if (row.request) types.insert(row.request->name());
        if (row.reply) types.insert(row.reply->name());
    }
    names.insert(names.end(), types.begin(), types.end());
    return names;
}

// The values `option` takes, when it names them: the members of its set, the MessageId
// names, what describe takes, or the directive to offer files or folders.
std::vector<std::string> ValuesOf(CLI::Option& option) {
    std::vector<std::string> values;
    std::string const type = option.get_type_name();
    if (type == kMessageIdType) return MessageIdNames();
    if (type == kDescribedType) return DescribedNames();
    if (type == kFileType) return {kCompleteFiles};
    if (type == kFolderType) return {kCompleteFolders};
    for (int i = 0;; ++i) {
        CLI::Validator* validator = nullptr;
        try {
            validator = option.get_validator(i);
        } catch (CLI::OptionNotFound const&) {
            break;
        }
        if (!validator) break;
        std::string const set = validator->get_description();
        if (set.size() < 2 || set.front() != '{' || set.back() != '}') continue;
        std::string value;
        for (char c : set.substr(1, set.size() - 2)) {
            if (c == ',') {
                values.push_back(value);
                value.clear();
            } else {
                value += c;
            }
        }
        if (!value.empty()) values.push_back(value);
    }
    return values;
}

}  // namespace

std::vector<std::string> Completions(CLI::App& app, std::vector<std::string> const& words) {
    CLI::App* at = &app;
    CLI::Option* pending = nullptr;  // an option whose value comes next
    std::size_t positionals = 0;
    for (auto const& word : words) {
        if (pending) {
            pending = nullptr;
            continue;
        }
        if (!word.empty() && word[0] == '-') {
            CLI::Option* option = OptionNamed(*at, word.substr(0, word.find('=')));
            if (option && TakesValue(*option) && word.find('=') == std::string::npos) {
                pending = option;
            }
            continue;
        }
        if (CLI::App* sub = SubcommandNamed(*at, word)) {
            at = sub;
            positionals = 0;
            continue;
        }
        ++positionals;
    }
    if (pending) return ValuesOf(*pending);

    std::vector<std::string> offered;
    std::vector<CLI::Option*> positional;
    for (CLI::Option* option : at->get_options()) {
        if (option->get_positional()) positional.push_back(option);
    }
    std::vector<std::string> values;
    if (positionals < positional.size()) values = ValuesOf(*positional[positionals]);
    // A path's directive leads: the script reads it from the first line.
    bool const path =
        values.size() == 1 && (values[0] == kCompleteFiles || values[0] == kCompleteFolders);
    if (path) offered.push_back(values[0]);
    for (CLI::App* sub : at->get_subcommands([](CLI::App*) { return true; })) {
        if (!sub->get_group().empty()) offered.push_back(sub->get_name());
    }
    if (!path) offered.insert(offered.end(), values.begin(), values.end());
    for (CLI::App* level = at; level; level = level->get_parent()) {
        for (CLI::Option* option : level->get_options()) {
            if (option->get_positional()) continue;
            for (auto const& name : option->get_lnames()) {
                // --help is both the command's and its parents'.
                if (std::find(offered.begin(), offered.end(), "--" + name) == offered.end()) {
                    offered.push_back("--" + name);
                }
            }
        }
    }
    return offered;
}

}  // namespace Vellmark::Ctl
