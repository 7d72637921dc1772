#pragma once
// The runtime folder's policy on the server's side, beside what IPCDirectory checks of the
// same folder on the client's: a folder that every user may write to is refused (any of
// them could put a socket in the service's place); a missing one is made with the mode
// asked; in the way of a new socket file, a symbolic link or the socket of a process that
// died is removed, a live server's socket or a file of another kind is not. The socket file
// itself allows its owner and group only (0660).
//
// Any thread; each call works on the file system as it finds it.
#include <sys/types.h>

#include <optional>
#include <string>
#include <system_error>

namespace Tarv {

// An error naming `path` after `what`.
std::system_error PathError(int error, std::string const& what, std::string const& path);

// Makes or checks the folder of `path` (made with `folderMode`, exactly) and clears the way
// for a new socket file there. Throws std::system_error naming the path and what to do.
void PrepareSocketPath(std::string const& path, mode_t folderMode);

// Lets only the owner and group of the socket file at `path` open it, and gives it to
// `group` when one is named, so that its members may (said in a log line of `server` when
// that cannot be done). Throws std::system_error, with the file removed, when the mode
// cannot be set.
void RestrictSocketFile(std::string const& server, std::string const& path,
                        std::optional<gid_t> group);

}  // namespace Tarv
