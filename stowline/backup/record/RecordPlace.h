// Where records lie: the service, or memory in tests.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// The folder of a machine's files on the service that holds a folder for each chain. No path of a
/// machine can produce it.
inline constexpr std::string_view kRecordFolder = "/=stowline=/records";

/// One stored record.
struct RecordFile {
    std::string name; ///< "00000012-finished"; anything else may lie there too
    std::uint64_t size = 0;
    std::string id; ///< by which the place finds its bytes; empty after put() is fine
};

/// The records of one account and machine name. Operations throw RecordFault; each tries again
/// within its budget by itself. One thread at a time.
class RecordPlace {
public:
    virtual ~RecordPlace() = default;

    /// Names of the chains that have records; none when the machine has none.
    [[nodiscard]] virtual std::vector<std::string> chains() = 0;

    /// What lies in the folder of a chain, in any order; none when there is no such chain. A
    /// listing that fails is a fault, never an empty answer.
    [[nodiscard]] virtual std::vector<RecordFile> files(const std::string& chain) = 0;

    /// Hands over a record's bytes from its start, in pieces; ends early when `take` returns false.
    virtual void get(const std::string& chain, const RecordFile& file,
                     const std::function<bool(std::string_view)>& take) = 0;

    /// Stores a record under a name, from a file of this machine. Durable and to be found by
    /// files() when it returns.
    virtual void put(const std::string& chain, const std::string& name,
                     const std::filesystem::path& file) = 0;

    /// Takes a record away, with all that lies under its name; one that is gone already is no
    /// fault. When it returns files() does not show it any more.
    virtual void remove(const std::string& chain, const RecordFile& file) = 0;

    /// When the place took the record, in seconds since 1970 by its own clock.
    /// @return absent when it does not tell
    [[nodiscard]] virtual std::optional<std::int64_t> storedAt(const std::string& chain,
                                                               const RecordFile& file) = 0;
};

} // namespace stowline::backup
