// When a run cannot say what it did not hold.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/restore/Absence.h"
#include "stowline/backup/restore/Selection.h"

#include <filesystem>
#include <optional>
#include <string>

namespace stowline::backup {

/// Why nothing can be deleted below what is to be put back, in a sentence: the run did not come to
/// its end, its record has no notes or rules that cannot be followed, it never looked at all of a
/// folder, it could not look into a folder that is put back, or a disk that it looked at is not
/// mounted where it was. Absent when there is no such reason, and for what is not a folder. Throws
/// IndexFault.
/// @param root the folder that the named path's last name goes into
[[nodiscard]] std::optional<std::string> refusalToDelete(const RecordHead& head,
                                                         const ItemIndex& items, Absences& absences,
                                                         const Selection& selection,
                                                         const TreeRules& patterns,
                                                         const std::filesystem::path& root);

/// Whether what is put back goes to the very place where it was.
[[nodiscard]] bool isOwnPlace(const Selection& selection, const std::filesystem::path& root);

} // namespace stowline::backup
