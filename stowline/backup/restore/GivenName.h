// Giving an item that was made beside its place its name, where others may rename things meanwhile.
#pragma once

#include "stowline/platform/files/TargetFolder.h"

#include <string>

namespace stowline::backup {

struct GivenName {
    int error = 0; ///< of the system
    /// Something else stands under one of the names, which nothing more is done to.
    bool isAnothers = false;

    [[nodiscard]] bool isGiven() const { return error == 0 && !isAnothers; }
};

/// Renames an item from one name in a folder to another one, and looks before and afterwards
/// whether it is that item which bears the name.
/// @param isNew nothing may stand under the new name: error EEXIST when something does
[[nodiscard]] GivenName giveName(const platform::TargetFolder& folder,
                                 const platform::TargetItem& item, const std::string& from,
                                 const std::string& to, bool isNew);

/// Takes an item away that is not put in place; nothing else that has taken its name.
void removeIfStill(const platform::TargetFolder& folder, const platform::TargetItem& item,
                   const std::string& name);

/// "…: something else took its place …"
[[nodiscard]] std::string anothersSentence(const std::string& path);

} // namespace stowline::backup
