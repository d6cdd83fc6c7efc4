#include "devserver/page/SizePlot.h"

#include "devserver/page/Html.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::devserver {

namespace {

constexpr double kWidth = 640;
constexpr double kHeight = 160;
constexpr double kTop = 6; ///< so that the line of the most is not cut
constexpr std::size_t kMostShown = 160;

/// Pieces of equal time, of each the largest note; the first and the last stay.
std::vector<SpaceNote> thinned(const std::vector<SpaceNote>& notes)
{
    if (notes.size() <= kMostShown)
        return notes;
    const std::int64_t begin = notes.front().at;
    const std::int64_t span = std::max<std::int64_t>(notes.back().at - begin, 1);
    std::vector<SpaceNote> shown{notes.front()};
    std::int64_t piece = -1;
    for (std::size_t i = 1; i + 1 < notes.size(); ++i) {
        const std::int64_t of =
            (notes[i].at - begin) * static_cast<std::int64_t>(kMostShown) / span;
        if (of != piece)
            shown.push_back(notes[i]);
        else if (notes[i].bytes > shown.back().bytes)
            shown.back() = notes[i];
        piece = of;
    }
    shown.push_back(notes.back());
    return shown;
}

std::uint64_t mostOf(const std::vector<SpaceNote>& notes)
{
    return std::ranges::max_element(notes, {}, &SpaceNote::bytes)->bytes;
}

/// A line in steps, from the left edge to the right.
std::string steps(const std::vector<SpaceNote>& notes, std::uint64_t SpaceNote::*value, double most)
{
    const auto begin = static_cast<double>(notes.front().at);
    const double span = std::max(static_cast<double>(notes.back().at) - begin, 1.0);
    std::string path;
    for (const SpaceNote& note : notes) {
        const double x = kWidth * (static_cast<double>(note.at) - begin) / span;
        const double y =
            kHeight - (kHeight - kTop) * static_cast<double>(note.*value) / std::max(most, 1.0);
        path += path.empty() ? fmt::format("M0 {:.1f}", y) : fmt::format("H{:.1f}V{:.1f}", x, y);
    }
    return path + fmt::format("H{:.0f}", kWidth);
}

std::string drawing(const std::vector<SpaceNote>& notes, std::string_view id)
{
    const auto most = static_cast<double>(mostOf(notes));
    const std::string held = steps(notes, &SpaceNote::bytes, most);
    const std::string deleted = steps(notes, &SpaceNote::deletedBytes, most);
    const std::string down = fmt::format("V{0:.0f}H0Z", kHeight);
    return fmt::format("<svg class=\"plot\" viewBox=\"0 0 {:.0f} {:.0f}\" "
                       "preserveAspectRatio=\"none\" role=\"img\" aria-labelledby=\"{}-words\">"
                       "<path class=\"held\" d=\"{}{}\"/><path class=\"deleted\" d=\"{}{}\"/>"
                       "<path class=\"line\" d=\"{}\"/></svg>\n",
                       kWidth, kHeight, id, held, down, deleted, down, held);
}

std::string numbers(const std::vector<SpaceNote>& notes, std::string_view id)
{
    std::vector<Row> rows;
    for (auto note = notes.rbegin(); note != notes.rend(); ++note)
        rows.push_back({note == notes.rbegin() ? "now" : std::to_string(note->at),
                        {htmlTime(momentText(note->at)), sizeText(note->bytes),
                         sizeText(note->deletedBytes)}});
    return "<details><summary>The numbers of the plot</summary>\n" +
           htmlTable(fmt::format("{}-words", id),
                     {{"Noted (UTC)"}, {"Held", true}, {"Of it deleted", true}}, rows, 0) +
           "</details>\n";
}

} // namespace

std::string plotInWords(const std::vector<SpaceNote>& notes)
{
    const SpaceNote& first = notes.front();
    const SpaceNote& last = notes.back();
    if (notes.size() == 1)
        return fmt::format("{} now; nothing was noted before.", sizeText(last.bytes));
    return fmt::format("From {} at {} to {} now. The most was {}.", sizeText(first.bytes),
                       momentText(first.at), sizeText(last.bytes), sizeText(mostOf(notes)));
}

std::string plotFigure(std::string_view id, std::string_view userName,
                       const std::vector<SpaceNote>& notes)
{
    const std::vector<SpaceNote> shown = thinned(notes);
    return fmt::format("<figure data-key=\"{0}\"><figcaption id=\"{0}-words\">{1}: {2}"
                       "</figcaption>\n<p class=\"scale\" aria-hidden=\"true\">{3}</p>\n{4}"
                       "<p class=\"scale ends\" aria-hidden=\"true\"><span>{5}</span><span>now"
                       "</span></p>\n{6}</figure>\n",
                       id, htmlName(userName), plotInWords(notes), sizeText(mostOf(shown)),
                       drawing(shown, id), momentText(shown.front().at), numbers(shown, id));
}

} // namespace stowline::devserver
