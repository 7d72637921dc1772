#pragma once
// AccountsPanel: what the example shows of the product's accounts, on top of any
// VellmarkClientAPIIF: the real client in the program, a mock or the real client against a
// fake service in its tests. Its results arrive on the client's task (at once, on the
// calling thread, with a mock that calls back at once).
#include <functional>
#include <string>

#include <VellmarkClient/VellmarkClientAPIIF.h>

class AccountsPanel {
public:
    // `client` is not owned and must outlive the panel.
    explicit AccountsPanel(VellmarkClientAPIIF& client) : m_client(client) {}

    // Asks for the sources; `done` receives how many the service knows.
    void CountSources(std::function<void(int)> done);
    // Adds a service account; `done` receives the line to show the user: "added ID", or
    // "could not add ID: MESSAGE (code N)" when the service refuses.
    void AddAccount(std::string const& accountID, std::string const& provider,
                    std::function<void(std::string const&)> done);

private:
    VellmarkClientAPIIF& m_client;
};
