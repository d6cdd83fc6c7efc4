// Stored content on its way back: tickets, parts, several at a time.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/transfer/Pace.h"
#include "stowline/backup/transfer/Tries.h"
#include "stowline/platform/text/Data.h"
#include "stowline/service/FilePart.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::backup {

/// Why content did not come.
struct FetchFailure {
    enum class Kind {
        failed,        ///< for good
        temporary,     ///< tried until the time was used up
        refused,       ///< the service said no
        interrupted,   ///< the run was asked to stop
        missing,       ///< the service has it no more
        badContent,    ///< what comes is not what was stored
        notConfigured, ///< the settings do not say how content is read
        notTaken,      ///< whoever it was handed to wanted no more
    } kind = Kind::failed;
    std::string reason; ///< a sentence with its full stop

    /// Whether the service has not what was stored.
    [[nodiscard]] bool isLoss() const { return kind == Kind::missing || kind == Kind::badContent; }
};

/// Leave to read an account's content, asked for when it is needed and anew before it ends. Any
/// thread; one asks at a time.
class TicketKeeper {
public:
    TicketKeeper(const Account& account, std::function<Moment()> now)
        : account_(account), now_(std::move(now))
    {
    }

    /// @return absent: the call failed, see the error slot; nothing there: the service said no
    [[nodiscard]] std::optional<std::string> ticket(std::optional<Error>& error);

    /// Notes that a ticket is not taken any more.
    void drop(const std::string& ticket);

private:
    const Account account_;
    const std::function<Moment()> now_;
    std::mutex mutex_;
    std::string text_;
    Moment renewAt_;
};

/// Reads versions of an account. Any thread.
class ContentSource {
public:
    ContentSource(const Account& account, Tries& tries, BandwidthLimit& bandwidth,
                  std::uint64_t partBytes);

    /// Takes pieces in their order. @return whether it wants more
    using Take = std::function<bool(std::string_view)>;

    /// Hands over a version's bytes from a place to its end, while the next parts are on their way.
    /// Each part comes with its checksum; one that does not fit, or is said to be of a version of
    /// another size or digest, is fetched again some times.
    /// @param size bytes that the version must have
    /// @param digest SHA-256 of all its bytes, as the service holds them; empty: not known
    /// @return absent when everything was handed over
    [[nodiscard]] std::optional<FetchFailure> read(const std::string& version, std::uint64_t from,
                                                   std::uint64_t size, const Take& take,
                                                   const std::string& digest = {});

    /// Bytes that came, of all reads together.
    [[nodiscard]] std::uint64_t receivedBytes() const { return received_; }

private:
    struct Part {
        Data bytes;
        std::optional<FetchFailure> failure;
    };
    /// A part to be fetched, and the version that it is of.
    struct Wanted {
        const std::string& version;
        const std::string& digest; ///< empty: not known
        std::uint64_t size = 0;    ///< of the version
        std::uint64_t offset = 0;
        std::uint64_t length = 0;
    };
    [[nodiscard]] Part fetch(const Wanted& wanted);
    /// One try. @return whether it is over, with bytes or with a failure that stays
    [[nodiscard]] bool fetchOnce(const Wanted& wanted, Part& part, int& spoiled,
                                 std::optional<Error>& error);
    [[nodiscard]] static bool isOfOtherVersion(const FilePart& got, const Wanted& wanted);

    const Account account_;
    Tries& tries_;
    BandwidthLimit& bandwidth_;
    const std::uint64_t partBytes_;
    TicketKeeper tickets_;
    std::atomic<std::uint64_t> received_ = 0;
};

} // namespace stowline::backup
