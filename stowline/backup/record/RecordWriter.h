// Writes a record, item by item.
#pragma once

#include "stowline/backup/record/RecordLines.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/GzipStream.h"

#include <cstdint>
#include <string>

namespace stowline::backup {

/// One record on its way into a sink, packed. Memory stays the same whatever its length. Items and
/// vanished paths come in walking order. Throws what the sink throws.
class RecordWriter {
public:
    RecordWriter(const RecordHead& head, platform::ByteSink sink);

    void write(const StoredItem& item);
    void writeGone(const std::string& path);
    /// After all items.
    void write(const PlaceLine& place);

    /// Ends the record. Nothing may be written after it.
    void finish();

    /// After finish(): of the stored bytes.
    [[nodiscard]] std::uint64_t size() const { return size_; }
    [[nodiscard]] std::string digest() const { return stored_.hexadecimal(); }

private:
    void writeLine(const std::string& line);

    platform::ByteSink sink_;
    platform::Sha256 lines_;
    platform::Sha256 stored_;
    std::uint64_t items_ = 0;
    std::uint64_t size_ = 0;
    platform::GzipWriter packer_;
};

} // namespace stowline::backup
