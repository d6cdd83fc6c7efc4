// Who is shown what on the page, and how one signs in to it.
#include "devserver/page/FormFields.h"
#include "devserver/page/HeldServiceTest.h"
#include "stowline/platform/text/Text.h"

#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;

std::string headerOf(const PageAnswer& answer, const std::string& name)
{
    for (const auto& [header, value] : answer.headers) {
        if (header == name)
            return value;
    }
    return "";
}

class PageTest : public HeldService {
protected:
    void SetUp() override
    {
        open("ann");
        open("bob", "bob's");
    }

    static PageRequest signInRequest(const std::string& user, const std::string& password)
    {
        return {.method = "POST",
                .path = "/sign-in",
                .contentType = "application/x-www-form-urlencoded",
                .body = "user=" + user + "&password=" + password,
                .own = {"http", 8710}};
    }

    PageAnswer signIn(const std::string& user, const std::string& password)
    {
        return page_.answer(signInRequest(user, password));
    }

    /// The cookie as a browser sends it back.
    std::string cookieOf(const std::string& user, const std::string& password)
    {
        const std::string set = headerOf(signIn(user, password), "Set-Cookie");
        EXPECT_NE(set, "");
        return set.substr(0, set.find(';'));
    }

    PageAnswer get(const std::string& path, const std::string& cookies = "",
                   const std::string& tag = "")
    {
        return page_.answer(
            {.path = path, .cookies = cookies, .knownTag = tag, .own = {"http", 8710}});
    }

    bool isSignedIn(const std::string& cookies) { return get("/overview", cookies).status == 200; }

    Page page_{{accounts_, storage_, journal_, deletions_, {"bob"}}, [this] { return now_; }};
};

TEST_F(PageTest, WithoutASignInSaysNothingOfAccounts)
{
    put("ann", "iMac", "/a", "x");
    journal_.addEvent({{"userName", "ann"}, {"eventType", "BackupEnded"}});
    const PageAnswer page = get("/");
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find("action=\"/sign-in\""), std::string::npos);
    for (const char* told : {"ann", "bob", "iMac", "BackupEnded", "<table"})
        EXPECT_EQ(page.body.find(told), std::string::npos) << told;
    const PageAnswer part = get("/overview");
    EXPECT_EQ(part.status, 403);
    EXPECT_EQ(part.body, "Please sign in.\n");
    EXPECT_EQ(get("/overview", "stowline-session-8710=").status, 403);
    EXPECT_EQ(get("/overview", "stowline-session-8710=" + std::string(32, '0')).status, 403);
}

TEST_F(PageTest, ASignInGivesACookieThatOnlyThisServiceReads)
{
    const PageAnswer answer = signIn("ann", "secret");
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(headerOf(answer, "Location"), "/");
    const std::string cookie = headerOf(answer, "Set-Cookie");
    const std::string name = "stowline-session-8710=";
    ASSERT_TRUE(cookie.starts_with(name)) << cookie;
    EXPECT_EQ(cookie.substr(name.size() + 32), "; Path=/; Max-Age=3600; HttpOnly; SameSite=Strict");
    EXPECT_TRUE(isSignedIn(cookie.substr(0, cookie.find(';'))));
    PageRequest secure = signInRequest("ann", "secret");
    secure.own = {"https", 8710};
    const std::string overTls = headerOf(page_.answer(secure), "Set-Cookie");
    EXPECT_TRUE(overTls.starts_with("__Host-stowline-session-8710=")) << overTls;
    EXPECT_TRUE(overTls.ends_with("; SameSite=Strict; Secure")) << overTls;
}

TEST_F(PageTest, ASessionEndsAfterItsHour)
{
    const std::string cookie = cookieOf("ann", "secret");
    letPass(1h - 1s);
    EXPECT_TRUE(isSignedIn(cookie));
    letPass(1s);
    EXPECT_FALSE(isSignedIn(cookie));
    const PageAnswer page = get("/", cookie);
    EXPECT_NE(page.body.find("You are no longer signed in."), std::string::npos);
    EXPECT_EQ(page.body.find("ann"), std::string::npos);
}

TEST_F(PageTest, SigningOutEndsTheSessionAndTheCookie)
{
    const std::string cookie = cookieOf("ann", "secret");
    // A link, which any page may show, does not.
    EXPECT_EQ(get("/sign-out", cookie).status, 303);
    EXPECT_TRUE(isSignedIn(cookie));
    const PageAnswer out = page_.answer(
        {.method = "POST", .path = "/sign-out", .cookies = cookie, .own = {"http", 8710}});
    EXPECT_EQ(out.status, 303);
    EXPECT_TRUE(
        headerOf(out, "Set-Cookie").starts_with("stowline-session-8710=; Path=/; Max-Age=0"));
    EXPECT_FALSE(isSignedIn(cookie));
}

TEST_F(PageTest, SigningInAgainEndsTheSessionBefore)
{
    const std::string before = cookieOf("ann", "secret");
    PageRequest again = signInRequest("bob", "bob's");
    again.cookies = before;
    const std::string set = headerOf(page_.answer(again), "Set-Cookie");
    EXPECT_FALSE(isSignedIn(before));
    EXPECT_TRUE(isSignedIn(set.substr(0, set.find(';'))));
}

TEST_F(PageTest, AWrongPasswordIsToldTheSameForUnknownUsers)
{
    const auto told = [this](const std::string& user) {
        const PageAnswer answer = signIn(user, "wrong");
        EXPECT_EQ(answer.status, 403);
        EXPECT_EQ(headerOf(answer, "Set-Cookie"), "");
        const std::string policy = headerOf(answer, "Content-Security-Policy");
        const auto start = policy.find("'nonce-") + 7;
        const std::string nonce = policy.substr(start, policy.find('\'', start) - start);
        EXPECT_EQ(nonce.size(), 32U);
        std::string body = platform::replacingOccurrences(answer.body, nonce, "NONCE");
        return platform::replacingOccurrences(body, "value=\"" + user + "\"", "value=\"USER\"");
    };
    const std::string known = told("ann");
    EXPECT_NE(known.find("User name or password is wrong."), std::string::npos);
    EXPECT_EQ(known, told("eve"));
    EXPECT_EQ(known, told("\xd7\x91"));
    // And the refusal of too many too.
    for (int i = 0; i < 4; ++i) {
        (void)signIn("ann", "wrong");
        (void)signIn("eve", "wrong");
    }
    EXPECT_EQ(signIn("ann", "secret").status, 429);
    EXPECT_EQ(signIn("eve", "secret").status, 429);
}

std::atomic<int> largeAllocations = 0;

void* countingAllocate(std::size_t size, const char* /*file*/, int /*line*/)
{
    constexpr std::size_t ofAPassword = std::size_t{16} << 20; // what hashing one takes
    largeAllocations += size >= ofAPassword ? 1 : 0;
    return std::malloc(size);
}
void* countingReallocate(void* memory, std::size_t size, const char* /*file*/, int /*line*/)
{
    return std::realloc(memory, size);
}
void countingFree(void* memory, const char* /*file*/, int /*line*/)
{
    std::free(memory);
}

/// Counts how many passwords are hashed, which is what a sign-in costs.
class SignInWork : public testing::Test {
protected:
    SignInWork()
    {
        EXPECT_EQ(CRYPTO_set_mem_functions(countingAllocate, countingReallocate, countingFree), 1);
    }
};

TEST_F(SignInWork, IsTheSameForUnknownUsers)
{
    const test::TemporaryFolder folder;
    Accounts accounts(folder.path() / "service.sqlite");
    Storage storage(folder.path());
    Journal journal(folder.path());
    Deletions deletions(storage, 0ms);
    Page page({accounts, storage, journal, deletions, {}});
    ASSERT_EQ(accounts.open({.userName = "ann", .password = "p", .email = "a@b"}),
              AccountOutcome::success);
    const auto workOf = [&](const std::string& user) {
        const int before = largeAllocations;
        EXPECT_EQ(page.answer({.method = "POST",
                               .path = "/sign-in",
                               .contentType = "application/x-www-form-urlencoded",
                               .body = "user=" + user + "&password=wrong",
                               .own = {"http", 1}})
                      .status,
                  403);
        return largeAllocations - before;
    };
    (void)workOf("first"); // which makes what unknown users are compared with
    EXPECT_EQ(workOf("ann"), 1);
    EXPECT_EQ(workOf("eve"), 1);
    EXPECT_EQ(workOf(""), 1);
}

TEST_F(PageTest, TooManyFailuresAreRefusedWithoutALookAtThePassword)
{
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(signIn("ann", "wrong").status, 403);
    const PageAnswer refused = signIn("ann", "secret");
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(headerOf(refused, "Retry-After"), "60");
    EXPECT_EQ(headerOf(refused, "Set-Cookie"), "");
    EXPECT_NE(refused.body.find("Too many sign-ins failed."), std::string::npos);
    EXPECT_EQ(signIn("bob", "bob's").status, 303);
    letPass(1min);
    EXPECT_EQ(signIn("ann", "secret").status, 303);
}

TEST_F(PageTest, APasswordIsTakenFromAFormAlone)
{
    PageRequest other = signInRequest("ann", "secret");
    other.contentType = "text/plain"; // as a page elsewhere could send it unasked
    EXPECT_EQ(page_.answer(other).status, 415);
    EXPECT_EQ(get("/sign-in").status, 303);
    EXPECT_EQ(headerOf(get("/sign-in"), "Set-Cookie"), "");
}

TEST_F(PageTest, AnAccountSeesItsOwnAndAnAdministratorAll)
{
    put("ann", "anns-machine", "/a", "x");
    put("bob", "bobs-machine", "/a", "x");
    const std::string anns = get("/", cookieOf("ann", "secret")).body;
    EXPECT_NE(anns.find("anns-machine"), std::string::npos);
    EXPECT_EQ(anns.find("bob"), std::string::npos);
    EXPECT_EQ(anns.find("administrator"), std::string::npos);
    const std::string all = get("/", cookieOf("bob", "bob%27s")).body;
    EXPECT_NE(all.find("anns-machine"), std::string::npos);
    EXPECT_NE(all.find("bobs-machine"), std::string::npos);
    EXPECT_NE(all.find("administrator: all accounts"), std::string::npos);
    // An account that is the administrator's but for its case is another one.
    open("Bob");
    EXPECT_EQ(get("/", cookieOf("Bob", "secret")).body.find("machine\""), std::string::npos);
}

TEST_F(PageTest, NothingButItsOwnStyleAndScriptMayRun)
{
    const std::string cookie = cookieOf("ann", "secret");
    const PageAnswer page = get("/", cookie);
    const std::string policy = headerOf(page, "Content-Security-Policy");
    const auto start = policy.find("'nonce-") + 7;
    const std::string nonce = policy.substr(start, 32);
    EXPECT_EQ(policy, "default-src 'none'; style-src 'nonce-" + nonce + "'; script-src 'nonce-" +
                          nonce +
                          "'; connect-src 'self'; form-action 'self'; base-uri 'none'; "
                          "frame-ancestors 'none'");
    EXPECT_NE(page.body.find("<script nonce=\"" + nonce + "\">"), std::string::npos);
    EXPECT_NE(page.body.find("<style nonce=\"" + nonce + "\">"), std::string::npos);
    EXPECT_EQ(headerOf(get("/", cookie), "Content-Security-Policy").find(nonce), std::string::npos);
    for (const char* not_here : {" style=", " onclick=", "http-equiv", "@import", "url("})
        EXPECT_EQ(page.body.find(not_here), std::string::npos) << not_here;
    for (const PageAnswer& answer : {page, get("/"), get("/overview", cookie), get("/overview")}) {
        EXPECT_EQ(headerOf(answer, "Cache-Control"), "no-store");
        EXPECT_EQ(headerOf(answer, "X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(headerOf(answer, "Referrer-Policy"), "same-origin");
        EXPECT_EQ(headerOf(answer, "X-Frame-Options"), "DENY");
    }
}

TEST_F(PageTest, AnOverviewThatIsKnownIsNotSentAgain)
{
    const std::string cookie = cookieOf("ann", "secret");
    const PageAnswer first = get("/overview", cookie);
    EXPECT_EQ(headerOf(first, "X-As-Of"), "2026-01-10 00:00:00");
    letPass(5s);
    const PageAnswer same = get("/overview", cookie, headerOf(first, "ETag"));
    EXPECT_EQ(same.status, 304);
    EXPECT_EQ(same.body, "");
    EXPECT_EQ(headerOf(same, "X-As-Of"), "2026-01-10 00:00:05");
    put("ann", "iMac", "/a", "x");
    EXPECT_EQ(get("/overview", cookie, headerOf(first, "ETag")).status, 200);
    EXPECT_EQ(get("/overview", "", headerOf(first, "ETag")).status, 403);
}

TEST_F(PageTest, WhatTookLongToAddUpIsShownAgainToItsViewerAlone)
{
    open("eve");
    put("ann", "anns-machine", "/a", "x");
    execute("INSERT INTO versions (item_id, user_name, size, client_date, stored_at, server_file,"
            " checksum, is_delta, is_packed, baseline, list_id, stored_size) WITH RECURSIVE"
            " n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 50000)"
            " SELECT 1, 'ann', 1, '', '2026-01-01 00:00:00', 'f' || i, 0, 0, 0, -1, 'l' || i, 1"
            " FROM n");
    const std::string anns = cookieOf("ann", "secret");
    const std::string eves = cookieOf("eve", "secret");
    letPass(20min);
    const auto shows = [this](const std::string& cookie, const char* name) {
        return get("/overview", cookie).body.find(name) != std::string::npos;
    };
    EXPECT_TRUE(shows(anns, "anns-machine"));
    EXPECT_FALSE(shows(eves, "anns-machine"));
    put("ann", "another", "/a", "x");
    EXPECT_FALSE(shows(anns, "another"));
    letPass(1s);
    EXPECT_TRUE(shows(anns, "another"));
    now_.clock -= 10min; // a clock that is set back keeps nothing for longer
    put("ann", "third", "/a", "x");
    EXPECT_TRUE(shows(anns, "third"));
}

TEST_F(PageTest, ATypedNameIsEscaped)
{
    const PageAnswer answer = signIn("%22%3E%3Cscript%3Ealert(1)%3C/script%3E", "x");
    EXPECT_EQ(answer.body.find("<script"), std::string::npos);
    EXPECT_NE(answer.body.find("value=\"&quot;&gt;&lt;script&gt;"), std::string::npos);
}

TEST_F(PageTest, WhatCannotBeReadIsNoEmptyPage)
{
    const std::string cookie = cookieOf("ann", "secret");
    execute("DROP TABLE space_notes");
    const PageAnswer answer = get("/", cookie);
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.body, "The service cannot read its data now. Its log says why.\n");
    EXPECT_EQ(headerOf(answer, "Cache-Control"), "no-store");
}

} // namespace
} // namespace stowline::devserver
