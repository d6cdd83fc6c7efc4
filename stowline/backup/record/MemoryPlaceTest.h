// A place for records that lives in memory.
#pragma once

#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/record/RecordPlace.h"
#include "stowline/platform/files/Files.h"

#include <map>
#include <string>

namespace stowline::backup {

class MemoryPlace : public RecordPlace {
public:
    std::vector<std::string> chains() override
    {
        std::vector<std::string> names;
        for (const auto& [name, records] : stored)
            names.push_back(name);
        return names;
    }

    std::vector<RecordFile> files(const std::string& chain) override
    {
        std::vector<RecordFile> files;
        for (const auto& [name, bytes] : stored.at(chain))
            files.push_back({name, bytes.size(), name});
        return files;
    }

    void get(const std::string& chain, const RecordFile& file,
             const std::function<bool(std::string_view)>& take) override
    {
        const std::string& bytes = stored.at(chain).at(file.name);
        constexpr std::size_t piece = 777;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            if (!take(std::string_view(bytes).substr(at, piece)))
                return;
        }
    }

    void put(const std::string& chain, const std::string& name,
             const std::filesystem::path& file) override
    {
        if (putsLeft == 0)
            throw RecordFault(RecordFault::Kind::temporary, "The service is gone.");
        --putsLeft;
        stored[chain][name] = platform::readFile(file).value();
    }

    void remove(const std::string& chain, const RecordFile& file) override
    {
        if (removalsLeft == 0)
            throw RecordFault(RecordFault::Kind::temporary, "The service is gone.");
        --removalsLeft;
        stored.at(chain).erase(file.name);
    }

    std::optional<std::int64_t> storedAt(const std::string& chain, const RecordFile& file) override
    {
        const auto moment = moments.find({chain, file.name});
        return moment == moments.end() ? std::nullopt : std::optional(moment->second);
    }

    std::map<std::string, std::map<std::string, std::string>> stored; ///< bytes by chain and name
    /// When records were stored, by chain and name; not told of the others.
    std::map<std::pair<std::string, std::string>, std::int64_t> moments;
    int putsLeft = 1000000;
    int removalsLeft = 1000000;
};

} // namespace stowline::backup
