// A tree that is stored on a development service, and its way back, for tests of restoring.
#pragma once

#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/record/MemoryPlaceTest.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
#include "stowline/backup/tree/TreeWalk.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>

namespace stowline::backup {

/// Stores a tree and its record on a development service, piece by piece.
class Stored : public WalkObserver {
public:
    Stored()
    {
        platform::Bundle::useFolder(server.bundle());
        platform::Bundle::useExecutable(test::builtProgram("stowline"));
        std::optional<Error> error;
        if (!WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "secret", "a@b.c", &error))
            throw std::runtime_error("no account");
        const auto signedIn = WebServiceBroker::authenticateForUsername("ann", "secret", &error);
        choice.account = {"ann", "secret", platform::findText(*signedIn, "backupServerName"),
                          "iMac"};
        choice.identity = ChainIdentity{"1A2B", "ann", "default"};
        choice.budgetPerStep = std::chrono::seconds(20);
        path = WebServiceBroker::getUploadServerPathForUsername("ann", choice.account.server, "id")
                   .value();
    }

    /// One run over the folder.
    std::uint64_t run()
    {
        UploadJournal journal(work.path() / "journal");
        BandwidthLimit bandwidth(0, std::chrono::steady_clock::now);
        Tries tries(std::chrono::seconds(20), stop);
        UploadContext context(journal, bandwidth, tries);
        context.account = choice.account;
        context.owner = {"s", "ann", "iMac", *choice.identity};
        context.serverPath = path;
        context.spoolFolder = work.path();
        context_ = &context;
        ContentSource source(choice.account, tries, bandwidth, 1U << 20);
        ServicePlace place(choice.account, tries, source, &context);
        RecordChain chain = RecordChain::open(place, *choice.identity, work.path());
        index.remove(folder().string(), chain.newestRun() + 1);
        context.run = run_ = chain.begin({.systemName = "iMac",
                                          .identity = *choice.identity,
                                          .namedPaths = {folder().string()},
                                          .begun = begun},
                                         index.position());
        WalkOptions options;
        options.paths = {folder().string()};
        (void)walkTree(options, *this, stop);
        index.setPosition(chain.storeFinished(index, {}).position);
        return run_;
    }

    /// What the service shows under the name of a record from now on.
    void putRecord(const std::string& name, const std::string& bytes)
    {
        work.write("record", bytes);
        UploadJournal journal(work.path() / "journal");
        BandwidthLimit bandwidth(0, std::chrono::steady_clock::now);
        Tries tries(std::chrono::seconds(20), stop);
        UploadContext context(journal, bandwidth, tries);
        context.account = choice.account;
        context.owner = {"s", "ann", "iMac", *choice.identity};
        context.serverPath = path;
        context.spoolFolder = work.path();
        ContentSource source(choice.account, tries, bandwidth, 1U << 20);
        ServicePlace(choice.account, tries, source, &context)
            .put(chainName(*choice.identity), name, work.path() / "record");
    }

    /// A whole record of the first run of this chain, with these items, which nobody stored.
    [[nodiscard]] std::string forgedFirst(const ItemIndex& items) const
    {
        MemoryPlace place;
        auto chain = RecordChain::open(place, *choice.identity, work.path());
        (void)chain.begin({.systemName = "iMac", .identity = *choice.identity}, {});
        (void)chain.storeFinished(items, {});
        return place.stored.begin()->second.at("00000001-finished");
    }

    void found(FoundItem found) override
    {
        EXPECT_EQ(readAttributes(found), std::nullopt);
        StoredItem stored{.item = found.item, .sameFileAs = found.sameFileAs};
        if (found.item.kind == ItemKind::file && found.sameFileAs.empty()) {
            FileUploader uploader(*context_, {.path = found.item.path,
                                              .remoteFolder = "/files",
                                              .remoteName = "f" + std::to_string(++uploads_),
                                              .open = [&found](int& error) {
                                                  return platform::SourceFile::open(
                                                      platform::SourceFile::kNoFolder,
                                                      found.item.path, error);
                                              }});
            const UploadOutcome outcome = uploader.upload();
            EXPECT_EQ(outcome.kind, UploadOutcome::Kind::stored) << outcome.sentence;
            stored.content = outcome.content;
        }
        index.put(stored, run_);
    }
    void excluded(const std::string&, ItemKind, const Exclusion&) override {}
    void failed(const WalkFailure& failure) override { ADD_FAILURE() << failure.path; }
    void vanished(const std::string&) override {}
    void left(const FolderEnd&) override {}

    [[nodiscard]] std::filesystem::path folder() const { return machine.path() / "tree"; }

    [[nodiscard]] RestoreSummary restore(const std::function<void(RestoreRequest&)>& adapt = {})
    {
        RestoreRequest request{.choice = choice,
                               .paths = {folder().string()},
                               .target = target.path(),
                               .partBytes = 100000};
        if (adapt)
            adapt(request);
        struct Listener : RestoreObserver {
            void itemDone(const RestoredItem& item) override
            {
                for (const std::string& fault : item.faults)
                    faults.push_back(fault);
            }
            std::vector<std::string> faults;
        } listener;
        const auto summary = runRestore(request, listener, stop);
        faults = listener.faults;
        return summary;
    }

    /// What an independent program finds to differ between the tree and what was put back.
    [[nodiscard]] std::string differences() const
    {
        const auto rsync = test::runProgram(
            {{"/usr/bin/rsync", "-n", "-aHAX", "--checksum", "--itemize-changes", "--delete",
              folder().string() + "/", (target.path() / "tree").string() + "/"}});
        EXPECT_EQ(rsync.status, 0) << rsync.errors;
        return rsync.output;
    }

    [[nodiscard]] std::string faultText() const
    {
        std::string text;
        for (const std::string& fault : faults)
            text += fault + "\n";
        return text;
    }

    test::DevServerProcess server;
    test::TemporaryFolder machine;
    test::TemporaryFolder target;
    test::TemporaryFolder work;
    RunChoice choice;
    Timestamp begun; ///< what the next run() says of itself
    std::string path;
    StopRequest stop;
    ItemIndex index = ItemIndex::temporary();
    std::vector<std::string> faults;

private:
    UploadContext* context_ = nullptr;
    std::uint64_t run_ = 0;
    int uploads_ = 0;
};

/// Bytes that look random and are always the same.
inline std::string noise(std::size_t size)
{
    std::string bytes(size, '\0');
    std::uint32_t state = 12345;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

/// Whether any name below a folder is that of a file that is being gathered.
inline bool hasGatherings(const std::filesystem::path& folder)
{
    return std::any_of(
        std::filesystem::recursive_directory_iterator(folder), {}, [](const auto& entry) {
            return entry.path().filename().string().starts_with(".stowline-restore-");
        });
}

} // namespace stowline::backup
