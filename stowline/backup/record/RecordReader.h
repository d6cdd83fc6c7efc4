// Reads a record while it arrives; trusts nothing in it.
#pragma once

#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/record/RecordLines.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/GzipStream.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::backup {

/// What a record says, in the order in which it says it. Absent functions: not wanted.
struct RecordListener {
    std::function<void(const RecordHead&)> head;
    std::function<void(const StoredItem&)> item;
    std::function<void(const std::string& path)> gone;
    std::function<void(const PlaceLine&)> place;
};

/// One record. Feed it the stored bytes in pieces of any size, then finish(): only then is it known
/// that what was handed over is all of it and unchanged. Memory stays the same whatever it is fed.
/// Throws RecordFault for bytes that are not a record: cut off, changed, out of order, doubled, of
/// a line without end, or unpacking to more than any record could.
class RecordReader {
public:
    explicit RecordReader(RecordListener listener);

    void feed(std::string_view stored);
    void finish();

    /// The first line, once it has come.
    [[nodiscard]] const std::optional<RecordHead>& head() const { return head_; }
    /// SHA-256 of what was fed so far.
    [[nodiscard]] std::string digest() const { return stored_.hexadecimal(); }

private:
    void takePlain(std::string_view bytes);
    void takeLine(std::string_view line);
    void takeItem(std::string_view line);
    void takePath(const std::string& path);
    [[nodiscard]] bool isNote() const;
    void checkEnd(const RecordEnd& end) const;

    RecordListener listener_;
    platform::GzipReader unpacker_;
    platform::Sha256 stored_;
    platform::Sha256 lines_;
    std::string rest_; ///< of a line that has not come whole
    std::optional<RecordHead> head_;
    std::string lastPath_;
    std::uint64_t items_ = 0;
    bool isPastItems_ = false; ///< a note of a place has come
    bool isAtEnd_ = false;
};

} // namespace stowline::backup
