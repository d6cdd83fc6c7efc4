// What goes wrong with the keys of sealed content.
#pragma once

#include <stdexcept>
#include <string>

namespace stowline::backup {

/// The list of slots cannot be read, or does not open. Its text is a sentence for people, without
/// any secret. Never leaves the public operations of the engine.
class KeyFault : public std::runtime_error {
public:
    enum class Kind {
        tooNew,      ///< of a format that this program does not know
        damaged,     ///< not what was written by who had the key
        noSlot,      ///< no slot opens with a secret of that kind
        wrongSecret, ///< there are such slots, and this secret opens none of them
        notPossible, ///< what was asked for would leave no way in, is too weak or too much
        otherKey,    ///< of another key than that which is known
        older,       ///< of an earlier generation than that which is known
        forked,      ///< another list under the generation that is known
        stopped,     ///< the thread was asked to stop
    };

    KeyFault(Kind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind) {}
    [[nodiscard]] Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace stowline::backup
