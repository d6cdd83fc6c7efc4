// What people look at, in a real browser: the e-mail report and the development service's page.
#include "stowline/util/General.h"
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <cstdlib>
namespace stowline {
namespace {

/// Runs the browser without a window, with a profile of the test's own.
class Browser {
public:
    /// The document as it stands after the page's own script has had five seconds.
    std::string documentAt(const std::string& url, const test::Words& more = {}) const
    {
        test::Words words{"/usr/bin/chromium",
                          "--headless=new",
                          "--no-sandbox",
                          "--disable-gpu",
                          "--disable-dev-shm-usage",
                          "--hide-scrollbars",
                          "--user-data-dir=" + profile_.path().string(),
                          "--virtual-time-budget=5000",
                          "--dump-dom"};
        words.insert(words.end(), more.begin(), more.end());
        words.push_back(url);
        const auto run = test::runProgram({words});
        EXPECT_EQ(run.status, 0) << run.errors;
        return run.output;
    }

private:
    test::TemporaryFolder profile_;
};

struct Look {
    double width = 0; ///< that the content needs
    double contrast = 0;
    bool isDark = false;
    std::string text; ///< that is shown
};

/// How a document looks in a frame of a width: its own script does not run.
Look lookOf(const std::string& html, int width, bool dark)
{
    const std::string script = R"js(
        const frame = document.createElement("iframe");
        frame.style.cssText = `border:0;width:${WIDTH}px;height:600px`;
        frame.sandbox = "allow-same-origin"; // and no script
        frame.srcdoc = HTML;
        frame.onload = () => {
            const view = frame.contentWindow, root = frame.contentDocument;
            const light = color => { // relative luminance, WCAG 2.1
                const [r, g, b] = color.match(/[\d.]+/g).map(Number).map(v => v / 255)
                    .map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
                return 0.2126 * r + 0.7152 * g + 0.0722 * b;
            };
            const groundOf = element => { // what nobody colours is the white of the paper
                while (element && view.getComputedStyle(element).backgroundColor === "rgba(0, 0, 0, 0)")
                    element = element.parentElement;
                return element ? view.getComputedStyle(element).backgroundColor : "rgb(255, 255, 255)";
            };
            let worst = 21;
            for (const cell of root.querySelectorAll("td")) {
                if (!cell.textContent.trim() || cell.querySelector("td")) continue;
                const pair = [light(view.getComputedStyle(cell).color), light(groundOf(cell))];
                worst = Math.min(worst, (Math.max(...pair) + 0.05) / (Math.min(...pair) + 0.05));
            }
            const page = light(groundOf(root.body));
            document.title = JSON.stringify({width: root.documentElement.scrollWidth,
                                             contrast: worst, dark: page < 0.2,
                                             text: root.body.innerText});
        };
        document.body.append(frame);
    )js";
    const test::TemporaryFolder folder;
    const auto file = folder.write(
        "look.html",
        fmt::format(
            "<!DOCTYPE html><html><head><title></title></head><body><script>const WIDTH={};"
            "const HTML={};{}</script></body></html>",
            width,
            [&html] { // no "</script>" inside the script
                std::string text = nlohmann::json(html).dump();
                for (auto at = text.find("</"); at != std::string::npos;
                     at = text.find("</", at + 3))
                    text.replace(at, 2, "<\\/");
                return text;
            }(),
            script));
    const std::string document = Browser().documentAt(
        "file://" + file.string(),
        {std::string("--blink-settings=preferredColorScheme=") + (dark ? "0" : "1"),
         "--window-size=1400,900"});
    const auto start = document.find("<title>") + 7;
    const auto title = document.substr(start, document.find("</title>") - start);
    const auto read = nlohmann::json::parse(title, nullptr, false);
    if (read.is_discarded()) {
        ADD_FAILURE() << "the browser did not look: " << title;
        return {};
    }
    return {read["width"], read["contrast"], read["dark"], read["text"]};
}

/// A report with names as unkind as they come.
std::string report()
{
    const test::BackedUp account;
    account.folder.write("a", "1");
    const auto run = account.run({"backup", account.folder.path().string(), "--system",
                                  "machine-" + std::string(60, 'x') + "<b>||num failed||&"});
    EXPECT_EQ(run.status, 0) << run.errors;
    const auto file = account.folder.path() / "report.html";
    EXPECT_EQ(account.run({"email", "--save", file.string()}).status, 0);
    return platform::readFile(file).value();
}

TEST(ReportInABrowser, ReadsWellOnPhoneAndDesktopInLightAndDark)
{
    const std::string html = report();
    EXPECT_NE(html.find("&lt;b&gt;&#124;&#124;num failed"), std::string::npos);
    for (const int width : {360, 1280}) {
        for (const bool dark : {false, true}) {
            const Look look = lookOf(html, width, dark);
            EXPECT_LE(look.width, width) << dark;
            EXPECT_GE(look.contrast, 4.5) << width << dark;
            EXPECT_EQ(look.isDark, dark) << width;
        }
    }
}

/// A report of a good run after which no runs are forgotten, for too much is gone.
std::string suspendedReport()
{
    const test::BackedUp account;
    for (int i = 0; i < 20; ++i)
        account.folder.write("d/" + std::to_string(i), "1");
    account.folder.write("stays", "1");
    EXPECT_EQ(account.backup().status, 0);
    std::filesystem::remove_all(account.folder.path() / "d");
    EXPECT_EQ(account.backup({"--keep-last", "1"}).status, 0);
    const auto file = account.folder.path() / "report.html";
    EXPECT_EQ(account.run({"email", "--save", file.string()}).status, 0);
    return platform::readFile(file).value();
}

TEST(ReportInABrowser, ReadsWellWhereForgettingIsSuspended)
{
    const std::string html = suspendedReport();
    EXPECT_NE(html.find("class=\"todo\""), std::string::npos) << html;
    for (const bool dark : {false, true}) {
        const Look look = lookOf(html, 360, dark);
        EXPECT_LE(look.width, 360) << dark;
        EXPECT_GE(look.contrast, 4.5) << dark;
    }
}

TEST(ReportInABrowser, ReadsWellWithoutItsStyleSheet)
{
    std::string html = report();
    const auto start = html.find("<style>");
    html.erase(start, html.find("</style>") + 8 - start);
    const Look look = lookOf(html, 360, true);
    EXPECT_LE(look.width, 360);
    EXPECT_GE(look.contrast, 4.5);
    EXPECT_FALSE(look.isDark);
}

/// An account whose page has something in most of its tables, from machines with unkind names.
class BackedUpWithOddNames : public test::BackedUp {
public:
    explicit BackedUpWithOddNames(const std::vector<std::string>& serverArguments)
        : BackedUp(serverArguments)
    {
        folder.write("d/a", "1");
        auto tested = backupRun({"--report", "--self-test", "100%", "--monitor"});
        tested.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", "token-1");
        EXPECT_EQ(test::runProgram(tested).status, 0);
        EXPECT_EQ(backup({"/nonexistent", "--report"}).status, 3);
        const std::string d = (folder.path() / "d").string();
        for (const std::string& name : {std::string("<script>document.title='owned'</script>"),
                                        "\xd7\x91\xd7\x99\xd7\xaa " + std::string(3900, 'x')}) {
            const auto run = this->run({"backup", d, "--system", name, "--adopt"});
            EXPECT_EQ(run.status, 0) << run.errors;
        }
        EXPECT_EQ(run({"rm", "--yes", d, "--system", "iMac", "--poll", "0.01"}).status, 0);
    }
};

/// What tests/page_in_browser.py looks at; each is told there.
class PageInABrowser : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Checks, PageInABrowser,
                         testing::Values("look", "keyboard", "reader", "refresh", "away", "ended",
                                         "plain", "policy"),
                         [](const auto& check) { return std::string(check.param); });

TEST_P(PageInABrowser, IsAsPromised)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Wants a machine that is not busy with other tests; scripts/test --long "
                        "runs it.";
    const test::TemporaryFolder folder;
    const BackedUpWithOddNames account(
        {"--monitoring-tokens", folder.write("tokens", "token-1\n")});
    const auto looked =
        test::runProgram({{"/usr/bin/python3", test::sourceFile("tests/page_in_browser.py"),
                           GetParam(), account.server.address(), "ann", "token-1"},
                          {},
                          account.password + "\n"});
    EXPECT_EQ(looked.status, 0) << looked.errors;
    EXPECT_EQ(looked.output, "as promised\n");
}

} // namespace
} // namespace stowline
