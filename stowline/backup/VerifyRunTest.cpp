// Verifying what a record says that could never be restored.
#include "stowline/backup/VerifyRun.h"

#include "stowline/backup/StoredTreeTest.h"

#include <gtest/gtest.h>

#include <map>

namespace stowline::backup {
namespace {

struct Findings : VerifyObserver {
    void found(const VerifyFinding& finding) override { all.emplace(finding.path, finding); }
    std::map<std::string, VerifyFinding> all;
};

TEST(VerifyRun, FindsNamesAndFilesThatHaveNoContentAnywhere)
{
    using Kind = VerifyFinding::Kind;
    Stored stored;
    stored.machine.write("tree/a", "content");
    stored.run();
    const std::string a = (stored.folder() / "a").string();
    ItemIndex items = ItemIndex::temporary();
    const auto put = [&items](const std::string& path, ItemKind kind, const std::string& sameAs) {
        items.put({.item = {.path = path, .kind = kind}, .sameFileAs = sameAs}, 1);
    };
    items.put(*stored.index.find(a), 1);
    put("/b", ItemKind::file, a);
    put("/c", ItemKind::file, "/nowhere");
    put("/d", ItemKind::file, "/b");
    put("/e", ItemKind::pipe, a);
    put("/f", ItemKind::file, "");
    put("/g", ItemKind::file, "/f");
    put("/p", ItemKind::pipe, "");
    put("/q", ItemKind::pipe, "/p");
    stored.putRecord("00000001-finished", stored.forgedFirst(items));
    Findings findings;
    const auto sum = runVerify({.choice = stored.choice}, findings, stored.stop);
    EXPECT_EQ(sum.end, ReadEnd::badContent) << sum.sentence;
    EXPECT_EQ(sum.checked, 6U) << sum.sentence;
    EXPECT_EQ(sum.missing, 3U);
    EXPECT_EQ(sum.damaged, 2U);
    std::map<std::string, Kind> kinds;
    for (const auto& [path, finding] : findings.all)
        kinds.emplace(path, finding.kind);
    const std::map<std::string, Kind> expected{{"/c", Kind::missing},
                                               {"/d", Kind::damaged},
                                               {"/e", Kind::damaged},
                                               {"/f", Kind::missing},
                                               {"/g", Kind::missing}};
    EXPECT_EQ(kinds, expected);
    EXPECT_EQ(findings.all["/c"].sentence,
              "/c: it is recorded as a further name of /nowhere, which is not in the run (of run "
              "1).");
}

} // namespace
} // namespace stowline::backup
