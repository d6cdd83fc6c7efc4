#include "devserver/page/Sessions.h"

#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>

namespace stowline::devserver {

namespace {

constexpr std::size_t kTextBytes = 16; // too many to guess, so no salt and no slow hash is needed

} // namespace

Sessions::Sessions(Accounts& accounts, std::function<SessionMoment()> now)
    : accounts_(accounts), now_(std::move(now))
{
}

bool Sessions::isOver(const Session& session, const SessionMoment& now) const
{
    return now.passed - session.begun.passed >= kLifetime ||
           now.clock - session.begun.clock >= kLifetime || now.clock < session.begun.clock;
}

/// Drops what is over, and the oldest where there would be too many.
void Sessions::makeRoom(const std::string& userName)
{
    const SessionMoment now = now_();
    std::erase_if(sessions_, [&](const auto& entry) { return isOver(entry.second, now); });
    const auto dropOldest = [this](std::size_t most, auto&& counts) {
        auto oldest = sessions_.end();
        std::size_t count = 0;
        for (auto at = sessions_.begin(); at != sessions_.end(); ++at) {
            if (!counts(at->second))
                continue;
            ++count;
            if (oldest == sessions_.end() || at->second.number < oldest->second.number)
                oldest = at;
        }
        if (count >= most)
            sessions_.erase(oldest);
    };
    dropOldest(kMostOfAccount, [&](const Session& each) { return each.userName == userName; });
    dropOldest(kMost, [](const Session&) { return true; });
}

std::string Sessions::begin(const std::string& userName)
{
    std::string text = platform::hexadecimalText(platform::randomBytes(kTextBytes));
    const std::string mark = accounts_.passwordMark(userName).value_or("");
    const std::lock_guard lock(mutex_);
    makeRoom(userName);
    sessions_.emplace(platform::Sha256::of(text), Session{userName, mark, now_(), ++lastNumber_});
    return text;
}

std::optional<std::string> Sessions::userOf(const std::string& text)
{
    std::optional<Session> found;
    {
        const std::lock_guard lock(mutex_);
        const auto session = sessions_.find(platform::Sha256::of(text));
        if (session == sessions_.end())
            return std::nullopt;
        if (isOver(session->second, now_())) {
            sessions_.erase(session);
            return std::nullopt;
        }
        found = session->second;
    }
    return accounts_.passwordMark(found->userName) == found->passwordMark
               ? std::optional(found->userName)
               : std::nullopt;
}

void Sessions::end(const std::string& text)
{
    const std::lock_guard lock(mutex_);
    sessions_.erase(platform::Sha256::of(text));
}

} // namespace stowline::devserver
