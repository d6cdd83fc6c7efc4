// A folder that is backed up again and again, and a look at which runs are kept.
#pragma once

#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/Records.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <set>
#include <vector>

namespace stowline::test {

/// A folder that changes from run to run, and what each run found in it.
class Kept : public BackedUp {
public:
    using BackedUp::BackedUp;

    /// With a state folder that knows nothing of what the other one does.
    [[nodiscard]] Environment elsewhere() const
    {
        Environment words = environment();
        words["XDG_STATE_HOME"] = (command.home().path() / "elsewhere").string();
        return words;
    }

    /// A run that finds just these files. @return its number
    int runWith(const Files& files, const Words& more = {})
    {
        for (const auto& [name, content] : current_) {
            if (!files.contains(name))
                std::filesystem::remove(folder.path() / name);
        }
        for (const auto& [name, content] : files) { // what stays the same is not touched
            if (const auto known = current_.find(name);
                known == current_.end() || known->second != content)
                folder.write(name, content);
        }
        current_ = files;
        const auto result = backup(more);
        EXPECT_EQ(result.status, 0) << result.errors;
        const int run = field(result, "run").get<int>();
        held[run] = files;
        return run;
    }

    /// So many runs in which a few of thirty files change.
    void manyRuns(int count)
    {
        for (int i = 0; i < count; ++i) {
            Files files = current_;
            for (int change = 0; change < 4; ++change) {
                const unsigned seed = ++seed_;
                const std::string name =
                    "d" + std::to_string(seed % 3) + "/f" + std::to_string(seed * 7 % 30);
                if (seed % 5 == 0)
                    files.erase(name);
                else
                    files[name] = noise(1000 + seed * 10, seed);
                files["changing"] = noise(100, seed);
            }
            files["always"] = "the same";
            runWith(files);
        }
    }

    [[nodiscard]] Files restored(int run) const
    {
        const TemporaryFolder target;
        const auto result =
            this->run({"restore", folder.path().string(), "--at", std::to_string(run), "--machine",
                       "iMac", "--to", target.path().string()});
        EXPECT_EQ(result.status, 0) << "run " << run << ": " << result.errors;
        Files files;
        const std::filesystem::path tree = target.path() / folder.path().filename();
        if (!std::filesystem::exists(tree))
            return files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(tree)) {
            if (entry.is_regular_file())
                files[entry.path().lexically_relative(tree).string()] =
                    platform::readFile(entry.path()).value_or("(unreadable)");
        }
        return files;
    }

    /// What "runs" lists.
    [[nodiscard]] std::vector<int> runs() const
    {
        const auto result = run({"runs", "--machine", "iMac", "--json"});
        EXPECT_EQ(result.status, 0) << result.errors;
        std::vector<int> numbers;
        for (const auto& line : jsonLines(result.output)) {
            if (line["type"] == "run")
                numbers.push_back(line.value("run", 0));
        }
        return numbers;
    }

    /// Every listed run comes back as it was, byte for byte.
    void expectAllWhole(const std::vector<int>& expected)
    {
        EXPECT_EQ(runs(), expected);
        for (const int run : expected)
            EXPECT_EQ(restored(run), held.at(run)) << "run " << run;
    }

    /// Names of the records that the service has of this machine.
    [[nodiscard]] std::set<std::string> records() const
    {
        devserver::Storage storage(server.data());
        const auto page = storage
                              .search({.userName = "ann",
                                       .systemName = "iMac",
                                       .folder = "/=stowline=/records",
                                       .pageSize = 100000},
                                      "*", "")
                              .value();
        std::set<std::string> names;
        for (const auto& item : page.items)
            names.insert(item.name);
        return names;
    }

    /// Versions of files, those of records aside, as the service's own table has them.
    [[nodiscard]] std::set<std::int64_t> versions() const
    {
        SQLite::Database database((server.data() / "files.sqlite").string(), SQLite::OPEN_READONLY,
                                  5000);
        SQLite::Statement rows(database, "SELECT v.id FROM versions v JOIN items i ON i.id ="
                                         " v.item_id WHERE i.folder NOT LIKE '/=stowline=%'");
        std::set<std::int64_t> ids;
        while (rows.executeStep())
            ids.insert(rows.getColumn(0).getInt64());
        return ids;
    }

    [[nodiscard]] std::uint64_t usedBytes() const
    {
        return devserver::Storage(server.data()).usedBytes("ann");
    }

    /// As a provider has them who knows neither these methods nor these plain requests.
    void removeFromSettings(const std::vector<std::string>& entries) const
    {
        const auto settings = server.bundle() / "Resources" / "WebServicesSettings.plist";
        for (const std::string& entry : entries) {
            const auto edited = runProgram({{"/usr/bin/python3", "-c",
                                             "import plistlib, sys\n"
                                             "tables = plistlib.load(open(sys.argv[1], 'rb'))\n"
                                             "found = [t.pop(sys.argv[2], None) for t in "
                                             "tables.values() if isinstance(t, dict)]\n"
                                             "assert any(found)\n"
                                             "plistlib.dump(tables, open(sys.argv[1], 'wb'))",
                                             settings.string(), entry}});
            ASSERT_EQ(edited.status, 0) << edited.errors;
        }
    }

    std::map<int, Files> held;

private:
    Files current_;
    unsigned seed_ = 0;
};

/// Runs 1, 2 and 3, of which the service stored the first two on days of their own.
inline void threeRunsOfThreeDays(Kept& account)
{
    for (int run = 1; run <= 3; ++run)
        account.runWith({{"a", std::to_string(run)}});
    setStoredBefore(account, "00000001-finished", "2026-01-01 12:00:00", "iMac", "default");
    setStoredBefore(account, "00000002-finished", "2026-01-02 12:00:00", "iMac", "default");
}

} // namespace stowline::test
