#include "stowline/backup/VersionAudit.h"

#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::size_t kAskedAtATime = 500;

} // namespace

bool VersionAudit::ask(std::uint64_t atMost)
{
    const std::uint64_t all = index_.alone().itemCount();
    bool isAnswered = askAfterOldest(atMost);
    if (isAnswered && lost_ > 0 && atMost < all) {
        accounts_.note("Something of what was stored is lost; the service is asked about all of "
                       "it.");
        isAnswered = askAfterOldest(all);
    }
    if (lost_ > 0)
        accounts_.note("The service has lost what was stored of " +
                       platform::countText(lost_, "file", "files") +
                       (lost_ == 1 ? "; it is sent again when it is met."
                                   : "; they are sent again when they are met."));
    if (untold_ > 0)
        accounts_.note("The service does not say of " +
                       platform::countText(untold_, "file", "files") +
                       " whether what was stored is whole; \"stowline verify --read\" finds out.");
    return isAnswered;
}

/// @return false when an answer never came, which is told
bool VersionAudit::askAfterOldest(std::uint64_t atMost)
{
    const auto paths = index_.alone().longestUnconfirmed(atMost);
    if (!paths.empty())
        accounts_.activity("asks about stored versions");
    std::span<const std::string> rest(paths);
    while (!rest.empty()) {
        const auto some = rest.first(std::min(kAskedAtATime, rest.size()));
        rest = rest.subspan(some.size());
        if (!askAfterSome(some))
            return false;
    }
    return true;
}

bool VersionAudit::askAfterSome(std::span<const std::string> paths)
{
    std::vector<StoredItem> items;
    std::vector<StoredVersion> versions;
    for (const std::string& path : paths) {
        auto item = index_.find(path);
        if (!item || !item->content)
            continue;
        if (!isVersionNumber(item->content->version) && !learnVersion(*item))
            return false;
        if (!item->content || item->content->version.empty())
            continue;
        versions.push_back({path, item->item.size, *item->content});
        items.push_back(std::move(*item));
    }
    std::optional<StepFailure> failure;
    const auto verdicts = askedAfter(account_, versions, tries_, failure);
    if (!verdicts)
        return hasNoAnswer(*failure);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto kind = damaged_.contains(versions[i].content.version)
                              ? VersionVerdict::Kind::damaged
                              : (*verdicts)[i].kind;
        if (kind == VersionVerdict::Kind::whole)
            index_.confirm(items[i].item.path);
        else if (kind == VersionVerdict::Kind::untold)
            ++untold_; // no loss: a service that never tells would be sent everything in every run
        else
            lose(items[i]);
    }
    return true;
}

/// Of content whose version was never told: without its number nothing could be given back of it.
/// @return false when an answer never came, which is told
bool VersionAudit::learnVersion(StoredItem& item)
{
    item.content->version.clear();
    if (!WebServiceBroker::isRestoringConfigured()) { // nor is anything else known of it
        index_.confirm(item.item.path);
        return true;
    }
    const auto found = finder_.versionFor(item.item.path, *item.content);
    if (found.failure)
        return hasNoAnswer(*found.failure);
    if (isVersionNumber(found.version)) {
        item.content->version = found.version;
        item.content->list = found.list;
        index_.correct(item);
    } else {
        lose(item);
    }
    return true;
}

void VersionAudit::lose(const StoredItem& item)
{
    ++lost_;
    index_.lose(item);
}

/// @return false, for whoever asked
bool VersionAudit::hasNoAnswer(const StepFailure& failure)
{
    if (failure.end != StepEnd::interrupted)
        accounts_.problem("The service did not say whether it still holds what was stored "
                          "earlier. " +
                          failure.reason);
    return false;
}

} // namespace stowline::backup
