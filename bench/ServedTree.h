// Trees of files that are all alike, and a development service that holds them without having been
// sent each: what the benchmarks of whole runs begin with.
#pragma once

#include "devserver/Storage.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/index/StoredItem.h"
#include "tests/support/DevServerProcess.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace stowline::bench {

/// Throws what ends a benchmark.
[[noreturn]] void giveUp(const std::string& sentence);
void expect(bool isSo, const std::string& sentence);

/// Does a benchmark; what it throws is told and ends the program.
void measureOrEnd(const std::function<void()>& work);

/// Makes temporary folders lie in memory.
void onMemory();

struct Shape {
    int folders = 0;
    int filesInEach = 0;
    std::string content; ///< a file with content takes a page of memory

    [[nodiscard]] std::uint64_t files() const
    {
        return static_cast<std::uint64_t>(folders) * static_cast<std::uint64_t>(filesInEach);
    }
};
void makeTree(const std::filesystem::path& top, const Shape& shape);

struct Figures {
    double microseconds = 0;
    double processor = 0; ///< microseconds of it, and of the processes that it started
    double mebibytes = 0; ///< at the most
};

/// Does something in a process of its own, which fails when it throws.
[[nodiscard]] Figures measured(const std::function<void()>& work);
/// The medians of several, and the most memory.
[[nodiscard]] Figures mediansOf(const std::vector<Figures>& all);

/// The run that the first one over a prepared tree makes: before it a single file was stored.
inline constexpr std::uint64_t kFirstRun = 2;

/// A service with an account that this process may use, and one stored file.
class ServedTree {
public:
    /// @param folder where that file, and the state of runs, lie
    /// @param content of that file, and of those whose content it is to stand for
    ServedTree(const std::filesystem::path& folder, const std::string& content);

    /// Makes the runs to come be of a tree, and find everything in it known as the content that was
    /// stored.
    void prepare(const std::filesystem::path& top);

    /// Whole runs over what was prepared. Throw unless they end well.
    void runUnchanged(std::uint64_t files) const;
    /// @param target of a restore of the whole tree
    void restoreTo(const std::filesystem::path& target, std::uint64_t files, bool isRight) const;

    /// Stores a file that was not known.
    void store(const std::filesystem::path& file);

    /// The bytes that the record of a run takes on the service.
    [[nodiscard]] std::uint64_t recordSize(std::uint64_t run) const;
    /// What the service says of the newest version of a file.
    [[nodiscard]] devserver::StoredVersion versionOf(const std::string& name) const;
    [[nodiscard]] const backup::Account& account() const { return request_.account; }

private:
    void prepareIndex() const;
    [[nodiscard]] backup::BackupSummary run() const;
    [[nodiscard]] devserver::StoredItem newestNamed(const std::string& name) const;

    test::DevServerProcess server_;
    backup::BackupRequest request_;
    backup::StoredContent stored_;
};

} // namespace stowline::bench
