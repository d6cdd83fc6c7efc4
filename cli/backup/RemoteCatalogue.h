// What the service holds already, folder by folder.
#pragma once

#include "cli/backup/FileTree.h"
#include "cli/shared/Session.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace stowline::cli {

struct RemoteFile {
    std::uint64_t size = 0;
    std::string modified; ///< as WebServiceBroker::clientTimeString() writes it
    std::string checksum; ///< eight hexadecimal digits
};

/// The files of one machine, listed a folder at a time when first asked for. Folders below one that
/// is not there are not asked about. Any thread; a folder is asked about once.
class RemoteCatalogue {
public:
    RemoteCatalogue(const Session& session, std::string systemName)
        : session_(session), systemName_(std::move(systemName))
    {
    }

    /// The newest version of a file; absent when there is none or the folder could not be listed,
    /// which costs a question about the file, no more.
    [[nodiscard]] std::optional<RemoteFile> find(const std::string& path);

private:
    struct Folder {
        std::map<std::string, RemoteFile> files;
        std::map<std::string, bool> folders;
    };
    [[nodiscard]] const Folder& folder(const std::string& path);
    [[nodiscard]] bool exists(const std::string& path);
    [[nodiscard]] Folder listed(const std::string& path) const;

    const Session& session_;
    const std::string systemName_;
    std::recursive_mutex mutex_;
    std::map<std::string, Folder> folders_; ///< by remote path
};

} // namespace stowline::cli
