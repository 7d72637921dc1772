#pragma once
// The help of vellmarkctl: CLI11's, except that --help-all shows every command at every
// level in full, one block each, in a layout help2man turns into the manual page (a
// heading line "admin put RESOURCE FILE:", then its description, each argument and its
// options, indented, paragraphs apart).
#include <CLI/CLI.hpp>

#include <cctype>
#include <string>

namespace Vellmark::Ctl {

class HelpFormatter : public CLI::Formatter {
public:
    std::string make_expanded(CLI::App const* sub) const override {
        std::string heading = FullName(sub);
        std::string arguments;
        for (CLI::Option const* positional : sub->get_options()) {
            if (!positional->get_positional()) continue;
            std::string const name = Upper(positional->get_name());
            heading += positional->get_required() ? " " + name : " [" + name + "]";
            std::string opts = make_option_opts(positional);
            while (!opts.empty() && opts.front() == ' ') opts.erase(0, 1);
            arguments += "  " + name + ": " + positional->get_description() +
                         (opts.empty() ? "" : " (" + opts + ")") + "\n\n";
        }
        std::string options;
        for (CLI::Option const* option : sub->get_options()) {
            if (option->get_positional() || option == sub->get_help_ptr()) continue;
            options += make_option(option, false);
        }
        // Paragraphs apart, as help2man reads them.
        std::string text = heading + ":\n  " + sub->get_description() + "\n\n" + arguments +
                           options + (options.empty() ? "" : "\n");
        for (CLI::App const* child : sub->get_subcommands({})) text += make_expanded(child);
        return text;
    }

    std::string make_subcommands(CLI::App const* app, CLI::AppFormatMode mode) const override {
        if (mode != CLI::AppFormatMode::All) return CLI::Formatter::make_subcommands(app, mode);
        std::string text = "\nCommands:\n  each with its arguments and options\n\n";
        for (CLI::App const* sub : app->get_subcommands({})) text += make_expanded(sub);
        return text;
    }

private:
    // "admin put": the names from the first command down.
    static std::string FullName(CLI::App const* sub) {
        std::string name = sub->get_name();
        for (CLI::App const* at = sub->get_parent(); at && at->get_parent();
             at = at->get_parent()) {
            name = at->get_name() + " " + name;
        }
        return name;
    }
    static std::string Upper(std::string text) {
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    }
};

}  // namespace Vellmark::Ctl
