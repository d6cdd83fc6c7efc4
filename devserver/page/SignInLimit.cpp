#include "devserver/page/SignInLimit.h"

#include "stowline/platform/desktop/Sha256.h"

#include <algorithm>

namespace stowline::devserver {

void SignInLimit::fill(Tries& tries, int most, std::chrono::seconds another, Clock::time_point now)
{
    const std::chrono::duration<double> passed = now - tries.lookedAt;
    tries.left = std::min<double>(most, tries.left + std::max(0.0, passed / another));
    tries.lookedAt = now;
}

/// So there are never more names than tries of all names in the time in which one's fill up.
void SignInLimit::forgetFull(Clock::time_point now)
{
    for (auto name = ofNames_.begin(); name != ofNames_.end();) {
        fill(name->second, kTriesOfName, kAnotherOfName, now);
        name = name->second.left >= kTriesOfName ? ofNames_.erase(name) : std::next(name);
    }
}

bool SignInLimit::take(const std::string& userName)
{
    const std::lock_guard lock(mutex_);
    const auto now = now_();
    forgetFull(now);
    fill(ofAll_, kTriesOfAll, kAnotherOfAll, now);
    const std::string name = platform::Sha256::of(userName);
    const auto known = ofNames_.find(name);
    if (ofAll_.left < 1 || (known != ofNames_.end() && known->second.left < 1))
        return false;
    ofAll_.left -= 1;
    ofNames_.try_emplace(name, Tries{kTriesOfName, now}).first->second.left -= 1;
    return true;
}

void SignInLimit::giveBack(const std::string& userName)
{
    const std::lock_guard lock(mutex_);
    ofAll_.left = std::min<double>(kTriesOfAll, ofAll_.left + 1);
    const auto known = ofNames_.find(platform::Sha256::of(userName));
    if (known != ofNames_.end())
        known->second.left = std::min<double>(kTriesOfName, known->second.left + 1);
}

} // namespace stowline::devserver
