#include "stowline/backup/restore/LossTally.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace stowline::backup {

namespace {

struct Words {
    LossKind kind;
    const char* what; ///< of several items
};
constexpr std::array kWords{
    Words{LossKind::owner, "The owners of {} items cannot be put back"},
    Words{LossKind::group, "The groups of {} items cannot be put back"},
    Words{LossKind::setId, "The set-id bits of {} items are dropped"},
    Words{LossKind::capabilities, "The capabilities of {} items are dropped"},
    Words{LossKind::attribute, "Extended attributes of {} items cannot be put back"},
    Words{LossKind::mode, "The modes of {} items cannot be put back"},
    Words{LossKind::time, "The times of {} items cannot be put back"},
    Words{LossKind::device, "{} devices are left out; --devices puts them back"},
    Words{LossKind::hardLink, "{} names of hard links are files of their own now"},
};

std::string sentenceFor(const LossCount& count)
{
    if (count.items == 1)
        return count.sentence;
    const auto* words = std::ranges::find(kWords, count.kind, &Words::kind);
    std::string text = fmt::format(fmt::runtime(words->what), count.items);
    if (count.isNotAllowed && count.kind != LossKind::device)
        text += ", since only root may do that";
    return text + ". The first: " + count.sentence;
}

} // namespace

void LossTally::add(const std::vector<Loss>& losses)
{
    for (const Loss& loss : losses) {
        const auto known = std::ranges::find_if(counts_, [&loss](const LossCount& count) {
            return count.kind == loss.kind && count.isNotAllowed == loss.isNotAllowed;
        });
        if (known != counts_.end())
            ++known->items;
        else
            counts_.push_back({loss.kind, loss.isNotAllowed, 1, loss.sentence});
    }
}

std::vector<LossCount> LossTally::counts() const
{
    std::vector<LossCount> counts = counts_;
    for (LossCount& count : counts)
        count.sentence = sentenceFor(count);
    return counts;
}

} // namespace stowline::backup
