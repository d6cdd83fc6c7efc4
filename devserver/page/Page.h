// The page of the service for people: who may see what, and its requests.
#pragma once

#include "devserver/OwnAddress.h"
#include "devserver/page/Overview.h"
#include "devserver/page/PageFrame.h"
#include "devserver/page/Sessions.h"
#include "devserver/page/SignInLimit.h"

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace stowline::devserver {

/// A request for the page, whose Host and Origin were found to be the service's own.
struct PageRequest {
    std::string method = "GET";
    std::string path = "/";
    std::string cookies;     ///< Cookie
    std::string knownTag;    ///< If-None-Match
    std::string contentType; ///< of the body
    std::string body;
    OwnAddress own;
};

struct PageAnswer {
    int status = 200;
    std::string contentType;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
};

/// What the page is made of; all of it must outlive it.
struct PageContext {
    Accounts& accounts;
    Storage& storage;
    Journal& journal;
    Deletions& deletions;
    std::set<std::string> administrators; ///< user names of those who see every account
};

/// Answers "/" (the overview, or the sign-in), "/overview" (the overview alone, for the script of
/// the page), "/sign-in" and "/sign-out". Who is not signed in is told nothing of any account. Any
/// thread.
class Page {
public:
    explicit Page(PageContext context,
                  const std::function<SessionMoment()>& now = SessionMoment::now);

    /// What the disk refuses is told as such, with status 500.
    [[nodiscard]] PageAnswer answer(const PageRequest& request);

private:
    [[nodiscard]] PageAnswer answerTo(const PageRequest& request);
    [[nodiscard]] PageAnswer whole(const PageRequest& request);
    [[nodiscard]] PageAnswer part(const PageRequest& request);
    [[nodiscard]] PageAnswer signIn(const PageRequest& request);
    [[nodiscard]] PageAnswer signOut(const PageRequest& request);
    [[nodiscard]] PageAnswer signInForm(const PageRequest& request, int status,
                                        const std::string& typedName, SignInNote note) const;
    [[nodiscard]] std::optional<std::string> userOf(const PageRequest& request);

    /// An overview as it is shown.
    struct Shown {
        std::string html;
        std::int64_t madeAt = 0;
        std::int64_t goodFor = 0; ///< seconds
    };
    [[nodiscard]] Shown shownTo(const std::string& userName);

    const PageContext context_;
    Sessions sessions_;
    SignInLimit limit_;
    RunHeads heads_;
    std::mutex mutex_;
    std::map<std::string, Shown> shown_; ///< by viewer
};

} // namespace stowline::devserver
