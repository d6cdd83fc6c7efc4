#include "devserver/page/PageFrame.h"

#include "devserver/page/Html.h"
#include "devserver/page/PageResources.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

std::string headHtml(std::string_view nonce, std::string_view title)
{
    return fmt::format("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                       "<meta name=\"color-scheme\" content=\"light dark\">"
                       "<title>{}Stowline development service</title>\n"
                       "<style nonce=\"{}\">\n{}</style></head>\n",
                       title, nonce, kPageStyle);
}

const char* sentenceOf(SignInNote note)
{
    switch (note) {
    case SignInNote::none:
        break;
    case SignInNote::refused:
        return "User name or password is wrong.";
    case SignInNote::tooMany:
        return "Too many sign-ins failed. Please try again in a minute.";
    case SignInNote::ended:
        return "You are no longer signed in. A sign-in is good for an hour.";
    }
    return "";
}

std::string noteHtml(SignInNote note)
{
    if (note == SignInNote::none)
        return "";
    return fmt::format("<p id=\"trouble\" class=\"bad\" role=\"alert\">{}</p>\n", sentenceOf(note));
}

} // namespace

std::string signInPage(std::string_view nonce, SignInNote note, std::string_view typedName,
                       std::string_view ownAddress)
{
    const bool isRefused = note == SignInNote::refused;
    const char* describedBy = note == SignInNote::none ? "" : " aria-describedby=\"trouble\"";
    return headHtml(nonce, isRefused ? "Sign-in refused – " : "Sign in – ") +
           fmt::format(
               "<body class=\"sign-in\"><main>\n<h1>Stowline development service</h1>\n{0}"
               "<form method=\"post\" action=\"/sign-in\">\n"
               "<label for=\"user\">User name</label>\n"
               "<input id=\"user\" name=\"user\" autocomplete=\"username\" autocapitalize=\"none\" "
               "spellcheck=\"false\" dir=\"auto\" required value=\"{1}\"{2}{3}>\n"
               "<label for=\"password\">Password</label>\n"
               "<input id=\"password\" name=\"password\" type=\"password\" "
               "autocomplete=\"current-password\" required{2}{4}>\n"
               "<button>Sign in</button>\n</form>\n"
               "<p class=\"note\">An account is opened on a machine that backs up here: "
               "<code>stowline connect {5}</code>, then <code>stowline signup</code>. Its user "
               "name "
               "and password are those of this page.</p>\n</main></body></html>\n",
               noteHtml(note), htmlText(typedName), describedBy,
               typedName.empty() ? " autofocus" : "", typedName.empty() ? "" : " autofocus",
               htmlText(ownAddress));
}

std::string overviewPage(std::string_view nonce, const FrameParts& parts)
{
    return headHtml(nonce, "") +
           fmt::format(
               "<body>\n<a class=\"skip\" href=\"#content\">Skip to the overview</a>\n"
               "<header>\n<h1>Stowline development service</h1>\n"
               "<div class=\"who\"><p>Signed in as {0}{1}</p>\n"
               "<form method=\"post\" action=\"/sign-out\"><button>Sign out</button></form></div>\n"
               "<p class=\"fresh\"><span>As of <span id=\"as-of\">{2}</span> (UTC).</span> "
               "<a id=\"reload\" href=\"/\">Reload</a> "
               "<button id=\"pause\" type=\"button\" aria-pressed=\"false\" hidden>Pause updates"
               "</button></p>\n<p id=\"news\" role=\"status\"></p>\n</header>\n"
               "<main id=\"content\" tabindex=\"-1\">\n{3}</main>\n"
               "<script nonce=\"{4}\">\n{5}</script></body></html>\n",
               htmlName(parts.viewer), parts.isOfAll ? ", administrator: all accounts" : "",
               momentText(parts.madeAt), parts.overview, nonce, kPageScript);
}

} // namespace stowline::devserver
