// A service without a network whose clock a test holds.
#pragma once

#include "devserver/page/Page.h"
#include "stowline/platform/files/GzipStream.h"
#include "tests/support/TemporaryFolder.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace stowline::devserver {

class HeldService : public testing::Test {
protected:
    /// Stores a file of a machine. @return its list
    std::string put(const std::string& user, const std::string& system, const std::string& path,
                    const std::string& content)
    {
        const UploadPlace place{user, storage_.uploadPath(user, 1, user), std::to_string(++puts_)};
        EXPECT_TRUE(storage_.addPart(place, {.fileName = "f", .bytes = content}));
        const auto slash = path.rfind('/');
        EXPECT_EQ(storage_.registerFile({.place = place,
                                         .systemName = system,
                                         .folder = path.substr(0, slash),
                                         .name = path.substr(slash + 1),
                                         .size = content.size(),
                                         .uploadedSize = content.size()}),
                  RegistrationOutcome::success);
        // The database's own clock is not held.
        execute(fmt::format("UPDATE versions SET stored_at = datetime({}, 'unixepoch') WHERE"
                            " id = (SELECT max(id) FROM versions)",
                            storage_.secondsNow()));
        return storage_.held(place).value().listId;
    }

    /// Stores the record of a run.
    void putRun(const std::string& user, const std::string& system, const std::string& name,
                const std::string& head, const std::string& chain = "m.root.default")
    {
        std::string packed;
        platform::GzipWriter writer([&packed](std::string_view bytes) { packed += bytes; });
        writer.write(R"({"record":"stowline run","format":2,)" + head + "}\n{\"end\":{}}\n");
        writer.finish();
        put(user, system, "/=stowline=/records/" + chain + "/" + name, packed);
    }

    void execute(const std::string& statements)
    {
        SQLite::Database((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE, 5000)
            .exec(statements);
    }

    AccountOverview of(const std::string& user)
    {
        return makeOverview({storage_, journal_, deletions_, heads_}, {user}).accounts.at(0);
    }

    void letPass(std::chrono::seconds time)
    {
        now_.passed += time;
        now_.clock += time;
    }

    void open(const std::string& user, const std::string& password = "secret")
    {
        ASSERT_EQ(accounts_.open({.userName = user, .password = password, .email = "a@b.c"}),
                  AccountOutcome::success);
    }

    test::TemporaryFolder folder_;
    SessionMoment now_{{}, std::chrono::sys_days{std::chrono::January / 10 / 2026}};
    Accounts accounts_{folder_.path() / "service.sqlite"};
    Storage storage_{folder_.path(), [this] { return now_.clock; }};
    Journal journal_{folder_.path()};
    Deletions deletions_{storage_, std::chrono::hours(1)};
    RunHeads heads_;
    int puts_ = 0;
};

} // namespace stowline::devserver
