#include "devserver/MonitoringTokens.h"

#include <algorithm>

namespace stowline::devserver {

void MonitoringTokens::add(const std::string& token, std::chrono::seconds lifetime)
{
    const std::lock_guard lock(mutex_);
    tokens_.insert_or_assign(token, Token{lifetime});
}

bool MonitoringTokens::isGood(const std::string& token)
{
    const std::lock_guard lock(mutex_);
    const auto found = tokens_.find(token);
    if (found == tokens_.end())
        return false;
    const Clock::time_point now = now_();
    found->second.firstUse = std::min(found->second.firstUse, now);
    return now - found->second.firstUse < found->second.lifetime;
}

} // namespace stowline::devserver
