// What goes wrong with sealed content.
#pragma once

#include <stdexcept>
#include <string>

namespace stowline::backup {

/// Content cannot be sealed or opened. Its text is a sentence for people, without the name of the
/// file. Never leaves the public operations of the engine.
class ContentFault : public std::runtime_error {
public:
    enum class Kind {
        notSealed, ///< it does not begin as sealed content does
        tooNew,    ///< of a form that this program does not know
        otherKey,  ///< sealed with another key
        otherFile, ///< sealed content, but not that which was asked for
        damaged,   ///< not what was sealed: changed, cut off, or with something added
        changed,   ///< another content than that whose sealing is to go on
        tooLarge,  ///< more than one sealed content can hold
    };

    ContentFault(Kind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind)
    {
    }
    [[nodiscard]] Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace stowline::backup
