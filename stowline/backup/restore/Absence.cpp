#include "stowline/backup/restore/Absence.h"

#include "stowline/backup/restore/LinkTrail.h"
#include "stowline/backup/tree/RuleText.h"

#include <utility>
#include <vector>

namespace stowline::backup {

namespace {

/// @return false for a rule that cannot be followed
bool addRule(TreeRules& rules, const NotedRule& rule)
{
    switch (rule.kind) {
    case NotedRule::Kind::include:
        return rules.include(rule.text);
    case NotedRule::Kind::exclude:
        return rules.exclude(rule.text);
    case NotedRule::Kind::excludeFrom:
        return !rules.excludeLines(rule.text);
    case NotedRule::Kind::skipsHidden:
        return rules.skipsHidden = true;
    case NotedRule::Kind::skipsCaches:
        return rules.skipsCaches = true;
    case NotedRule::Kind::staysOnFileSystem:
        return rules.staysOnFileSystem = true;
    case NotedRule::Kind::tooLong:
    case NotedRule::Kind::unknown:
        break;
    }
    return false;
}

} // namespace

NotedRules notedRules(const PlaceNote& walked)
{
    NotedRules noted;
    for (const std::string& text : unpackedRules(walked.text)) {
        const NotedRule rule = parsedRule(text);
        noted.areTooLong = noted.areTooLong || rule.kind == NotedRule::Kind::tooLong;
        if (!addRule(noted.rules, rule) && noted.unreadable.empty())
            noted.unreadable = text;
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
