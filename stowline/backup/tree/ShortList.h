// Places for people: the first of many, and how many more there are.
#pragma once

#include "stowline/platform/text/Text.h"

#include <cstdint>
#include <string>

namespace stowline::backup {

/// A list of which a sentence names three. A plain value.
class ShortList {
public:
    void add(const std::string& place)
    {
        if (count_++ < kNamed)
            text_ += (text_.empty() ? "" : ", ") + place;
    }

    [[nodiscard]] std::uint64_t count() const { return count_; }

    /// "/a, /b, /c and 2 others"; empty when nothing was added.
    [[nodiscard]] std::string text(const char* other = "other", const char* others = "others") const
    {
        return count_ > kNamed
                   ? text_ + " and " + platform::countText(count_ - kNamed, other, others)
                   : text_;
    }

private:
    static constexpr std::uint64_t kNamed = 3;
    std::uint64_t count_ = 0;
    std::string text_;
};

} // namespace stowline::backup
