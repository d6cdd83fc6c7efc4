// Records on the service: files like any other, in a folder that no local path can produce.
#pragma once

#include "stowline/backup/record/RecordPlace.h"
#include "stowline/backup/transfer/ContentSource.h"
#include "stowline/backup/transfer/FileUploader.h"

namespace stowline::backup {

/// The names of an account's machines. Throws RecordFault.
[[nodiscard]] std::vector<std::string> systemNames(const Account& account, Tries& tries);

/// The records of an account and machine name. One thread at a time.
class ServicePlace : public RecordPlace {
public:
    /// @param uploads how records are stored; null for a place that is only read
    ServicePlace(const Account& account, Tries& tries, ContentSource& source,
                 UploadContext* uploads)
        : account_(account), tries_(tries), source_(source), uploads_(uploads)
    {
    }

    [[nodiscard]] std::vector<std::string> chains() override;
    [[nodiscard]] std::vector<RecordFile> files(const std::string& chain) override;
    void get(const std::string& chain, const RecordFile& file,
             const std::function<bool(std::string_view)>& take) override;
    void put(const std::string& chain, const std::string& name,
             const std::filesystem::path& file) override;
    void remove(const std::string& chain, const RecordFile& file) override;
    [[nodiscard]] std::optional<std::int64_t> storedAt(const std::string& chain,
                                                       const RecordFile& file) override;

private:
    struct Entry {
        RecordFile file;
        bool isFolder = false;
    };
    [[nodiscard]] std::vector<Entry> listed(const std::string& folder);
    [[nodiscard]] RecordFile withId(const std::string& chain, const RecordFile& file);
    [[nodiscard]] Array versionsOf(const RecordFile& file);
    [[nodiscard]] Dictionary newestVersion(const RecordFile& file);

    const Account account_;
    Tries& tries_;
    ContentSource& source_;
    UploadContext* uploads_;
};

} // namespace stowline::backup
