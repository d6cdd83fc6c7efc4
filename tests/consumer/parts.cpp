// Something of every part of the library, so that a part that is not exported is a fault of
// linking.
#include "stowline/branding/AccountProvider.h"
#include "stowline/logging/ContextFilters.h"
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDTTYLogger.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/logging/SQLiteLogger.h"
#include "stowline/net/Reachability.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/Base64.h"
#include "stowline/util/CoreDataMethods.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/DateMethods.h"
#include "stowline/util/FileMethods.h"
#include "stowline/util/General.h"
#include "stowline/util/StringMethods.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>

int main()
{
    using namespace stowline;
    const std::filesystem::path folder = std::getenv("HOME");
    DDLog::addLogger(std::make_shared<DDFileLogger>(
        std::make_shared<DDLogFileManagerDefault>((folder / "logs").string())));
    DDLog::addLogger(SQLiteLogger::open((folder / "log.sqlite").string(), nullptr));
    STOWLINE_LOG_INFO("%@ from outside", "hello");
    DDLog::flushLog();

    std::optional<Error> error;
    const auto store = ManagedObjectContext::open(
        (folder / "store.sqlite").string(), {{"File", {{"name", AttributeType::string}}}}, &error);
    if (!store)
        return 1;
    store->insertObject(*store->entityNamed("File"))->setValue("name", "a");
    if (!store->save(&error) ||
        CoreDataMethods::TW_countForEntityForName(*store, "File", std::nullopt) != 1)
        return 1;
    const bool isReachable = Reachability::isHostReachable("localhost");
    const auto answer = WebServicesSettings::webMethodInfo("Authenticate");
    std::cout << Base64::base64EncodingWithLineLength("hello", 0) << " "
              << General::sizeString(1536) << " " << StringMethods::TW_parseBool("yes") << " "
              << checkSettings("no property list").size() << " " << isReachable
              << answer.has_value() << " " << DateMethods::TW_ISO8601DateTimeFromDate(Date()).size()
              << "\n";
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    return 0;
}
