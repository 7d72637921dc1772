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
// ids, describe: the message identifiers and types of the schema; no service needed.
void AddInfoCommands(CLI::App& app, Settings& settings, Run& run);
// call: any request of the product's endpoint, from a JSON document.
void AddCallCommand(CLI::App& app, Settings& settings, Run& run);

// What bash completion offers after `words` (the words before the cursor, the command's
// name left out): subcommands, options, and the values an argument takes (resource names,
// message identifiers), one a line, for the completion script to filter. Where the
// argument is a path, the first line is kCompleteFiles or kCompleteFolders: the script
// offers the file system's names (the other lines, if any, besides).
std::vector<std::string> Completions(CLI::App& app, std::vector<std::string> const& words);
inline constexpr char kCompleteFiles[] = ":files";
inline constexpr char kCompleteFolders[] = ":folders";

// The type names of arguments whose values completion offers: message identifiers (their
// names), files and folders (the file system's), message types and resources (describe).
inline constexpr char kMessageIdType[] = "MESSAGE_ID";
inline constexpr char kFileType[] = "FILE";
inline constexpr char kFolderType[] = "FOLDER";
inline constexpr char kDescribedType[] = "TYPE|ID|RESOURCE";

// monitor (added by AddAdminCommands): the traffic as text, JSON Lines or a capture.
void AddMonitorCommand(CLI::App& app, Settings& settings, Run& run);

// Gives `command` the --show-secrets flag (commands that print the service's data).
inline void AddShowSecrets(CLI::App& command, Settings& settings) {
    command.add_flag("--show-secrets", settings.showSecrets,
                     "print tokens, identifiers and user names in clear (masked by default)");
}

}  // namespace Vellmark::Ctl
