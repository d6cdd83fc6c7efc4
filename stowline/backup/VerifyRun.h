// Proving a run: everything that it needs is on the service, and is what was stored.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::backup {

struct VerifyRequest {
    RunChoice choice;
    /// How much of the files' content is fetched and checked by its digest, 0 to 1; which files is
    /// chosen at random. The others are asked after only.
    double fractionRead = 0;
    std::size_t jobs = 4; ///< files that are read at the same time
    std::uint64_t bytesPerSecond = 0;
    std::uint64_t partBytes = 4U << 20;
};

/// A file whose content cannot be had back as it was stored.
struct VerifyFinding {
    enum class Kind {
        missing, ///< the service has the version, or its content, no more, or never had one
        damaged, ///< its size, checksum or bytes are others
        unknown, ///< it could not be found out; not counted as checked
    } kind = Kind::missing;
    std::string path;
    std::uint64_t firstRun = 0; ///< the version belongs to the runs from this one …
    std::uint64_t lastRun = 0;  ///< … to the one that was verified, at least
    std::string sentence;
};
[[nodiscard]] const char* nameOf(VerifyFinding::Kind kind);

class VerifyObserver {
public:
    virtual ~VerifyObserver() = default;
    /// One call at a time, from any thread.
    virtual void found(const VerifyFinding& /*finding*/) {}
    virtual void progress(std::uint64_t /*checked*/, std::uint64_t /*files*/) {}
};

struct VerifySummary {
    ReadEnd end = ReadEnd::failed; ///< badContent when anything is missing or damaged
    std::string sentence;
    std::uint64_t run = 0;
    RunOrigin origin;
    std::uint64_t checked = 0; ///< files whose state is known
    std::uint64_t missing = 0;
    std::uint64_t damaged = 0;
    std::uint64_t unknown = 0;
    std::uint64_t read = 0;  ///< of those checked, by their bytes
    std::uint64_t bytes = 0; ///< of the content of all that is whole
};

/// Checks every file of a run; of those that are one file under several names the first. A file of
/// which the run holds no content is missing. Blocks; nothing is thrown; nothing is changed.
[[nodiscard]] VerifySummary runVerify(const VerifyRequest& request, VerifyObserver& observer,
                                      const StopRequest& stop) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
