#include "stowline/backup/record/RecordWriter.h"

namespace stowline::backup {

RecordWriter::RecordWriter(const RecordHead& head, platform::ByteSink sink)
    : sink_(std::move(sink)), packer_([this](std::string_view bytes) {
          stored_.update(bytes);
          size_ += bytes.size();
          sink_(bytes);
      })
{
    writeLine(lineOf(head));
}

void RecordWriter::writeLine(const std::string& line)
{
    lines_.update(line);
    packer_.write(line);
}

void RecordWriter::write(const StoredItem& item)
{
    writeLine(lineOf(item));
    ++items_;
}

void RecordWriter::writeGone(const std::string& path)
{
    writeLine(lineOf(GoneItem{path}));
    ++items_;
}

void RecordWriter::write(const PlaceLine& place)
{
    writeLine(lineOf(place));
    ++items_;
}

void RecordWriter::finish()
{
    packer_.write(lineOf(RecordEnd{items_, lines_.hexadecimal()}));
    packer_.finish();
}

} // namespace stowline::backup
