// What goes wrong with the records of runs.
#pragma once

#include <stdexcept>
#include <string>

namespace stowline::backup {

/// A record cannot be found, fetched, read or stored. Its text is a sentence for people. Never
/// leaves the public operations of the engine.
class RecordFault : public std::runtime_error {
public:
    enum class Kind {
        failed,      ///< for good: a repetition would fail too
        temporary,   ///< tried until the time was used up
        refused,     ///< the service said no
        interrupted, ///< the user asked to stop
        notFound,    ///< there is no such run, or it has no record that can be read
        damaged,     ///< what came back is not what was stored
        rolledBack,  ///< the service shows an older chain than this machine has seen
        tooNew,      ///< of a format that this program does not know
    };

    RecordFault(Kind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind)
    {
    }
    [[nodiscard]] Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace stowline::backup
