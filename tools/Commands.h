#pragma once
// The subcommands of vellmarkctl. Each Add function registers its commands on `app`; the
// command chosen on the command line sets `run` to what carries it out, which returns
// the exit code.
#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "tools/Command.h"

namespace Vellmark::Ctl {

using Run = std::function<int()>;

// get, subscribe, store-presets, account, gva: through libVellmarkClient.
void AddClientCommands(CLI::App& app, Settings& settings, Run& run);
// admin ..., monitor: through vellmarkd's admin endpoint.
void AddAdminCommands(CLI::App& app, Settings& settings, Run& run);
// ids: the message identifiers of the schema; no service needed.
void AddInfoCommands(CLI::App& app, Settings& settings, Run& run);

// What bash completion offers after `words` (the words before the cursor, the command's
// name left out): subcommands, options, and the values an argument takes (resource names,
// message identifiers), one a line, for the completion script to filter.
std::vector<std::string> Completions(CLI::App& app, std::vector<std::string> const& words);

// The type name of options that take a message identifier; completion offers the names.
inline constexpr char kMessageIdType[] = "MESSAGE_ID";

// monitor (added by AddAdminCommands): the traffic as text, JSON Lines or a capture.
void AddMonitorCommand(CLI::App& app, Settings& settings, Run& run);

// Gives `command` the --show-secrets flag (commands that print the service's data).
inline void AddShowSecrets(CLI::App& command, Settings& settings) {
    command.add_flag("--show-secrets", settings.showSecrets,
                     "print tokens, identifiers and user names in clear (masked by default)");
}

}  // namespace Vellmark::Ctl
