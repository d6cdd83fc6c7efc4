#include "devserver/page/Page.h"

#include "devserver/page/FormFields.h"
#include "devserver/page/Html.h"
#include "devserver/page/OverviewHtml.h"
#include "devserver/page/PageFrame.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

constexpr const char* kHtml = "text/html; charset=utf-8";
constexpr std::size_t kNonceBytes = 16;

/// Adding up what is stored takes time where there is much: what came of it is shown again for a
/// second for each so many versions.
constexpr std::int64_t kVersionsASecond = 50'000;

/// What every answer carries: nothing is kept, framed, or taken for another type; and of where the
/// page is nothing is told to others, but to the service itself, which forms need.
void addGuards(PageAnswer& answer)
{
    answer.headers.insert(answer.headers.end(), {{"Cache-Control", "no-store"},
                                                 {"X-Content-Type-Options", "nosniff"},
                                                 {"X-Frame-Options", "DENY"},
                                                 {"Referrer-Policy", "same-origin"},
                                                 {"Cross-Origin-Opener-Policy", "same-origin"},
                                                 {"Cross-Origin-Resource-Policy", "same-origin"}});
}

/// A page whose style and script are its own alone: nothing else is fetched, run or sent to.
PageAnswer pageAnswer(int status, const std::string& nonce, std::string html)
{
    PageAnswer answer{status, kHtml, std::move(html), {}};
    answer.headers.emplace_back(
        "Content-Security-Policy",
        fmt::format("default-src 'none'; style-src 'nonce-{0}'; script-src 'nonce-{0}'; "
                    "connect-src 'self'; form-action 'self'; base-uri 'none'; "
                    "frame-ancestors 'none'",
                    nonce));
    return answer;
}

std::string newNonce()
{
    return platform::hexadecimalText(platform::randomBytes(kNonceBytes));
}

/// Cookies know no port: the name does, so that two services leave each other's alone.
std::string cookieName(const OwnAddress& own)
{
    return fmt::format("{}stowline-session-{}", own.scheme == "https" ? "__Host-" : "", own.port);
}

std::pair<std::string, std::string> cookieHeader(const OwnAddress& own, const std::string& value,
                                                 std::int64_t seconds)
{
    return {"Set-Cookie",
            fmt::format("{}={}; Path=/; Max-Age={}; HttpOnly; SameSite=Strict{}", cookieName(own),
                        value, seconds, own.scheme == "https" ? "; Secure" : "")};
}

PageAnswer toTheFront()
{
    return {303, "text/plain", "", {{"Location", "/"}}};
}

PageAnswer refusal(int status, const char* sentence)
{
    return {status, "text/plain; charset=utf-8", std::string(sentence) + "\n", {}};
}

} // namespace

Page::Page(PageContext context, const std::function<SessionMoment()>& now)
    : context_(std::move(context)), sessions_(context_.accounts, now),
      limit_([now] { return now().passed; })
{
}

PageAnswer Page::answer(const PageRequest& request)
{
    PageAnswer answer;
    try {
        answer = answerTo(request);
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("The page cannot be made: %@", fault.what());
        answer = refusal(500, "The service cannot read its data now. Its log says why.");
    }
    addGuards(answer);
    return answer;
}

PageAnswer Page::answerTo(const PageRequest& request)
{
    const bool isPost = request.method == "POST";
    if (request.path == "/")
        return whole(request);
    if (request.path == "/overview")
        return part(request);
    if (request.path == "/sign-in" && isPost)
        return signIn(request);
    return request.path == "/sign-out" && isPost ? signOut(request) : toTheFront();
}

std::optional<std::string> Page::userOf(const PageRequest& request)
{
    const auto text = cookieNamed(request.cookies, cookieName(request.own));
    return text ? sessions_.userOf(*text) : std::nullopt;
}

PageAnswer Page::whole(const PageRequest& request)
{
    const auto user = userOf(request);
    if (!user) {
        const bool hadSession = cookieNamed(request.cookies, cookieName(request.own)).has_value();
        return signInForm(request, 200, "", hadSession ? SignInNote::ended : SignInNote::none);
    }
    const Shown shown = shownTo(*user);
    const std::string nonce = newNonce();
    return pageAnswer(200, nonce,
                      overviewPage(nonce, {*user, context_.administrators.contains(*user),
                                           shown.madeAt, shown.html}));
}

PageAnswer Page::part(const PageRequest& request)
{
    const auto user = userOf(request);
    if (!user)
        return refusal(403, "Please sign in.");
    const Shown shown = shownTo(*user);
    const std::string tag = "\"" + platform::Sha256::of(shown.html) + "\"";
    const bool isKnown = request.knownTag == tag;
    return {isKnown ? 304 : 200,
            kHtml,
            isKnown ? "" : shown.html,
            {{"ETag", tag}, {"X-As-Of", momentText(shown.madeAt)}}};
}

PageAnswer Page::signInForm(const PageRequest& request, int status, const std::string& typedName,
                            SignInNote note) const
{
    const std::string nonce = newNonce();
    const std::string address =
        fmt::format("{}://127.0.0.1:{}", request.own.scheme, request.own.port);
    return pageAnswer(status, nonce, signInPage(nonce, note, typedName, address));
}

PageAnswer Page::signIn(const PageRequest& request)
{
    if (!request.contentType.starts_with("application/x-www-form-urlencoded"))
        return refusal(415, "A sign-in is a form.");
    const std::string user = formField(request.body, "user").value_or("");
    const std::string password = formField(request.body, "password").value_or("");
    if (!limit_.take(user)) {
        PageAnswer answer = signInForm(request, 429, user, SignInNote::tooMany);
        answer.headers.emplace_back("Retry-After",
                                    std::to_string(SignInLimit::kAnotherOfName.count()));
        return answer;
    }
    if (!context_.accounts.signIn(user, password))
        return signInForm(request, 403, user, SignInNote::refused);
    limit_.giveBack(user);
    if (const auto before = cookieNamed(request.cookies, cookieName(request.own)))
        sessions_.end(*before);
    PageAnswer answer = toTheFront();
    answer.headers.push_back(
        cookieHeader(request.own, sessions_.begin(user), Sessions::kLifetime.count()));
    return answer;
}

PageAnswer Page::signOut(const PageRequest& request)
{
    if (const auto text = cookieNamed(request.cookies, cookieName(request.own)))
        sessions_.end(*text);
    PageAnswer answer = toTheFront();
    answer.headers.push_back(cookieHeader(request.own, "", 0));
    return answer;
}

Page::Shown Page::shownTo(const std::string& userName)
{
    const std::lock_guard lock(mutex_);
    const std::int64_t now = context_.storage.secondsNow();
    std::erase_if(shown_, [now](const auto& entry) {
        return now >= entry.second.madeAt + entry.second.goodFor || now < entry.second.madeAt;
    });
    if (const auto known = shown_.find(userName); known != shown_.end())
        return known->second;
    const bool isOfAll = context_.administrators.contains(userName);
    Overview overview =
        makeOverview({context_.storage, context_.journal, context_.deletions, heads_},
                     isOfAll ? context_.accounts.names() : std::vector{userName});
    overview.isOfAll = isOfAll;
    std::int64_t versions = 0;
    for (const AccountOverview& account : overview.accounts) {
        for (const MachineSummary& machine : account.machines)
            versions += machine.versions;
    }
    Shown shown{overviewHtml(overview), overview.madeAt, versions / kVersionsASecond};
    if (shown.goodFor > 0)
        shown_.insert_or_assign(userName, shown);
    return shown;
}

} // namespace stowline::devserver
