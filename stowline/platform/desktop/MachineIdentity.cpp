#include "stowline/platform/desktop/MachineIdentity.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"

#include <cerrno>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/utsname.h>

namespace stowline::platform {

namespace fs = std::filesystem;

namespace {

using UuidBytes = std::array<std::uint8_t, 16>;

/// Version and variant bits as RFC 4122 section 4.4 sets them.
std::string uuidText(UuidBytes bytes)
{
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text.push_back('-');
        text.push_back(digits[bytes.at(i) >> 4]);
        text.push_back(digits[bytes.at(i) & 0x0FU]);
    }
    return text;
}

/// 32 hexadecimal digits, and not all zero ("uninitialized" and empty files are not ids).
bool isMachineId(std::string_view text)
{
    return text.size() == 32 &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos &&
           text.find_first_not_of('0') != std::string_view::npos;
}

} // namespace

bool isUuid(std::string_view text)
{
    static constexpr std::string_view form = "00000000-0000-0000-0000-000000000000";
    return std::ranges::equal(text, form, [](char character, char place) {
        return place == '-' ? character == '-'
                            : g_ascii_isxdigit(character) != 0; // GLib's, as the locale's varies
    });
}

namespace {

std::optional<std::string> uuidIn(const fs::path& file)
{
    const auto kept = readFile(file);
    if (!kept || !isUuid(withoutTrailingBlanks(*kept)))
        return std::nullopt;
    return std::string(withoutTrailingBlanks(*kept));
}

/// While it exists, no other process is in a folder's turn. Where the file system has no locks it
/// holds nobody back.
class FolderTurn {
public:
    explicit FolderTurn(const fs::path& folder)
        : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        while (::flock(folder_.number(), LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    /// Gives it back also where a fork of this process still has the folder open.
    ~FolderTurn() { ::flock(folder_.number(), LOCK_UN); }
    FolderTurn(const FolderTurn&) = delete;
    FolderTurn& operator=(const FolderTurn&) = delete;

private:
    FileDescriptor folder_;
};

/// Makes a file with an id of its own, whole, unless somebody else is quicker. One process at a
/// time, so that a damaged file is replaced once.
bool keepUuid(const fs::path& file)
{
    const auto fresh = randomUuid();
    if (!fresh || !makePrivateFolder(file.parent_path()))
        return false;
    const FolderTurn turn(file.parent_path());
    std::error_code fault;
    if (fs::exists(file, fault)) // somebody was quicker, or it is something else
        return uuidIn(file) || writeFileAtomically(file, *fresh + "\n");
    const fs::path own = file.string() + "." + *fresh;
    if (!writeFileAtomically(own, *fresh + "\n"))
        return false;
    fs::create_hard_link(own, file, fault); // the first one gets the name
    if (fault && fault != std::errc::file_exists)
        fs::copy_file(own, file, fs::copy_options::none, fault);
    std::error_code ignored;
    fs::remove(own, ignored);
    return true;
}

std::optional<std::string> keptUuid(const fs::path& file)
{
    if (auto kept = uuidIn(file))
        return kept;
    return keepUuid(file) ? uuidIn(file) : std::nullopt;
}

std::optional<std::string> hostName()
{
    utsname names{};
    if (::uname(&names) != 0 || names.nodename[0] == '\0')
        return std::nullopt;
    return std::string(names.nodename);
}

} // namespace

std::optional<std::string> randomUuid()
{
    UuidBytes bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return std::nullopt;
    return uuidText(bytes);
}

std::string derivedUuid(std::string_view purpose, std::string_view text)
{
    const std::unique_ptr<GHmac, decltype(&g_hmac_unref)> hmac(
        g_hmac_new(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(purpose.data()),
                   purpose.size()),
        &g_hmac_unref);
    g_hmac_update(hmac.get(), reinterpret_cast<const guchar*>(text.data()),
                  static_cast<gssize>(text.size()));
    std::array<guint8, 32> digest{};
    gsize length = digest.size();
    g_hmac_get_digest(hmac.get(), digest.data(), &length);
    UuidBytes bytes{};
    std::copy_n(digest.begin(), bytes.size(), bytes.begin());
    return uuidText(bytes);
}

std::optional<std::string> computerName()
{
    if (const auto info = readFile("/etc/machine-info")) {
        if (auto pretty = assignedValue(*info, "PRETTY_HOSTNAME"))
            return pretty;
    }
    return hostName();
}

std::optional<std::string> localHostName()
{
    const auto name = hostName();
    if (!name)
        return std::nullopt;
    const std::string label = name->substr(0, name->find('.'));
    return label.empty() || label == "localhost" || label == "(none)" ? std::nullopt
                                                                      : std::optional(label);
}

IdentitySources IdentitySources::ofThisMachine()
{
    IdentitySources sources;
    if (const auto folder = stateFolder())
        sources.keptIdentity = *folder / "installation-id";
    return sources;
}

std::optional<std::string> hardwareUuid(const IdentitySources& sources)
{
    for (const fs::path& file : sources.machineIdFiles) {
        const auto content = readFile(file);
        const std::string id = content ? asciiLowercase(withoutTrailingBlanks(*content)) : "";
        if (isMachineId(id))
            return derivedUuid("com.stowline.hardware-identity.1", id);
    }
    return sources.keptIdentity ? keptUuid(*sources.keptIdentity) : std::nullopt;
}

std::vector<std::string> processArguments()
{
    std::vector<std::string> words;
    const std::string all = readFile("/proc/self/cmdline").value_or("");
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find('\0', begin), all.size());
        words.push_back(all.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

std::string processName()
{
    return program_invocation_short_name;
}

int processNumber()
{
    return ::getpid();
}

} // namespace stowline::platform
