#include "stowline/util/Crc32Folding.h"

#if defined(__x86_64__)

#include <immintrin.h>

// Each function names the instructions it needs, so that the rest of the library runs anywhere.
#define STOWLINE_NEEDS_PCLMUL __attribute__((target("pclmul,sse4.1")))
#define STOWLINE_NEEDS_VPCLMUL __attribute__((target("pclmul,sse4.1,avx512f,vpclmulqdq")))

namespace stowline::crc32 {

namespace {

constexpr std::uint64_t kPolynomial = 0x104C11DB7; // unreflected, with its highest term

/// x to this power modulo the polynomial, bits reversed and moved up by one: the product of two
/// reversed factors comes out one place too low.
constexpr std::uint64_t reversedPower(int exponent)
{
    std::uint64_t remainder = 1;
    for (int i = 0; i < exponent; ++i) {
        remainder <<= 1;
        if ((remainder >> 32 & 1) != 0)
            remainder ^= kPolynomial;
    }
    std::uint64_t reversed = 0;
    for (unsigned bit = 0; bit < 32; ++bit)
        reversed |= (remainder >> bit & 1) << (32 - bit);
    return reversed;
}

/// The two factors that move a block of 128 bits forward by a number of bits: one for its first
/// eight bytes, one for its last.
struct Factors {
    std::uint64_t first;
    std::uint64_t last;
};

constexpr Factors factorsFor(int bits)
{
    return {reversedPower(bits + 32), reversedPower(bits - 32)};
}

constexpr std::size_t kBlock = 16;

const __m128i* block(const char* bytes)
{
    return reinterpret_cast<const __m128i*>(static_cast<const void*>(bytes));
}

STOWLINE_NEEDS_PCLMUL inline __m128i moved(__m128i remainder, Factors factors)
{
    const __m128i both =
        _mm_set_epi64x(static_cast<long long>(factors.last), static_cast<long long>(factors.first));
    return _mm_xor_si128(_mm_clmulepi64_si128(remainder, both, 0x00),
                         _mm_clmulepi64_si128(remainder, both, 0x11));
}

STOWLINE_NEEDS_PCLMUL inline __m128i loaded(const char* bytes)
{
    return _mm_loadu_si128(block(bytes));
}

/// Goes on from a remainder that stands for everything before `at`, block by block.
STOWLINE_NEEDS_PCLMUL Folded foldRest(__m128i remainder, std::string_view bytes, std::size_t at)
{
    constexpr Factors byOne = factorsFor(128);
    for (; bytes.size() - at >= kBlock; at += kBlock)
        remainder = _mm_xor_si128(moved(remainder, byOne), loaded(bytes.data() + at));
    Folded folded{{}, at};
    _mm_storeu_si128(reinterpret_cast<__m128i*>(static_cast<void*>(folded.bytes)), remainder);
    return folded;
}

STOWLINE_NEEDS_PCLMUL __m128i firstBlock(std::uint32_t checksumRegister, const char* bytes)
{
    return _mm_xor_si128(loaded(bytes), _mm_cvtsi32_si128(static_cast<int>(checksumRegister)));
}

STOWLINE_NEEDS_PCLMUL Folded foldBy128Bytes(std::uint32_t checksumRegister, std::string_view bytes)
{
    constexpr std::size_t lanes = 8;
    constexpr std::size_t step = lanes * kBlock;
    if (bytes.size() < step)
        return foldRest(firstBlock(checksumRegister, bytes.data()), bytes, kBlock);

    __m128i remainders[lanes]; // NOLINT: lives in registers
    remainders[0] = firstBlock(checksumRegister, bytes.data());
    for (std::size_t lane = 1; lane < lanes; ++lane)
        remainders[lane] = loaded(bytes.data() + lane * kBlock);
    std::size_t at = step;
    constexpr Factors byStep = factorsFor(8 * step);
    for (; bytes.size() - at >= step; at += step) {
        for (std::size_t lane = 0; lane < lanes; ++lane)
            remainders[lane] = _mm_xor_si128(moved(remainders[lane], byStep),
                                             loaded(bytes.data() + at + lane * kBlock));
    }
    constexpr Factors byOne = factorsFor(128);
    __m128i remainder = remainders[0];
    for (std::size_t lane = 1; lane < lanes; ++lane)
        remainder = _mm_xor_si128(moved(remainder, byOne), remainders[lane]);
    return foldRest(remainder, bytes, at);
}

/// Four blocks at once, all moved by the same number of bits, and four more added.
STOWLINE_NEEDS_VPCLMUL inline __m512i movedAndAdded(__m512i remainders, __m512i factors,
                                                    __m512i added)
{
    constexpr int exclusiveOrOfThree = 0x96;
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(remainders, factors, 0x00),
                                     _mm512_clmulepi64_epi128(remainders, factors, 0x11), added,
                                     exclusiveOrOfThree);
}

STOWLINE_NEEDS_VPCLMUL inline __m512i inEveryBlock(Factors factors)
{
    return _mm512_broadcast_i32x4(_mm_set_epi64x(static_cast<long long>(factors.last),
                                                 static_cast<long long>(factors.first)));
}

STOWLINE_NEEDS_VPCLMUL Folded foldBy256Bytes(std::uint32_t checksumRegister, std::string_view bytes)
{
    constexpr std::size_t lanes = 4;
    constexpr std::size_t width = 4 * kBlock;
    constexpr std::size_t step = lanes * width;
    if (bytes.size() < step)
        return foldBy128Bytes(checksumRegister, bytes);

    __m512i remainders[lanes]; // NOLINT: lives in registers
    for (std::size_t lane = 0; lane < lanes; ++lane)
        remainders[lane] = _mm512_loadu_si512(bytes.data() + lane * width);
    remainders[0] = _mm512_xor_si512(remainders[0], _mm512_zextsi128_si512(_mm_cvtsi32_si128(
                                                        static_cast<int>(checksumRegister))));
    std::size_t at = step;
    const __m512i byStep = inEveryBlock(factorsFor(8 * step));
    for (; bytes.size() - at >= step; at += step) {
        for (std::size_t lane = 0; lane < lanes; ++lane)
            remainders[lane] = movedAndAdded(remainders[lane], byStep,
                                             _mm512_loadu_si512(bytes.data() + at + lane * width));
    }
    const __m512i byWidth = inEveryBlock(factorsFor(8 * width));
    __m512i four = remainders[0];
    for (std::size_t lane = 1; lane < lanes; ++lane)
        four = movedAndAdded(four, byWidth, remainders[lane]);
    constexpr Factors byOne = factorsFor(128);
    __m128i remainder = _mm512_castsi512_si128(four);
    remainder = _mm_xor_si128(moved(remainder, byOne), _mm512_extracti32x4_epi32(four, 1));
    remainder = _mm_xor_si128(moved(remainder, byOne), _mm512_extracti32x4_epi32(four, 2));
    remainder = _mm_xor_si128(moved(remainder, byOne), _mm512_extracti32x4_epi32(four, 3));
    return foldRest(remainder, bytes, at);
}

} // namespace

Folding bestFolding()
{
    static const Folding best = [] {
        if (!__builtin_cpu_supports("pclmul") || !__builtin_cpu_supports("sse4.1"))
            return Folding::none;
        const bool isWide =
            __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("vpclmulqdq");
        return isWide ? Folding::by256Bytes : Folding::by128Bytes;
    }();
    return best;
}

Folded fold(std::uint32_t checksumRegister, std::string_view bytes, Folding folding)
{
    return folding == Folding::by256Bytes ? foldBy256Bytes(checksumRegister, bytes)
                                          : foldBy128Bytes(checksumRegister, bytes);
}

} // namespace stowline::crc32

#else

namespace stowline::crc32 {

Folding bestFolding()
{
    return Folding::none;
}

Folded fold(std::uint32_t, std::string_view, Folding)
{
    return {};
}

} // namespace stowline::crc32

#endif
