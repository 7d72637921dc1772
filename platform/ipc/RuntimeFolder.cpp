#include "platform/ipc/RuntimeFolder.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/ipc/IPCLog.h"

namespace Tarv {

namespace {

// True when a server answers at `path`.
bool Answers(std::string const& path) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    bool const answers =
        ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    ::close(fd);
    return answers;
}

// Makes `folder` and its missing parents with `mode`, exactly (the umask aside).
void MakeFolders(std::filesystem::path const& folder, mode_t mode) {
    std::filesystem::path made;
    for (auto const& part : folder) {
        made /= part;
        if (::mkdir(made.c_str(), mode) == 0) {
            ::chmod(made.c_str(), mode);
        } else if (errno != EEXIST) {
            throw PathError(errno, "cannot make the runtime folder", made);
        }
    }
}

// A runtime folder that every user may write to lets any of them take the service's place
// (or squat its socket name): refused, with what to do instead.
void CheckFolder(std::filesystem::path const& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        throw PathError(errno, "cannot use the runtime folder", folder);
    }
    if (!S_ISDIR(status.st_mode)) throw PathError(ENOTDIR, "not a folder:", folder);
    if (status.st_mode & S_IWOTH) {
        throw PathError(EPERM,
                        "refusing a runtime folder that every user may write to (any of them "
                        "could put a socket in the service's place); use a private folder "
                        "(TARV_RUNTIME_DIR, --runtime-dir) or remove that permission "
                        "(chmod o-w):",
                        folder);
    }
}

}  // namespace

std::system_error PathError(int error, std::string const& what, std::string const& path) {
    return std::system_error(error, std::generic_category(), what + " " + path);
}

void PrepareSocketPath(std::string const& path, mode_t folderMode) {
    std::filesystem::path const folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0 && errno == ENOENT) {
            MakeFolders(folder, folderMode);
            IPCLog().Log(DPrint::Info, "made the runtime folder %s (mode %o)", folder.c_str(),
                         static_cast<unsigned>(folderMode));
        }
        CheckFolder(folder);
    }
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return;
    if (S_ISLNK(status.st_mode)) {
        // Never ours to keep: a link would make the socket land wherever it points.
        IPCLog().Log(DPrint::Info, "removing the symbolic link at %s", path.c_str());
    } else if (!S_ISSOCK(status.st_mode)) {
        throw PathError(EEXIST, "a file that is not a socket is in the way, left alone:", path);
    } else if (Answers(path)) {
        throw PathError(EADDRINUSE, "another server answers at", path);
    }
    ::unlink(path.c_str());
}

void RestrictSocketFile(std::string const& server, std::string const& path,
                        std::optional<gid_t> group) {
    if (::chmod(path.c_str(), 0660) != 0) {
        int const chmodError = errno;
        ::unlink(path.c_str());
        throw PathError(chmodError, "cannot restrict the socket", path);
    }
    if (group && ::chown(path.c_str(), static_cast<uid_t>(-1), *group) != 0) {
        IPCLog().Log(DPrint::Warning,
                     "server %s: cannot give the socket to group %u (%s); members of the "
                     "allowed groups outside the service's own group cannot open it",
                     server.c_str(), static_cast<unsigned>(*group), std::strerror(errno));
    }
}

}  // namespace Tarv
