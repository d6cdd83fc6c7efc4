#include "stowline/backup/tree/TreeRules.h"

#include "stowline/platform/text/GlobPattern.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <span>
#include <utility>

namespace stowline::backup {

namespace {

using Names = std::vector<std::string>;

constexpr std::string_view kAnyFolders = "**";

/// The names between slashes; "." counts for nothing.
Names namesOf(std::string_view path)
{
    Names names;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string_view name = path.substr(0, slash);
        if (!name.empty() && name != ".")
            names.emplace_back(name);
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return names;
}

/// Names against names, "**" being any number of them. Going back to the last "**" is enough: what
/// an earlier one could take more, the last one can.
bool matchesNames(std::span<const std::string> pattern, std::span<const std::string> names)
{
    std::size_t at = 0;
    std::size_t name = 0;
    std::optional<std::size_t> star; // the last "**" met, and the first name behind what it takes
    std::size_t behindStar = 0;
    while (name < names.size()) {
        const bool isStar = at < pattern.size() && pattern[at] == kAnyFolders;
        if (isStar) {
            star = at++;
            behindStar = name;
        } else if (at < pattern.size() && platform::matchesGlob(pattern[at], names[name], false)) {
            ++at;
            ++name;
        } else if (star) {
            at = *star + 1;
            name = ++behindStar;
        } else {
            return false;
        }
    }
    while (at < pattern.size() && pattern[at] == kAnyFolders)
        ++at;
    return at == pattern.size();
}

/// A line as it is meant: without what editors of other systems put around it (a byte order mark, a
/// carriage return), and without blanks at its end.
std::string_view bareLine(std::string_view line)
{
    constexpr std::string_view mark = "\xef\xbb\xbf";
    if (line.starts_with(mark))
        line.remove_prefix(mark.size());
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    while (line.ends_with(' ') && !line.ends_with("\\ "))
        line.remove_suffix(1);
    return line;
}

/// The pieces of a text between separators.
std::vector<std::string_view> pieces(std::string_view text, char separator)
{
    std::vector<std::string_view> found;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        found.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return found;
}

} // namespace

std::string sentenceOf(const Exclusion& exclusion)
{
    static constexpr std::array kSentences{
        "pattern",
        "not among what is included",
        "hidden",
        "tagged as a cache",
        "on another file system",
        "shows the state of the system",
        "keeps the state of backups",
    };
    const std::string sentence = kSentences.at(static_cast<std::size_t>(exclusion.rule));
    return exclusion.rule == Rule::pattern ? sentence + " " + exclusion.pattern : sentence;
}

std::optional<Pattern> Pattern::of(std::string_view text)
{
    Pattern pattern;
    pattern.text_ = text;
    pattern.isForFolders_ = text.ends_with('/');
    while (text.ends_with('/'))
        text.remove_suffix(1);
    pattern.isAnchored_ = text.find('/') != std::string_view::npos;
    pattern.names_ = namesOf(text);
    if (pattern.isAnchored_ && !pattern.names_.empty() && pattern.names_.back() == kAnyFolders)
        pattern.names_.emplace_back("*"); // what is in the folder, not the folder
    if (pattern.names_.empty() || text.find('\0') != std::string_view::npos)
        return std::nullopt;
    return pattern;
}

bool Pattern::matches(std::string_view below, bool isFolder) const
{
    if (isForFolders_ && !isFolder)
        return false;
    if (isAnchored_)
        return matchesNames(names_, namesOf(below));
    const std::size_t slash = below.rfind('/');
    const auto name = slash == std::string_view::npos ? below : below.substr(slash + 1);
    return platform::matchesGlob(names_.front(), std::string(name), false);
}

bool TreeRules::exclude(std::string_view pattern)
{
    auto parsed = Pattern::of(pattern);
    if (!parsed)
        return false;
    ownExcluded_.push_back(excluded_.size());
    excluded_.push_back({std::move(*parsed), false, std::string(pattern)});
    return true;
}

bool TreeRules::include(std::string_view pattern)
{
    auto parsed = Pattern::of(pattern);
    if (parsed)
        included_.push_back(std::move(*parsed));
    return parsed.has_value();
}

std::optional<std::size_t> TreeRules::excludeLines(std::string_view text)
{
    std::size_t number = 0;
    for (const std::string_view whole : pieces(text, '\n')) {
        ++number;
        const std::string_view line = bareLine(whole);
        if (line.empty() || line.starts_with('#'))
            continue;
        const bool takesBack = line.starts_with('!');
        auto parsed = Pattern::of(takesBack ? line.substr(1) : line);
        if (!parsed)
            return number;
        excluded_.push_back({std::move(*parsed), takesBack, std::string(line)});
    }
    return std::nullopt;
}

std::optional<Exclusion> TreeRules::excludes(const Subject& subject) const
{
    for (auto line = excluded_.rbegin(); line != excluded_.rend(); ++line) {
        if (!line->pattern.matches(subject.below, subject.isFolder))
            continue;
        if (!line->takesBack)
            return Exclusion{Rule::pattern, line->text};
        break;
    }
    if (skipsHidden && subject.isHidden)
        return Exclusion{Rule::hidden, {}};
    if (!subject.isFolder && !subject.isIncluded)
        return Exclusion{Rule::notIncluded, {}};
    return std::nullopt;
}

bool TreeRules::includes(std::string_view below, bool isFolder) const
{
    return included_.empty() || std::ranges::any_of(included_, [&](const Pattern& pattern) {
               return pattern.matches(below, isFolder);
           });
}

const Pattern& TreeRules::ownPattern(std::size_t number) const
{
    return number < included_.size() ? included_[number]
                                     : excluded_[ownExcluded_[number - included_.size()]].pattern;
}

IdlePatterns::IdlePatterns(const TreeRules& rules)
    : rules_(rules), numbers_(rules.ownPatternCount())
{
    std::iota(numbers_.begin(), numbers_.end(), std::size_t{0});
}

void IdlePatterns::meet(std::string_view below, bool isFolder)
{
    std::erase_if(numbers_, [&](std::size_t number) {
        return rules_.ownPattern(number).matches(below, isFolder);
    });
}

std::vector<std::string> IdlePatterns::texts() const
{
    std::vector<std::string> texts;
    for (const std::size_t number : numbers_)
        texts.push_back(rules_.ownPattern(number).text());
    return texts;
}

std::string idleSentence(const std::string& pattern)
{
    return "Nothing that was looked at matches the pattern \"" + pattern + "\".";
}

bool isCacheTag(std::string_view beginning)
{
    constexpr std::string_view signature = "Signature: 8a477f597d28d172789f06886806bc55";
    static_assert(signature.size() == kCacheTagBytes);
    return beginning.starts_with(signature);
}

std::vector<std::string> pathsOfList(std::string_view text)
{
    const char separator = text.find('\0') == std::string_view::npos ? '\n' : '\0';
    std::vector<std::string> paths;
    for (const std::string_view path : pieces(text, separator)) {
        if (!path.empty())
            paths.emplace_back(path);
    }
    return paths;
}

} // namespace stowline::backup
