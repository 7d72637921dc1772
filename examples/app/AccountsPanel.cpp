#include "AccountsPanel.h"

void AccountsPanel::CountSources(std::function<void(int)> done) {
    m_client.GetSources([done](VellmarkPB::sources const& list) { done(list.source_size()); });
}

void AccountsPanel::AddAccount(std::string const& accountID, std::string const& provider,
                               std::function<void(std::string const&)> done) {
    VellmarkPB::serviceAccounts account;
    account.set_accountid(accountID);
    account.set_provider(provider);
    account.set_accounttype("CONTENT");
    m_client.CreateServiceAccount(
        account,
        [done](VellmarkPB::serviceAccounts const& added) { done("added " + added.accountid()); },
        [done, accountID](VellmarkPB::Error const& error) {
            done("could not add " + accountID + ": " + error.message() + " (code " +
                 std::to_string(error.code()) + ")");
        });
}
