// What each section of the page tells of one account, a row a thing.
#pragma once

#include "devserver/page/Html.h"
#include "devserver/page/Overview.h"

#include <string>
#include <vector>

namespace stowline::devserver {

/// A row with the moment by which rows of several accounts are put in order.
struct DatedRow {
    std::string when;
    Row row;
};

// Cells in the order of the columns that overviewHtml() names; keys differ within an account.
[[nodiscard]] std::vector<DatedRow> machineRows(const AccountOverview& account, std::int64_t now);
[[nodiscard]] std::vector<DatedRow> spaceRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> runRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> readRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> failureRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> graceRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> deletionRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> reportRows(const AccountOverview& account);
[[nodiscard]] std::vector<DatedRow> eventRows(const AccountOverview& account);

} // namespace stowline::devserver
