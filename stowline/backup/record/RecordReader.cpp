#include "stowline/backup/record/RecordReader.h"

namespace stowline::backup {

namespace {

constexpr std::size_t kLongestLine = 16U << 20;
constexpr std::uint64_t kMostPlainBytes = std::uint64_t{1} << 40;

[[noreturn]] void refuse(const std::string& what)
{
    throw RecordFault(RecordFault::Kind::damaged, "The record is damaged: " + what + ".");
}

} // namespace

RecordReader::RecordReader(RecordListener listener)
    : listener_(std::move(listener)),
      unpacker_([this](std::string_view bytes) { takePlain(bytes); }, kMostPlainBytes)
{
}

void RecordReader::feed(std::string_view stored)
{
    stored_.update(stored);
    try {
        unpacker_.feed(stored);
    } catch (const platform::GzipFault& fault) {
        refuse(fault.what());
    }
}

void RecordReader::finish()
{
    try {
        unpacker_.finish();
    } catch (const platform::GzipFault& fault) {
        refuse(fault.what());
    }
    if (!isAtEnd_ || !rest_.empty())
        refuse("its end is missing");
}

void RecordReader::takePlain(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        if (rest_.size() + std::min(end, bytes.size()) > kLongestLine)
            refuse("a line is too long");
        if (end == std::string_view::npos) {
            rest_ += bytes;
            return;
        }
        if (rest_.empty()) {
            takeLine(bytes.substr(0, end + 1));
        } else {
            rest_ += bytes.substr(0, end + 1);
            takeLine(rest_);
            rest_.clear();
        }
        bytes.remove_prefix(end + 1);
    }
}

void RecordReader::takeLine(std::string_view line)
{
    if (isAtEnd_)
        refuse("something follows its end");
    if (!head_) {
        head_ = headOf(line);
        if (listener_.head)
            listener_.head(*head_);
    } else {
        takeItem(line);
    }
    lines_.update(line);
}

void RecordReader::takeItem(std::string_view line)
{
    const RecordLine taken = recordLineOf(line);
    if (const auto* end = std::get_if<RecordEnd>(&taken)) {
        checkEnd(*end);
        isAtEnd_ = true;
        return;
    }
    ++items_;
    if (const auto* place = std::get_if<PlaceLine>(&taken)) {
        if (isNote())
            refuse("a note that a run has begun, or is forgotten, tells of no places");
        if (!place->note && !head_->baseline)
            refuse("it has nothing to build on, yet tells what is gone");
        isPastItems_ = true;
        if (listener_.place)
            listener_.place(*place);
        return;
    }
    if (isPastItems_)
        refuse("an item follows the notes of places");
    if (const auto* gone = std::get_if<GoneItem>(&taken)) {
        takePath(gone->path);
        if (!head_->baseline)
            refuse("it has nothing to build on, yet tells what is gone");
        if (listener_.gone)
            listener_.gone(gone->path);
        return;
    }
    const auto& item = std::get<StoredItem>(taken);
    takePath(item.item.path);
    if (item.content && item.content->run > head_->run)
        refuse("content of a later run");
    if (listener_.item)
        listener_.item(item);
}

bool RecordReader::isNote() const
{
    return head_->state == RecordState::begun || head_->state == RecordState::forgotten;
}

void RecordReader::takePath(const std::string& path)
{
    if (isNote())
        refuse("a note that a run has begun, or is forgotten, has no items");
    if (!lastPath_.empty() && comparePaths(lastPath_, path) >= 0)
        refuse("its items are out of order");
    lastPath_ = path;
}

void RecordReader::checkEnd(const RecordEnd& end) const
{
    if (end.items != items_)
        refuse("items are missing");
    if (end.digest != lines_.hexadecimal())
        refuse("its lines are not those that were written");
}

} // namespace stowline::backup
