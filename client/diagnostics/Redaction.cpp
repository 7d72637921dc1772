// A masked copy of a service account: its identifiers and refresh tokens only, on purpose.
#include "client/VellmarkClientAPI.h"
#include "platform/log/Redact.h"

namespace {
char const kIdFill = '-';
unsigned int const kTokenBound = 350;
}  // namespace

VellmarkPB::serviceAccounts VellmarkClientAPI::RedactSensitiveFieldsSA(
    VellmarkPB::serviceAccounts const& account) {
    VellmarkPB::serviceAccounts copy = account;
    if (copy.has_tarvpersonid()) {
        copy.set_tarvpersonid(Redact::RedactID(copy.tarvpersonid(), kIdFill));
    }
    if (copy.has_accountid()) copy.set_accountid(Redact::RedactID(copy.accountid(), kIdFill));
    if (copy.has_provideraccountid()) {
        copy.set_provideraccountid(Redact::RedactID(copy.provideraccountid(), kIdFill));
    }
    if (!copy.has_tokens()) return copy;
    auto& tokens = *copy.mutable_tokens();
    if (tokens.has_refresh_token()) {
        tokens.set_refresh_token(Redact::RedactTokens(tokens.refresh_token(), kTokenBound));
    }
    if (tokens.has_refreshtoken()) {
        tokens.set_refreshtoken(Redact::RedactTokens(tokens.refreshtoken(), kTokenBound));
    }
    return copy;
}
