// Who and where this program is, and other small general operations.
#pragma once

#include "stowline/platform/time/DateFormatter.h"
#include "stowline/platform/values/Value.h"
#include "stowline/util/Progress.h"

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// Static operations only. All may be called from any thread; none reports an error: what cannot
/// be told is absent. Nothing but the launch time is kept between calls.
class General {
public:
    General() = delete;

    /// A new random UUID, 36 characters, upper case (RFC 4122); absent when the system fails to
    /// make one.
    [[nodiscard]] static std::optional<std::string> uuid();

    /// The name people gave the machine; absent when it has none.
    [[nodiscard]] static std::optional<std::string> computerName();

    /// The machine's name on the local network, without domain; "Untitled System" when it has none.
    [[nodiscard]] static std::string localHostName();

    /// Identifies this installation to the service: a UUID text that stays the same over restarts
    /// and does not reveal the machine's own id; absent when the machine has none and none can be
    /// kept. See platform::hardwareUuid().
    [[nodiscard]] static std::optional<std::string> hardwareId();

    /// "CFBundleName" and "CFBundleShortVersionString" of the main bundle's information dictionary.
    [[nodiscard]] static std::optional<std::string> productName();
    [[nodiscard]] static std::optional<std::string> productVersion();

    /// "Mac/" and the product version, "Mac/(null)" when there is none.
    [[nodiscard]] static std::string userAgent();

    /// Whether an argument of the process is exactly "scheduled_launch". Read anew on each call.
    [[nodiscard]] static bool isScheduledLaunch();

    /// When an operation of this class, whichever, was first used in the process.
    [[nodiscard]] static Date launchTime();

    /// Bytes between two progress reports of a long operation on so many bytes: about a hundredth
    /// (of 62.5 MiB and more a thousandth), in whole multiples of 32 KiB and at least one.
    [[nodiscard]] static std::uint64_t progressSizeForSize(std::uint64_t sizeInBytes);

    /// Copies a regular file, links followed, to a path where there is nothing yet.
    ///
    /// Reports 0.0, then after every progressSizeForSize() bytes (not of a file of no bytes), then
    /// 1.0; the handler may stop the copy at each report, the last included. The stop flag is one
    /// for the whole copy. Content only: dates and extended attributes are those of a new file,
    /// permissions too, but never more than those of the source. Holes stay holes. Memory stays at
    /// one piece of 64 KiB. What the file system can copy by itself does not pass through this
    /// process. An exception of the handler is handed on.
    /// @param progressHandler may be absent
    /// @param whyNot an addition of this project: takes what the error line tells, a sentence
    ///        without its full stop; empty where there is no such line
    /// @return true only when the whole file is at the destination. Otherwise nothing of it is, and
    ///         an error line says why: the disk is full, the source cannot be read or changes its
    ///         size meanwhile, the destination or its folder goes away, there is no memory. That
    ///         the handler stopped it is logged nowhere. When the source is missing or a folder, or
    ///         something is at the destination already, false comes at once, nothing is touched and
    ///         nothing logged.
    [[nodiscard]] static bool copyFileAt(const std::string& source, const std::string& to,
                                         const ProgressHandler& progressHandler = {},
                                         std::string* whyNot = nullptr);

    /// The folder that a backup selection names: "home directory", "trash", "documents", "library",
    /// "desktop", "downloads", "movies", "music", "pictures" or "sharedpublic", in any case but as
    /// the whole argument. The folders are those of the current user; see platform::userFolder().
    /// @return the argument as it is when the user has no such folder; anything else as a
    ///         standardised path (platform::standardizedPath)
    [[nodiscard]] static std::string pathRepresentedByDirectoryString(const std::string& name);

    /// Whether an item is another or lies below it. Both must exist and be on one volume, and be
    /// given by absolute paths. Their components are compared exactly: case counts on every volume,
    /// "." and ".." are not resolved, trailing slashes do not matter.
    [[nodiscard]] static bool path(const std::string& path, const std::string& isSubPathOfPath);

    /// The number of the volume on which an item lives, the same for all its items as long as the
    /// process runs; 0 when the item is missing. See platform::volumeNumberOf().
    [[nodiscard]] static std::int16_t volumeRefNumFromPath(const std::string& path);

    /// The label of an item's volume, else the last component of its mount path; its mount path.
    /// Absent when the item is missing.
    [[nodiscard]] static std::optional<std::string> volumeNameFromPath(const std::string& path);
    [[nodiscard]] static std::optional<std::string> volumePathFromItemPath(const std::string& path);

    /// Whether an item lives on the volume of "/".
    [[nodiscard]] static bool isSystemVolumePath(const std::string& path);

    /// Whether people are not shown an item: its name begins with a full stop (known without a look
    /// at the disk), or a ".hidden" file beside it lists it. Not for an empty path or a missing
    /// item.
    [[nodiscard]] static bool isItemHidden(const std::string& path);

    /// Whether people are shown a folder as one file; whether an item is or lies in such a folder;
    /// whether it is a regular file. Links are not followed. Not for empty paths and missing items.
    [[nodiscard]] static bool isPathPackage(const std::string& path);
    [[nodiscard]] static bool isItemInPackage(const std::string& path);
    [[nodiscard]] static bool isItemPlainFile(const std::string& path);

    /// Whether a regular expression matches the whole text. Ends within about a second whatever the
    /// two are: what takes longer, or more than 8 MiB to go back over, counts as no match, as does
    /// a pattern that is none.
    [[nodiscard]] static bool string(std::string_view string, std::string_view matchesRegex);

    /// What the service takes: an address whose first domain label holds no underscore and whose
    /// last is two or more letters; 6 to 20 letters, digits and !@#$%^&*(); 2 to 30 letters, full
    /// stops, hyphens and white space, a letter first; 3 to 20 characters as in a password, and,
    /// but for the first, white space. Letters are those of ASCII.
    [[nodiscard]] static bool isEmailValid(std::string_view string);
    [[nodiscard]] static bool isPasswordValid(std::string_view string);
    [[nodiscard]] static bool isFullnameValid(std::string_view string);
    [[nodiscard]] static bool isSecretAnswerValid(std::string_view string);

    /// Writes dates for the e-mail that reports a backup, as "1/31/26, 9:05 PM": month, day, year
    /// of two digits and clock of twelve hours, with plain spaces, whatever the machine's language;
    /// local time. A new one on every call.
    [[nodiscard]] static platform::DateFormatter emailReportDateFormatter();

    /// "Stowline - Backup Report for 1/31/26, 9:05 PM".
    [[nodiscard]] static std::string createEmailReportSubjectWithAppName(std::string_view appName,
                                                                         Date reportDate);

    /// The body of that e-mail: the resource "backupReportEmailTemplate.html" with its ten markers
    /// ("||AppCaption||" and so on) replaced, one after the other. Values are put in as they are:
    /// one that may hold markup must be escaped by the caller, and one that holds a later marker is
    /// replaced again.
    /// @return absent when the template is missing or no UTF-8
    [[nodiscard]] static std::optional<std::string>
    createEmailReportHTMLBodyWithAppName(std::string_view appName, Date reportDate,
                                         std::string_view username, std::string_view machine,
                                         Date backupDate, std::uint64_t numNotChanged,
                                         std::uint64_t numBackedUp, std::uint64_t numFailed,
                                         std::uint64_t numProcessed, std::uint64_t sizeTransfered);

    /// "1.50 KB": steps of 1024 from Bytes to TB, two digits after the point, truncated, unless
    /// they are 00. From a terabyte on the two digits come from the lowest eight bits of the count,
    /// as the reports have always had it.
    [[nodiscard]] static std::string sizeString(std::uint64_t byteCount);

    /// Base64 of the text's UTF-8 bytes, with a line feed after every 32768 characters.
    [[nodiscard]] static std::string base64EncodeString(std::string_view text);
};

} // namespace stowline
#pragma GCC visibility pop
