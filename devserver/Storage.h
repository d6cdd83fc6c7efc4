// What the service stores: parts on their way, files, versions.
#pragma once

#include "devserver/AccountFigures.h"
#include "devserver/StatementCache.h"
#include "stowline/platform/values/Outcome.h"
#include "stowline/platform/values/Value.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace stowline::devserver {

/// The folder for an upload path, and the name of an upload in it, as a client names them.
struct UploadPlace {
    std::string userName;
    std::string serverPath; ///< as uploadPath() gave it
    std::string guid;       ///< of the client's choice
};

/// What is held of an upload.
struct HeldUpload {
    std::uint64_t receivedBytes = 0;
    std::uint64_t parts = 0;
    std::string serverFile; ///< full path of the file on the service
    bool isRegistered = false;
    std::int64_t versionId = 0; ///< of a registered one
    std::string listId;         ///< of a registered one
};

/// One part, with what its sender says about it.
struct UploadedPart {
    std::string fileName; ///< any bytes
    std::string_view bytes;
    std::optional<std::uint64_t> offset;
    std::optional<std::uint32_t> checksum; ///< CRC-32
};

/// An uploaded file that is to become a version.
struct Registration {
    UploadPlace place;
    std::string systemName;
    std::string folder; ///< with slashes
    std::string name;
    std::uint64_t size = 0;         ///< of the file on the client
    std::uint64_t uploadedSize = 0; ///< of what was sent
    std::optional<std::uint32_t> checksum;
    std::string clientDate;
    bool isDelta = false;
    bool isCompressed = false;
    std::int64_t baselineVersion = -1;
};

/// Why a part is not taken.
enum class PartRefusal { noSuchPath, gap, checksumMismatch };

/// What came of a registration.
enum class RegistrationOutcome {
    success,
    invalidPath,
    invalidSize,
    incompleteFile,
    checksumMismatch,
    invalidBaseline,
};

/// As the service's answers tell it ("IncompleteFile").
[[nodiscard]] std::string codeOf(RegistrationOutcome outcome);

/// An entry of a folder.
struct StoredItem {
    std::int64_t id = 0;
    std::string systemName;
    std::string folder;
    std::string name;
    bool isFolder = false;
    bool isPackage = false;
    std::uint64_t size = 0;
    std::string modified; ///< the client's date of the newest version
    std::uint32_t checksum = 0;
    std::int64_t versions = 0;
};

struct StoredVersion {
    std::int64_t id = 0;
    std::int64_t fileId = 0;
    std::string systemName;
    std::string folder;
    std::string name;
    std::uint64_t size = 0;
    std::string clientDate;
    std::string storedAt; ///< universal time
    std::string serverFile;
    std::uint32_t checksum = 0;
    bool isDelta = false;
    std::int64_t baselineVersion = -1;
    std::string listId;           ///< names it in a deletion
    std::uint64_t storedSize = 0; ///< bytes of content, which may be packed or a delta
    std::string
        digest; ///< SHA-256 of the content; empty when it was registered before there was one
};

/// How the content of a version is.
enum class ContentState { whole, missing, damaged };

/// A part of a version's content, or why there is none.
struct ContentPart {
    enum class Outcome { read, noSuchVersion, missing, damaged, outOfRange };
    Outcome outcome = Outcome::noSuchVersion;
    std::string bytes;
    std::uint32_t checksum = 0; ///< CRC-32 of the bytes
    StoredVersion version;
};

/// One page of items and the count of all.
struct ItemPage {
    std::vector<StoredItem> items;
    std::int64_t totalCount = 0;
};

struct ItemQuery {
    std::string userName;
    std::string systemName; ///< empty: of every machine (search only)
    std::string folder;
    std::string sortField = "Name";
    bool isAscending = true;
    std::int64_t startIndex = 0;
    std::int64_t pageSize = 0;
};

/// What was deleted and is still kept.
struct DeletedVersion {
    StoredVersion version;
    std::string deletedAt; ///< universal time
    std::string keptUntil;
};

/// Which of it is meant.
struct DeletedQuery {
    std::string userName;
    std::string systemName; ///< empty: of every machine
    std::string path;       ///< a file, or a folder with all below it; empty: everything
    std::int64_t since = 0; ///< deleted at or after these seconds since 1970
    std::int64_t startIndex = 0;
    std::int64_t pageSize = 0;
};

/// One page of what was deleted, the oldest version first, and figures of all of it.
struct DeletedPage {
    std::vector<DeletedVersion> versions;
    std::int64_t totalCount = 0;
    std::uint64_t totalBytes = 0;
    std::int64_t left = 0; ///< that cannot come back now, on no page and in no figure
};

/// What bringing back came to.
struct Undeletion {
    std::int64_t broughtBack = 0;
    std::uint64_t bytes = 0;    ///< of these
    std::int64_t remaining = 0; ///< that can come back and were not yet, counted as far as one more
                                ///< call would go
    // Once nothing remains:
    std::int64_t left = 0; ///< that stay deleted: other records stand in their place, or they are
                           ///< deltas without a base
    std::int64_t lost = 0; ///< that stay deleted: their content is gone, or known to be damaged
    std::int64_t forgetting = 0; ///< runs of which a note says still that they are being forgotten
};

/// Content lies in files below one folder, under names that clients cannot choose; everything else
/// in SQLite. A version's row is written last, once its content is whole, checked and durable, so
/// that whatever ends the service leaves no version that is not. A registration is a success once
/// its row is durable too; those that arrive together are made durable together. What the disk
/// refused to make durable is to be sent again. Operations throw SQLite::Exception or
/// platform::FileFault when the disk refuses. Any thread.
class Storage {
public:
    using Clock = std::chrono::system_clock;

    /// @param grace for how long what was deleted is kept; none: it goes at once
    explicit Storage(std::filesystem::path dataFolder,
                     std::function<Clock::time_point()> now = Clock::now,
                     std::chrono::seconds grace = kUsualGrace);

    ~Storage();
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    static constexpr std::chrono::seconds kUsualGrace = std::chrono::days{7};

    /// The path below which a user's client with this registry identifier uploads.
    [[nodiscard]] std::string uploadPath(const std::string& userName, std::int64_t accountNumber,
                                         const std::string& registryId);

    /// What is held of an upload; absent when the user was given no such path. A version whose
    /// content is not whole any more counts as nothing: it can be uploaded again, as another
    /// version.
    [[nodiscard]] std::optional<HeldUpload> held(const UploadPlace& place);

    /// Adds a part to an upload. One that is held already, and one for a registered file, changes
    /// nothing; one that would leave a gap, or whose checksum is not that of its bytes, is refused.
    /// @return what is held then, or why the part was refused
    [[nodiscard]] platform::Outcome<HeldUpload, PartRefusal> addPart(const UploadPlace& place,
                                                                     const UploadedPart& part);

    /// Makes a version of an upload, which must be whole. A registered one is a success again.
    [[nodiscard]] RegistrationOutcome registerFile(const Registration& registration);

    /// How the content of a version is. The digest of what was registered is kept, with what the
    /// system said of the file then; content is read again when the system says otherwise now, or
    /// when the caller wants it.
    [[nodiscard]] ContentState contentState(const StoredVersion& version, bool readsAll = false);

    /// Up to `length` bytes of a version's content; fewer at its end only.
    [[nodiscard]] ContentPart readPart(const std::string& userName, std::int64_t versionId,
                                       std::uint64_t offset, std::size_t length);

    /// Drops parts that nobody went on with or registered for seven days, and files that belong to
    /// nothing. @return how many
    std::size_t dropAbandoned();

    void notePackage(const std::string& userName, const std::string& path, std::uint64_t bytes);

    /// Bytes of content, of what is deleted too while it is kept.
    [[nodiscard]] std::uint64_t usedBytes(const std::string& userName);
    /// Those of what is deleted.
    [[nodiscard]] std::uint64_t graceBytes(const std::string& userName);
    [[nodiscard]] std::vector<std::string> systems(const std::string& userName);

    /// @return absent when there is no such sort field
    [[nodiscard]] std::optional<ItemPage> folder(const ItemQuery& query);

    /// Files in the folder and below it whose names match: a part of the name, or, with "*" and
    /// "?", the whole. Upper and lower case of ASCII letters are the same.
    /// @param extensions as "txt,doc"; empty: any
    [[nodiscard]] std::optional<ItemPage> search(const ItemQuery& query, const std::string& text,
                                                 const std::string& extensions);

    /// Newest first. Empty when the user has no such file.
    [[nodiscard]] std::vector<StoredVersion> versions(const std::string& userName,
                                                      std::int64_t fileId);
    [[nodiscard]] std::optional<StoredVersion> version(const std::string& userName,
                                                       std::int64_t versionId);

    /// Deletes the version that a list names; a file without versions goes too, and folders
    /// without files. Its content is kept until its days of grace are over: nothing that an account
    /// can ask for shortens them. @return false when there is no such list, or a delta needs the
    /// version
    [[nodiscard]] bool deleteVersion(const std::string& userName, const std::string& listId);

    [[nodiscard]] std::chrono::seconds grace() const { return grace_; }
    [[nodiscard]] DeletedPage deletedVersions(const DeletedQuery& query);

    /// Makes versions of what was deleted, under their numbers and lists, at most so many: records
    /// of runs last, so that nobody finds one whose content is not there yet. What is there now
    /// keeps its kind and, where it is newer, its place as the newest. Records come back as far as
    /// StandingRecords takes them, what was deleted first before the rest; a note that a run is
    /// being forgotten does not come back. Nor does a version without its content. When all that is
    /// meant is back, without a path, the notes of that time go too: nothing of it is to be deleted
    /// again.
    [[nodiscard]] Undeletion undelete(const DeletedQuery& query, std::int64_t atMost);

    /// Takes away what was deleted and whose days of grace are over: by the clock, and by the time
    /// that passed between calls, of which each counts two hours at most. So neither a clock that
    /// jumps nor a service that did not run ends them; it must be called every hour. What a version
    /// was promised when it was deleted holds, whatever the grace is later. @return how many
    std::size_t dropDeleted();

    /// The lists of all versions of a folder's files, below it too, newest first.
    [[nodiscard]] std::vector<std::string> listIdsBelow(const std::string& userName,
                                                        const std::string& systemName,
                                                        const std::string& folder);

    /// Machines of an account that hold files, by name; those whose records alone are stored too.
    [[nodiscard]] std::vector<MachineSummary> machines(const std::string& userName);

    /// Records of the runs of an account, newest first, at most so many of each chain.
    [[nodiscard]] std::vector<StoredRecord> records(const std::string& userName, int mostOfChain);

    /// The bytes of a record as they are stored, from the beginning; none where they are not whole.
    [[nodiscard]] std::string beginningOf(const StoredRecord& record, std::size_t length);

    /// When content of an account was fetched, the newest first; records of runs are not content.
    /// The last hundred of each account are kept, over restarts too.
    [[nodiscard]] std::vector<ReadSpan> reads(const std::string& userName);

    /// What is deleted and still kept, what goes first before the rest, at most so many groups.
    [[nodiscard]] std::vector<GraceGroup> graceGroups(const std::string& userName, int most);

    /// Notes what every account holds now, where it is not what was noted last; and thins out older
    /// notes: of a day that is more than two days ago the last one stays. An account's is noted at
    /// the end of each of its runs as well.
    void noteSpace();

    /// The oldest first.
    [[nodiscard]] std::vector<SpaceNote> spaceNotes(const std::string& userName);

    /// Seconds since 1970 by the clock that the storage goes by.
    [[nodiscard]] std::int64_t secondsNow() const;

private:
    void noteRead(const std::string& userName, const StoredVersion& version, std::uint64_t bytes);
    void writeReads();
    void noteSpaceOf(const std::string& userName);
    void noteEndOfRun(const std::string& userName);
    [[nodiscard]] std::optional<std::string> serverFileOf(const UploadPlace& place);
    [[nodiscard]] HeldUpload heldAt(const std::string& serverFile);
    [[nodiscard]] std::optional<StoredVersion> versionAt(const std::string& serverFile);
    void setAside(const StoredVersion& version);
    void setDeletedAside(const std::string& serverFile);
    [[nodiscard]] bool dropDeletedVersion(std::int64_t id, std::int64_t passed);
    [[nodiscard]] std::int64_t passGrace();
    void takeBackAside();
    [[nodiscard]] std::int64_t endForgetting(const DeletedQuery& query, bool isAllBack);
    [[nodiscard]] bool bringBack(std::int64_t versionId);
    /// What one batch brings back.
    struct Choice {
        std::vector<std::pair<std::int64_t, std::uint64_t>> versions; ///< with bytes of content
        std::int64_t more = 0;
        std::set<std::int64_t> lost;
    };
    void findStayingRecords(const DeletedQuery& query);
    void choose(const DeletedQuery& query, bool isOfRecords, std::int64_t atMost, Choice& choice);
    [[nodiscard]] bool isKept(const std::string& serverFile, std::int64_t storedSize,
                              const std::string& damagedAs) const;
    void refreshItem(std::int64_t itemId);
    [[nodiscard]] ContentState judge(const StoredVersion& version, bool readsAll);
    void noteJudged(std::int64_t versionId, const std::string& stamp, bool isWhole);
    void migrate();
    [[nodiscard]] bool dropAbandonedFile(const std::string& serverFile, std::int64_t before);
    [[nodiscard]] std::optional<std::uint32_t> checksumOfUpload(const std::string& serverFile);
    void forgetUpload(const std::string& serverFile);
    [[nodiscard]] std::int64_t fileFor(const Registration& registration);
    [[nodiscard]] std::int64_t itemOfDeleted(SQLite::Statement& deleted);
    struct Content {
        std::uint64_t size = 0;
        std::uint32_t checksum = 0;
        std::string digest;
        std::string stamp;
    };
    void insertVersion(const Registration& registration, const std::string& serverFile,
                       const Content& content);
    /// A version that is to be inserted, and what came of it.
    struct NewVersion {
        const Registration& registration;
        const std::string& serverFile;
        const Content& content;
        bool isDone = false;
        std::exception_ptr fault;
    };
    void insertTogether(NewVersion& version);
    void commitGroup(const std::vector<NewVersion*>& group);
    void forgetUploadsOf(const std::vector<NewVersion*>& group);
    void synchronizeFoldersOf(const std::vector<NewVersion*>& group);
    void insertGroup(const std::vector<NewVersion*>& group);
    void insertRows(std::span<NewVersion* const> versions);
    [[nodiscard]] bool hasBaseline(const Registration& registration);
    [[nodiscard]] ItemPage page(const ItemQuery& query, const std::string& condition,
                                const std::vector<std::string>& arguments);
    void removeIfEmpty(std::int64_t itemId);
    [[nodiscard]] std::filesystem::path contentFile(const std::string& serverFile) const;
    [[nodiscard]] std::mutex& contentLock(const std::string& serverFile);

    const std::filesystem::path dataFolder_;
    const std::function<Clock::time_point()> now_;
    const std::chrono::seconds grace_;
    std::array<std::mutex, 64> contentLocks_; ///< taken before the others
    std::mutex groupMutex_;
    std::condition_variable groupDone_;
    std::vector<NewVersion*> group_; ///< waits for the one that is being committed
    bool isCommitting_ = false;
    std::recursive_mutex mutex_;
    struct OpenSpan {
        std::int64_t id = 0;
        ReadSpan span;
        std::int64_t writtenAt = 0;
    };
    std::map<std::pair<std::string, std::string>, OpenSpan> reads_; ///< by user and machine
    SQLite::Database database_;
    StatementCache statements_{database_};
};

} // namespace stowline::devserver
