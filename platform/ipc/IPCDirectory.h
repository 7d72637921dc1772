#pragma once
// IPCDirectory: where the services of the product are found, by name.
//
// Every service listens on a Unix socket named after it, "<name>.sock", in one runtime
// folder: the value of the environment variable TARV_RUNTIME_DIR, or /run/tarv when it is
// unset or empty. A program (or a test) may choose another folder with SetRuntimeFolder.
//
// Whoever can write to the runtime folder can put a socket of their own in a service's
// place, so a client talks only to a server that runs as root or as the folder's owner
// (checked on every connection with SO_PEERCRED); SetTrustedServerUsers names others.
//
// Endpoint handles are shared and immutable, so any thread may use them; the directory's
// operations may be called from any thread.
#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/TarvExport.h"

class TARV_EXPORT IPCEndpoint {
public:
    IPCEndpoint(std::string name, std::string path)
        : m_name(std::move(name)), m_path(std::move(path)) {}
    // The service's name, as looked up.
    std::string const& Name() const { return m_name; }
    // The path of the service's socket.
    std::string const& Path() const { return m_path; }

private:
    std::string m_name;
    std::string m_path;
};

class TARV_EXPORT IPCDirectory {
public:
    static constexpr char const* kRuntimeFolderVariable = "TARV_RUNTIME_DIR";
    static constexpr char const* kDefaultRuntimeFolder = "/run/tarv";

    // The process's directory.
    static IPCDirectory& Get();

    // The endpoint of the service called `name`, in the current runtime folder. Every name
    // has one; whether a service answers there is found out by connecting.
    std::shared_ptr<IPCEndpoint const> Lookup(std::string const& name) const;

    std::string RuntimeFolder() const;
    // Uses `folder` from now on for later lookups; an empty one goes back to the
    // environment's choice.
    void SetRuntimeFolder(std::string folder);

    // The users a client accepts as the server of an endpoint: root and the owner of the
    // runtime folder (root alone while the folder does not exist), or those set below.
    std::vector<uid_t> TrustedServerUsers() const;
    // Accepts exactly `users` from now on; an empty list goes back to the default.
    void SetTrustedServerUsers(std::vector<uid_t> users);

private:
    IPCDirectory() = default;

    mutable std::mutex m_mutex;
    std::string m_folder;
    std::vector<uid_t> m_trustedServers;
};
