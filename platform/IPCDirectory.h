#pragma once
// IPCDirectory: where the services of the product are found, by name.
//
// Lookup gives an endpoint handle that a client listener connects to. Handles are shared
// and immutable, so any thread may use them.
#include <memory>
#include <string>

class IPCEndpoint {
public:
    explicit IPCEndpoint(std::string name) : m_name(std::move(name)) {}
    // The service's name, as looked up.
    std::string const& Name() const { return m_name; }

private:
    std::string m_name;
};

class IPCDirectory {
public:
    // The process's directory.
    static IPCDirectory& Get();

    // The endpoint of the service called `name`. Every name has one; whether a service
    // answers there is found out by connecting.
    std::shared_ptr<IPCEndpoint const> Lookup(std::string const& name) const;

private:
    IPCDirectory() = default;
};
