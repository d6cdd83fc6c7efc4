// What goes wrong with an index.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace SQLite {
class Exception;
}

namespace stowline::backup {

/// The index cannot be opened, read or written. Its text is a sentence for people; it names the
/// file. Never leaves the public operations of the engine.
class IndexFault : public std::runtime_error {
public:
    enum class Kind {
        damaged,    ///< its content is not an index any more: to be set aside and made anew
        inUse,      ///< another process has been writing it for too long
        diskFull,   ///< what was committed stands; what came after is lost
        unwritable, ///< it cannot be made or written there
        other
    };

    IndexFault(Kind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind)
    {
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    Kind kind_;
};

/// What the database says, in words. @param systemError of the last operation; 0 for none
[[nodiscard]] IndexFault indexFault(const std::filesystem::path& file,
                                    const SQLite::Exception& fault, int systemError);

} // namespace stowline::backup
