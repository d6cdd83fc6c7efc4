#include "stowline/backup/restore/Absence.h"

#include "stowline/backup/restore/LinkTrail.h"

#include <utility>
#include <vector>

namespace stowline::backup {

namespace {

constexpr const char* kTooLong = "too long to be noted";

/// @return false for a rule that this program does not know
bool addRule(TreeRules& rules, std::string_view text)
{
    constexpr std::string_view include = "include ";
    constexpr std::string_view exclude = "exclude ";
    constexpr std::string_view excludeFrom = "exclude-from ";
    if (text.starts_with(include))
        return rules.include(text.substr(include.size()));
    if (text.starts_with(exclude))
        return rules.exclude(text.substr(exclude.size()));
    if (text.starts_with(excludeFrom))
        return !rules.excludeLines(text.substr(excludeFrom.size()));
    bool* const flag = text == "skip-hidden"       ? &rules.skipsHidden
                       : text == "exclude-caches"  ? &rules.skipsCaches
                       : text == "one-file-system" ? &rules.staysOnFileSystem
                                                   : nullptr;
    if (flag != nullptr)
        *flag = true;
    return flag != nullptr;
}

} // namespace

NotedRules notedRules(const PlaceNote& walked)
{
    NotedRules noted;
    for (const std::string& rule : unpackedRules(walked.text)) {
        if (!addRule(noted.rules, rule) && noted.unreadable.empty())
            noted.unreadable = rule;
    }
    return noted;
}

std::set<std::string> foldersWalkedBy(const RecordHead& head, const ItemIndex& items)
{
    std::set<std::string> folders;
    for (const std::string& named : head.description.namedPaths) {
        if (auto real = pathThroughLinks(items, named))
            folders.insert(std::move(*real));
    }
    return folders;
}

bool isTooLongToBeNoted(const NotedRules& rules)
{
    return rules.unreadable == kTooLong;
}

const NotedRules& Absences::rulesOf(const PlaceNote& note)
{
    const auto known = rules_.find(note.text);
    return known != rules_.end() ? known->second
                                 : rules_.emplace(note.text, notedRules(note)).first->second;
}

Absences::Place Absences::in(const Place& folder, std::string path, const Subject& subject)
{
    Place place = folder;
    place.path = std::move(path);
    const bool isBase = subject.note && subject.note->kind == PlaceNote::Kind::walked;
    if (isBase) {
        place.noted = &rulesOf(*subject.note);
        place.baseLength = place.path.size();
        place.isIncluded = false;
        place.absence = place.noted->unreadable.empty() && counts(*subject.note)
                            ? Absence::wasNotThere
                            : Absence::notLookedAt;
    } else if (subject.note) {
        place.absence = subject.note->kind == PlaceNote::Kind::leftOut ? Absence::leftOut
                                                                       : Absence::notLookedAt;
    } else if (place.absence == Absence::wasNotThere) {
        const TreeRules& rules = place.noted->rules;
        const std::string_view below =
            std::string_view(place.path).substr(place.baseLength + (place.baseLength > 1 ? 1 : 0));
        const bool isHidden = nameOf(place.path).starts_with('.') || subject.isListedAsHidden;
        place.isIncluded = folder.isIncluded || rules.includes(below, subject.isFolder);
        if (rules.excludes({below, subject.isFolder, isHidden, place.isIncluded}))
            place.absence = Absence::leftOut;
    }
    // Records do not say whether a disk was looked at, or only what was named on it.
    if (subject.held != nullptr && subject.held->isMountPoint && !isBase &&
        place.absence == Absence::wasNotThere && place.noted->rules.staysOnFileSystem)
        place.absence = Absence::leftOut;
    if (subject.isStale)
        place.absence = Absence::notLookedAt;
    return place;
}

Absences::Place Absences::at(const std::string& path)
{
    std::vector<std::string> above;
    for (std::string_view at = path; !at.empty(); at = parentOf(at))
        above.emplace_back(at);
    Place place;
    for (auto next = above.rbegin(); next != above.rend(); ++next) {
        const auto stored = items_.find(*next);
        place = in(place, *next,
                   {.isFolder = true,
                    .held = stored ? &stored->item : nullptr,
                    .isStale = stored && stored->isStale,
                    .note = items_.noteAt(*next)});
    }
    return place;
}

} // namespace stowline::backup
