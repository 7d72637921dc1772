// Who may use the console: a loopback Host, the token (query, bearer or cookie), and for
// changes the page's own origin.
#include <gtest/gtest.h>

#include "console/AccessPolicy.h"

namespace Vellmark::Console {
namespace {

using Verdict = AccessDecision::Verdict;

constexpr char kToken[] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

class AccessPolicyTest : public ::testing::Test {
protected:
    AccessPolicy policy{kToken, 8765};

    AccessRequest Get(std::string const& path = "/api/overview") const {
        AccessRequest request;
        request.method = "GET";
        request.path = path;
        request.host = "127.0.0.1:8765";
        request.cookie = "vellmark-console-8765=" + std::string(kToken);
        return request;
    }
    AccessRequest Post(std::string const& origin) const {
        AccessRequest request = Get("/api/command");
        request.method = "POST";
        request.origin = origin;
        return request;
    }
};

TEST_F(AccessPolicyTest, TheCookieOfThisConsoleLetsARequestIn) {
    EXPECT_EQ(policy.Decide(Get()).verdict, Verdict::Allow);
}

TEST_F(AccessPolicyTest, ARequestWithoutTheTokenIsRefused) {
    AccessRequest request = Get();
    request.cookie.clear();
    auto const decision = policy.Decide(request);
    EXPECT_EQ(decision.verdict, Verdict::Refuse);
    EXPECT_EQ(decision.reason,
              "this console needs the token of the URL it printed when it started");
}

TEST_F(AccessPolicyTest, AWrongTokenIsRefusedWhereverItComes) {
    std::string const wrong(64, 'f');
    AccessRequest cookie = Get();
    cookie.cookie = "vellmark-console-8765=" + wrong;
    AccessRequest query = Get();
    query.cookie.clear();
    query.tokenParam = wrong;
    AccessRequest bearer = Get();
    bearer.cookie.clear();
    bearer.authorization = "Bearer " + wrong;
    AccessRequest shorter = Get();
    shorter.cookie = "vellmark-console-8765=" + std::string(kToken).substr(0, 32);
    for (auto const& request : {cookie, query, bearer, shorter}) {
        EXPECT_EQ(policy.Decide(request).verdict, Verdict::Refuse);
    }
}

TEST_F(AccessPolicyTest, TheCookieOfAConsoleOnAnotherPortDoesNotLetIn) {
    AccessRequest request = Get();
    request.cookie = "vellmark-console-9000=" + std::string(kToken);
    EXPECT_EQ(policy.Decide(request).verdict, Verdict::Refuse);
}

TEST_F(AccessPolicyTest, TheCookieIsFoundAmongOthers) {
    AccessRequest request = Get();
    request.cookie = "theme=dark; vellmark-console-8765=" + std::string(kToken) + "; other=1";
    EXPECT_EQ(policy.Decide(request).verdict, Verdict::Allow);
}

TEST_F(AccessPolicyTest, ThePrintedUrlSetsTheCookieAndDropsTheTokenFromTheAddress) {
    AccessRequest request = Get("/");
    request.cookie.clear();
    request.tokenParam = kToken;
    EXPECT_EQ(policy.Decide(request).verdict, Verdict::RedirectWithCookie);
    EXPECT_EQ(policy.CookieHeader(), "vellmark-console-8765=" + std::string(kToken) +
                                         "; Path=/; HttpOnly; SameSite=Strict");
    EXPECT_EQ(policy.Url(), "http://127.0.0.1:8765/?token=" + std::string(kToken));
}

TEST_F(AccessPolicyTest, TheTokenInTheQueryOfACallSetsTheCookieAndBearerNeedsNone) {
    AccessRequest query = Get();
    query.cookie.clear();
    query.tokenParam = kToken;
    EXPECT_EQ(policy.Decide(query).verdict, Verdict::AllowAndSetCookie);
    AccessRequest bearer = Get();
    bearer.cookie.clear();
    bearer.authorization = "Bearer " + std::string(kToken);
    EXPECT_EQ(policy.Decide(bearer).verdict, Verdict::Allow);
}

TEST_F(AccessPolicyTest, AHostThatIsNotALoopbackNameIsRefusedEvenWithTheToken) {
    for (std::string const host :
         {"evil.example:8765", "127.0.0.1.evil.example:8765", "localhost.evil.example",
          "127.0.0.2:8765", "", "[::1]:x", "localhost:1234567", "10.0.0.1:8765"}) {
        AccessRequest request = Get();
        request.host = host;
        auto const decision = policy.Decide(request);
        EXPECT_EQ(decision.verdict, Verdict::Refuse) << host;
        EXPECT_EQ(decision.reason, "Host \"" + host +
                                       "\" is not a loopback address; open the URL the console "
                                       "printed")
            << host;
    }
}

TEST_F(AccessPolicyTest, LoopbackNamesAreTakenWithAnyPortForSshForwarding) {
    for (std::string const host :
         {"127.0.0.1:8765", "localhost:8765", "[::1]:8765", "localhost:9000", "127.0.0.1"}) {
        AccessRequest request = Get();
        request.host = host;
        EXPECT_EQ(policy.Decide(request).verdict, Verdict::Allow) << host;
    }
}

TEST_F(AccessPolicyTest, AChangeFromAForeignOriginIsRefused) {
    for (std::string const origin : {"http://evil.example", "null", "http://127.0.0.1:9000",
                                     "https://127.0.0.1:8765", "http://localhost:8765"}) {
        auto const decision = policy.Decide(Post(origin));
        EXPECT_EQ(decision.verdict, Verdict::Refuse) << origin;
        EXPECT_EQ(decision.reason, "a change asked for by a page of " + origin + " is refused");
    }
}

TEST_F(AccessPolicyTest, AChangeFromThePagesOwnOriginOrFromAToolWithoutOneIsTaken) {
    EXPECT_EQ(policy.Decide(Post("http://127.0.0.1:8765")).verdict, Verdict::Allow);
    EXPECT_EQ(policy.Decide(Post("")).verdict, Verdict::Allow);
    AccessRequest forwarded = Post("http://localhost:9000");
    forwarded.host = "localhost:9000";
    EXPECT_EQ(policy.Decide(forwarded).verdict, Verdict::Allow);
}

TEST_F(AccessPolicyTest, AChangeABrowserMarksAsFromAnotherSiteIsRefused) {
    for (std::string const site : {"cross-site", "same-site"}) {
        AccessRequest request = Post("");
        request.fetchSite = site;
        EXPECT_EQ(policy.Decide(request).verdict, Verdict::Refuse) << site;
    }
    AccessRequest own = Post("");
    own.fetchSite = "same-origin";
    EXPECT_EQ(policy.Decide(own).verdict, Verdict::Allow);
}

TEST_F(AccessPolicyTest, AReadNamingAnotherOriginIsNotAChange) {
    AccessRequest request = Get();
    request.origin = "http://evil.example";
    EXPECT_EQ(policy.Decide(request).verdict, Verdict::Allow);
}

TEST(NewToken, IsSixtyFourHexDigitsAndNeverTheSame) {
    std::string const first = NewToken();
    std::string const second = NewToken();
    EXPECT_EQ(first.size(), 64u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(first, second);
}

TEST(SameSecret, ComparesWholeValues) {
    EXPECT_TRUE(SameSecret("abc", "abc"));
    EXPECT_FALSE(SameSecret("abc", "abd"));
    EXPECT_FALSE(SameSecret("abc", "abcd"));
    EXPECT_FALSE(SameSecret("", "a"));
}

}  // namespace
}  // namespace Vellmark::Console
