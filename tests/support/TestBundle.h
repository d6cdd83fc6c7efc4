// A bundle folder made for one test.
#pragma once

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/values/PropertyList.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPaths.h"

namespace stowline::test {

/// Points this process's main bundle at a folder with these contents, and its executable at the
/// built programs (or at another folder, for helpers of the test's own). Before any other use of
/// the bundle; every test has a process of its own.
class TestBundle {
public:
    explicit TestBundle(Dictionary settings, Dictionary info = {},
                        const std::filesystem::path& helpers = test::builtPrograms())
    {
        info.emplace("CFBundleShortVersionString", "5.2.1");
        info.emplace("TW_WebServicesSettingsFilename", "Settings.plist");
        folder_.write("Info.plist", platform::writeXmlPropertyList(info).value());
        folder_.write("Resources/Settings.plist",
                      platform::writeXmlPropertyList(std::move(settings)).value());
        platform::Bundle::useFolder(folder_.path());
        platform::Bundle::useExecutable(helpers / "stowline");
    }

    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

private:
    TemporaryFolder folder_;
};

/// Settings with a reachable host and one web method.
[[nodiscard]] inline Dictionary settingsWith(const std::string& method, Dictionary entry,
                                             const std::string& host = "127.0.0.1")
{
    return {{"URLS", Dictionary{{"ReachabilityHost", host}}},
            {"WebServices", Dictionary{{method, std::move(entry)}}}};
}

/// A parameter or header entry of a method.
[[nodiscard]] inline Value named(const std::string& name, const std::string& templateText)
{
    return Dictionary{{"name", name}, {"template", templateText}};
}

} // namespace stowline::test
