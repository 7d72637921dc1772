#pragma once
// AccessPolicy: who may use the console's HTTP server. It listens on a loopback address,
// where every local user can connect; what keeps them and web pages out:
// - the Host header must name a loopback address (127.0.0.1, localhost, [::1], with any
//   port, since ssh -L may forward another one), so that a page of another site whose name
//   was made to resolve to 127.0.0.1 (DNS rebinding) is refused;
// - every request carries the random token the console printed at start: in the query
//   (`?token=`, the printed URL), as `Authorization: Bearer`, or in the cookie that the
//   first visit sets (HttpOnly, SameSite=Strict, so no other site's page sends it);
// - a request that changes something and names an Origin must come from the page's own
//   origin (the Host it was sent to: a page of another port of this machine is another
//   origin), and one that a browser marks as cross-site is refused.
//
// Pure functions of their arguments and of the immutable policy: any thread may call them.
#include <cstdint>
#include <string>

namespace Vellmark::Console {

// What the policy looks at in a request (empty: the header is absent).
struct AccessRequest {
    std::string method;
    std::string path;
    std::string host;
    std::string origin;
    std::string cookie;         // the Cookie header, whole
    std::string tokenParam;     // the query's `token`
    std::string authorization;  // the Authorization header
    std::string fetchSite;      // Sec-Fetch-Site
};

struct AccessDecision {
    enum class Verdict {
        Allow,               // serve it
        AllowAndSetCookie,   // serve it, and give the browser the cookie
        RedirectWithCookie,  // the printed URL: set the cookie, go to "/" without the token
        Refuse,              // 403 with `reason`
    };
    Verdict verdict;
    std::string reason;
};

class AccessPolicy {
public:
    // `token`: the console's secret; `port`: the port it listens on.
    AccessPolicy(std::string token, std::uint16_t port);

    AccessDecision Decide(AccessRequest const& request) const;

    // The Set-Cookie value that carries the token (a session cookie: it ends with the
    // browser, and a new console has a new token anyway).
    std::string CookieHeader() const;
    // The cookie's name: cookies do not tell ports apart, so two consoles on one machine
    // each have their own.
    std::string CookieName() const;
    // The URL to print: http://127.0.0.1:PORT/?token=TOKEN.
    std::string Url() const;

    // True for "127.0.0.1", "localhost" and "[::1]", each with or without a port.
    static bool IsLoopbackHost(std::string const& host);
    // True when `origin` is the origin of a page loaded from `host`.
    static bool IsOwnOrigin(std::string const& origin, std::string const& host);

private:
    bool CarriesToken(AccessRequest const& request) const;

    std::string m_token;
    std::uint16_t m_port;
};

// `a` equals `b`, in a time that does not depend on where they differ.
bool SameSecret(std::string const& a, std::string const& b);
// 32 random bytes from the kernel, in hex. Throws std::runtime_error when there are none.
std::string NewToken();

}  // namespace Vellmark::Console
