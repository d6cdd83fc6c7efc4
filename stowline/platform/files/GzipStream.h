// Packing and unpacking in the gzip format (RFC 1952), piece by piece, by way of zlib.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace stowline::platform {

/// Where packed or unpacked bytes go.
using ByteSink = std::function<void(std::string_view)>;

/// Packs what it is given. Not for several threads at once. Throws std::bad_alloc without memory,
/// and what the sink throws.
class GzipWriter {
public:
    explicit GzipWriter(ByteSink sink);
    GzipWriter(GzipWriter&&) noexcept;
    ~GzipWriter();

    void write(std::string_view bytes);

    /// Hands over what is left and the end of the format. Nothing may be written after it.
    void finish();

private:
    struct State;
    void run(std::string_view bytes, int flush);
    std::unique_ptr<State> state_;
};

/// Bytes that are not gzip, damaged or cut off, or that unpack to more than was allowed.
class GzipFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Unpacks one gzip member. Memory stays the same whatever it is fed. Not for several threads at
/// once. Throws GzipFault, std::bad_alloc without memory, and what the sink throws.
class GzipReader {
public:
    /// @param mostBytes that it may unpack to
    GzipReader(ByteSink sink, std::uint64_t mostBytes);
    GzipReader(GzipReader&&) noexcept;
    ~GzipReader();

    void feed(std::string_view packed);

    /// Throws when the end of the member has not come.
    void finish() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace stowline::platform
