#include "console/AccessPolicy.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Vellmark::Console {

namespace {

bool ChangesState(std::string const& method) {
    return method != "GET" && method != "HEAD" && method != "OPTIONS";
}

// The value of cookie `name` in a Cookie header ("a=1; b=2"), or "".
std::string CookieValue(std::string const& header, std::string const& name) {
    std::size_t at = 0;
    while (at < header.size()) {
        std::size_t const end = std::min(header.find(';', at), header.size());
        std::size_t start = header.find_first_not_of(' ', at);
        if (start < end) {
            std::size_t const equals = header.find('=', start);
            if (equals < end && header.compare(start, equals - start, name) == 0) {
                return header.substr(equals + 1, end - equals - 1);
            }
        }
        at = end + 1;
    }
    return {};
}

}  // namespace

bool SameSecret(std::string const& a, std::string const& b) {
    if (a.size() != b.size()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return difference == 0;
}

std::string NewToken() {
    unsigned char bytes[32];
    std::size_t got = 0;
    while (got < sizeof bytes) {
        ssize_t const n = ::getrandom(bytes + got, sizeof bytes - got, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw std::runtime_error(std::string("no random bytes for the token: ") +
                                     std::strerror(errno));
        }
        got += static_cast<std::size_t>(n);
    }
    static char const digits[] = "0123456789abcdef";
    std::string token;
    for (unsigned char const byte : bytes) {
        token += digits[byte >> 4];
        token += digits[byte & 0xF];
    }
    return token;
}

AccessPolicy::AccessPolicy(std::string token, std::uint16_t port)
    : m_token(std::move(token)), m_port(port) {}

std::string AccessPolicy::CookieName() const {
    return "vellmark-console-" + std::to_string(m_port);
}

std::string AccessPolicy::CookieHeader() const {
    return CookieName() + "=" + m_token + "; Path=/; HttpOnly; SameSite=Strict";
}

std::string AccessPolicy::Url() const {
    return "http://127.0.0.1:" + std::to_string(m_port) + "/?token=" + m_token;
}

bool AccessPolicy::IsLoopbackHost(std::string const& host) {
    for (std::string const name : {"127.0.0.1", "localhost", "[::1]"}) {
        if (host.compare(0, name.size(), name) != 0) continue;
        std::string const rest = host.substr(name.size());
        if (rest.empty()) return true;
        // A port of one to five digits: ssh -L may forward any local port to ours.
        return rest[0] == ':' && rest.size() >= 2 && rest.size() <= 6 &&
               rest.find_first_not_of("0123456789", 1) == std::string::npos;
    }
    return false;
}

bool AccessPolicy::IsOwnOrigin(std::string const& origin, std::string const& host) {
    return origin == "http://" + host;
}

bool AccessPolicy::CarriesToken(AccessRequest const& request) const {
    if (!request.tokenParam.empty()) return SameSecret(request.tokenParam, m_token);
    std::string const bearer = "Bearer ";
    if (request.authorization.compare(0, bearer.size(), bearer) == 0) {
        return SameSecret(request.authorization.substr(bearer.size()), m_token);
    }
    return SameSecret(CookieValue(request.cookie, CookieName()), m_token);
}

AccessDecision AccessPolicy::Decide(AccessRequest const& request) const {
    using Verdict = AccessDecision::Verdict;
    // First the name the request was sent to: a page that reached us through a name of
    // its own learns nothing, not even whether a token would do.
    if (!IsLoopbackHost(request.host)) {
        return {Verdict::Refuse, "Host \"" + request.host +
                                     "\" is not a loopback address; open the URL the console "
                                     "printed"};
    }
    if (ChangesState(request.method)) {
        if (!request.origin.empty() && !IsOwnOrigin(request.origin, request.host)) {
            return {Verdict::Refuse,
                    "a change asked for by a page of " + request.origin + " is refused"};
        }
        if (request.fetchSite == "cross-site" || request.fetchSite == "same-site") {
            return {Verdict::Refuse, "a change asked for by another site's page is refused"};
        }
    }
    if (!CarriesToken(request)) {
        return {Verdict::Refuse,
                "this console needs the token of the URL it printed when it started"};
    }
    // The token in a URL: the browser gets the cookie, and the address bar loses the token.
    if (request.tokenParam.empty()) return {Verdict::Allow, {}};
    if (request.method == "GET" && request.path == "/") return {Verdict::RedirectWithCookie, {}};
    return {Verdict::AllowAndSetCookie, {}};
}

}  // namespace Vellmark::Console
