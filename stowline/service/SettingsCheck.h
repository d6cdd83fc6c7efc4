// Looking a settings file over before it is used.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// One thing that is wrong with a settings file.
struct SettingsFault {
    int line = 0;     ///< from 1; 0 when it has none (binary files, missing entries of the root)
    std::string path; ///< where, as "WebServices.Authenticate.soapParams[0].name"; may be empty
    std::string sentence; ///< what is wrong and what to do, ending in a full stop
};

/// Every fault of a settings file, by line: what cannot be read, missing tables and entries, values
/// of the wrong type, keys written twice or misspelt, placeholders that a method fills and no
/// template uses, a wrong number of "%@" in a "URL", names that are not header or element names.
/// Reentrant.
[[nodiscard]] std::vector<SettingsFault> checkSettings(std::string_view bytes);

/// Whether a settings file says how content is got back: it has both "GetRestoreTicket" and
/// "DownloadFilePart". A file with neither is in order all the same. Reentrant.
[[nodiscard]] bool configuresRestoring(std::string_view bytes);

/// The same of getting back what was deleted: "GetDeletedFiles" and "UndeleteFiles".
[[nodiscard]] bool configuresUndeleting(std::string_view bytes);

} // namespace stowline
#pragma GCC visibility pop
