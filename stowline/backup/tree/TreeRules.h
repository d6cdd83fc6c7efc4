// What is left out of a backup, and why: decisions over names, without a look at the disk.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// Why an item is left out. What lies in a folder that is left out is not looked at.
enum class Rule {
    pattern,          ///< --exclude, or a line of --exclude-from
    notIncluded,      ///< there are --include patterns, and none matches
    hidden,           ///< --skip-hidden
    cacheFolder,      ///< --exclude-caches: a folder with a CACHEDIR.TAG
    otherFileSystem,  ///< --one-file-system
    pseudoFileSystem, ///< shows the state of the system (/proc, /sys, …); taken when it is named
    ownFolder         ///< the folder in which backups keep their own state
};

struct Exclusion {
    Rule rule = Rule::pattern;
    std::string pattern; ///< as it was written, of Rule::pattern

    bool operator==(const Exclusion&) const = default;
};

/// For people: "the pattern *.o", "hidden".
[[nodiscard]] std::string sentenceOf(const Exclusion& exclusion);

/// A pattern as in .gitignore files:
///
/// - without a slash (but at its end) it matches names at any depth: "*.o", "build";
/// - with a slash at its beginning or inside it matches paths from the named path on: "/a.txt" is
///   in the named folder itself, "src/?.c" in its folder src;
/// - a slash at its end: folders only;
/// - "*", "?" and "[…]" match no slash; "**" as a whole name matches any number of folders, none
///   too: at the beginning of a pattern, between two names, and at its end, where it means
///   everything in the folder before it but not that folder;
/// - "\" takes the next character as it is.
///
/// Bytes are compared as they are. (rsync's "/x" and "x/" mean the same; its first match wins where
/// here the last one does.)
class Pattern {
public:
    /// Absent for a pattern without a name: "", "/", "//".
    [[nodiscard]] static std::optional<Pattern> of(std::string_view text);

    /// @param below path of the item from the named path on, without a leading slash
    [[nodiscard]] bool matches(std::string_view below, bool isFolder) const;

    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
    std::vector<std::string> names_;
    bool isAnchored_ = false;
    bool isForFolders_ = false;
};

/// The rules of a run. A plain value; any number of threads may ask.
class TreeRules {
public:
    /// Adds a pattern to be left out, or one to be taken. @return false when it is none
    [[nodiscard]] bool exclude(std::string_view pattern);
    [[nodiscard]] bool include(std::string_view pattern);

    /// Adds the lines of an --exclude-from file: one pattern each; empty lines and those that begin
    /// with "#" count for nothing; "!" before a pattern takes back what an earlier one left out
    /// (but nothing out of a folder that is left out); blanks at the end go unless a "\" stands
    /// before; so do a carriage return at the end and a byte order mark at the beginning.
    /// @return the number of the first line that is not a pattern, from 1; absent when all are
    [[nodiscard]] std::optional<std::size_t> excludeLines(std::string_view text);

    bool skipsHidden = false;
    bool skipsCaches = false;
    bool staysOnFileSystem = false;

    /// One item below a named path; what is named itself is always taken.
    struct Subject {
        std::string_view below; ///< path from the named path on
        bool isFolder = false;
        bool isHidden = false;   ///< begins with a full stop, or ".hidden" beside it lists it
        bool isIncluded = false; ///< it or a folder above it matches an --include pattern
    };

    /// Of the patterns, the last one that matches decides. Include patterns are for all but
    /// folders: when there are any, an item is taken only if one matches it or a folder above it;
    /// what is excluded stays so.
    [[nodiscard]] std::optional<Exclusion> excludes(const Subject& subject) const;

    /// Whether an include pattern matches this very item; true when there are none.
    [[nodiscard]] bool includes(std::string_view below, bool isFolder) const;

    [[nodiscard]] bool hasIncludes() const { return !included_.empty(); }

    /// The patterns of include() and exclude(), in this order; not the lines of a file, which is
    /// written once for many trees.
    [[nodiscard]] std::size_t ownPatternCount() const
    {
        return included_.size() + ownExcluded_.size();
    }
    [[nodiscard]] const Pattern& ownPattern(std::size_t number) const;

private:
    struct Line {
        Pattern pattern;
        bool takesBack = false;
        std::string text;
    };
    std::vector<Line> excluded_;
    std::vector<std::size_t> ownExcluded_; ///< which of them are those of exclude()
    std::vector<Pattern> included_;
};

/// Which of a run's own patterns have matched nothing so far: a misspelt one would else never show.
/// One thread at a time.
class IdlePatterns {
public:
    /// @param rules must outlive this
    explicit IdlePatterns(const TreeRules& rules);

    /// Notes an item that was looked at. @param below path of it from the named path on
    void meet(std::string_view below, bool isFolder);

    /// As they were written, the --include ones first.
    [[nodiscard]] std::vector<std::string> texts() const;

private:
    const TreeRules& rules_;
    std::vector<std::size_t> numbers_;
};

/// For people: that a pattern matched nothing.
[[nodiscard]] std::string idleSentence(const std::string& pattern);

/// Whether a file CACHEDIR.TAG that begins so marks a cache (bford.info/cachedir).
inline constexpr std::string_view kCacheTagName = "CACHEDIR.TAG";
inline constexpr std::size_t kCacheTagBytes = 43;
[[nodiscard]] bool isCacheTag(std::string_view beginning);

/// The paths of a --files-from list: separated by NUL bytes when it holds any, else one a line.
/// Empty ones count for nothing; there are no comments, every other byte is part of a name.
[[nodiscard]] std::vector<std::string> pathsOfList(std::string_view text);

} // namespace stowline::backup
#pragma GCC visibility pop
