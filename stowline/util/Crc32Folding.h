// CRC-32 by carry-less multiplication, on processors that have it. For Crc32.cpp and its tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace stowline::crc32 {

/// Ways to fold, the faster the later.
enum class Folding {
    none,       ///< the processor has no carry-less multiplication
    by128Bytes, ///< PCLMULQDQ on eight registers of 16 bytes
    by256Bytes, ///< VPCLMULQDQ on four registers of 64 bytes (AVX-512)
};

/// The best that this processor and its system support.
[[nodiscard]] Folding bestFolding();

/// What folding leaves of a long text: 16 bytes that have the same checksum register.
struct Folded {
    unsigned char bytes[16]; // NOLINT: filled by a store
    std::size_t consumed;    ///< bytes of the text that are in it; a multiple of 16
};

/// Folds as many whole blocks of 16 bytes as there are.
///
/// The method is that of V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using
/// PCLMULQDQ Instruction" (Intel, 2009): a block of the text is congruent, modulo the polynomial,
/// to its halves multiplied by constants and added further on.
/// @param checksumRegister the register (inverted running checksum) before the text
/// @param bytes at least 16
/// @param folding one that bestFolding() allows, and not none
[[nodiscard]] Folded fold(std::uint32_t checksumRegister, std::string_view bytes, Folding folding);

} // namespace stowline::crc32
