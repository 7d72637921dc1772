#include "platform/ipc/IPCDirectory.h"

#include <sys/stat.h>

#include <cstdlib>

IPCDirectory& IPCDirectory::Get() {
    static IPCDirectory directory;
    return directory;
}

std::shared_ptr<IPCEndpoint const> IPCDirectory::Lookup(std::string const& name) const {
    return std::make_shared<IPCEndpoint const>(name, RuntimeFolder() + "/" + name + ".sock");
}

std::string IPCDirectory::RuntimeFolder() const {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_folder.empty()) return m_folder;
    }
    char const* fromEnvironment = std::getenv(kRuntimeFolderVariable);
    return fromEnvironment && *fromEnvironment ? fromEnvironment : kDefaultRuntimeFolder;
}

void IPCDirectory::SetRuntimeFolder(std::string folder) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_folder = std::move(folder);
}

std::vector<uid_t> IPCDirectory::TrustedServerUsers() const {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_trustedServers.empty()) return m_trustedServers;
    }
    std::vector<uid_t> users{0};
    struct stat folder {};
    if (::stat(RuntimeFolder().c_str(), &folder) == 0 && folder.st_uid != 0) {
        users.push_back(folder.st_uid);
    }
    return users;
}

void IPCDirectory::SetTrustedServerUsers(std::vector<uid_t> users) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_trustedServers = std::move(users);
}
