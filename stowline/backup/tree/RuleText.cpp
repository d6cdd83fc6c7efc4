#include "stowline/backup/tree/RuleText.h"

#include <algorithm>
#include <array>

namespace stowline::backup {

namespace {

using Kind = NotedRule::Kind;

/// How a rule begins, or all of it where it has no text of its own.
struct Form {
    Kind kind;
    std::string_view word;
    bool hasText = false;
};

constexpr std::array kForms{Form{Kind::include, "include ", true},
                            Form{Kind::exclude, "exclude ", true},
                            Form{Kind::excludeFrom, "exclude-from ", true},
                            Form{Kind::skipsHidden, "skip-hidden"},
                            Form{Kind::skipsCaches, "exclude-caches"},
                            Form{Kind::staysOnFileSystem, "one-file-system"},
                            Form{Kind::tooLong, "too long to be noted"}};

} // namespace

std::string textOf(const NotedRule& rule)
{
    const auto* const form = std::ranges::find(kForms, rule.kind, &Form::kind);
    if (form == kForms.end())
        return rule.text;
    return std::string(form->word) + (form->hasText ? rule.text : "");
}

NotedRule parsedRule(std::string_view text)
{
    for (const Form& form : kForms) {
        if (form.hasText && text.starts_with(form.word))
            return {form.kind, std::string(text.substr(form.word.size()))};
        if (!form.hasText && text == form.word)
            return {form.kind, {}};
    }
    return {Kind::unknown, std::string(text)};
}

} // namespace stowline::backup
