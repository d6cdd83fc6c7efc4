#include "stowline/platform/files/GzipStream.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <zlib.h>

namespace stowline::platform {

namespace {

constexpr int kGzipWindow = 15 + 16; ///< the largest window, in the gzip format
constexpr int kMemoryLevel = 8;
constexpr std::size_t kRoom = 65536;
constexpr std::size_t kMostAtOnce = std::numeric_limits<uInt>::max() / 2;

void setInput(z_stream& stream, std::string_view bytes)
{
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
}

} // namespace

struct GzipWriter::State {
    explicit State(ByteSink to) : sink(std::move(to))
    {
        if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kMemoryLevel,
                         Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc();
    }
    ~State() { deflateEnd(&stream); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    z_stream stream{};
    ByteSink sink;
    std::array<char, kRoom> room{};
};

GzipWriter::GzipWriter(ByteSink sink) : state_(std::make_unique<State>(std::move(sink))) {}
GzipWriter::GzipWriter(GzipWriter&&) noexcept = default;
GzipWriter::~GzipWriter() = default;

void GzipWriter::run(std::string_view bytes, int flush)
{
    z_stream& stream = state_->stream;
    setInput(stream, bytes);
    do {
        stream.next_out = reinterpret_cast<Bytef*>(state_->room.data());
        stream.avail_out = kRoom;
        (void)deflate(&stream, flush);
        state_->sink({state_->room.data(), kRoom - stream.avail_out});
    } while (stream.avail_out == 0);
}

void GzipWriter::write(std::string_view bytes)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMostAtOnce)))
        run(bytes.substr(0, kMostAtOnce), Z_NO_FLUSH);
}

void GzipWriter::finish()
{
    run({}, Z_FINISH);
}

struct GzipReader::State {
    State(ByteSink to, std::uint64_t most) : sink(std::move(to)), left(most)
    {
        if (inflateInit2(&stream, kGzipWindow) != Z_OK)
            throw std::bad_alloc();
    }
    ~State() { inflateEnd(&stream); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    z_stream stream{};
    ByteSink sink;
    std::uint64_t left;
    bool isAtEnd = false;
    std::array<char, kRoom> room{};
};

GzipReader::GzipReader(ByteSink sink, std::uint64_t mostBytes)
    : state_(std::make_unique<State>(std::move(sink), mostBytes))
{
}
GzipReader::GzipReader(GzipReader&&) noexcept = default;
GzipReader::~GzipReader() = default;

void GzipReader::feed(std::string_view packed)
{
    z_stream& stream = state_->stream;
    while (!packed.empty()) {
        if (state_->isAtEnd)
            throw GzipFault("bytes follow the end");
        const auto piece = packed.substr(0, kMostAtOnce);
        setInput(stream, piece);
        bool isRoomFull = true;
        while (!state_->isAtEnd && (stream.avail_in > 0 || isRoomFull)) {
            stream.next_out = reinterpret_cast<Bytef*>(state_->room.data());
            stream.avail_out = kRoom;
            const int outcome = inflate(&stream, Z_NO_FLUSH);
            if (outcome == Z_MEM_ERROR)
                throw std::bad_alloc();
            if (outcome != Z_OK && outcome != Z_STREAM_END && outcome != Z_BUF_ERROR)
                throw GzipFault("the packed bytes are damaged");
            state_->isAtEnd = outcome == Z_STREAM_END;
            isRoomFull = stream.avail_out == 0;
            const std::uint64_t count = kRoom - stream.avail_out;
            if (count > state_->left)
                throw GzipFault("it unpacks to more than is allowed");
            state_->left -= count;
            if (count > 0)
                state_->sink({state_->room.data(), static_cast<std::size_t>(count)});
        }
        packed.remove_prefix(piece.size() - stream.avail_in);
    }
}

void GzipReader::finish() const
{
    if (!state_->isAtEnd)
        throw GzipFault("it is cut off");
}

} // namespace stowline::platform
