#include "bench/HomeFolder.h"

#include "bench/ServedTree.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSeed = 20;
constexpr std::uint64_t kFilesInAFolder = 40;
constexpr double kSpread = 2.37; ///< of the logarithms of sizes
constexpr std::size_t kPiece = 1U << 20;
constexpr std::size_t kWords = 4096;

struct Place {
    const char* name;
    bool isText;
};
constexpr std::array<Place, 6> kPlaces{Place{"Documents", true}, Place{"Pictures", false},
                                       Place{"Projects", true},  Place{"Music", false},
                                       Place{"Mail", true},      Place{"Films", false}};

/// splitmix64: numbers that look random and are the same for a seed.
class Numbers {
public:
    explicit Numbers(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next()
    {
        std::uint64_t mixed = (state_ += 0x9E3779B97F4A7C15U);
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31U);
    }
    std::uint64_t below(std::uint64_t bound) { return next() % bound; }
    /// Above 0, at most 1.
    double part() { return (static_cast<double>(next() >> 11U) + 1) / 9007199254740992.0; }
    /// Normally distributed (Box and Muller).
    double normal()
    {
        return std::sqrt(-2 * std::log(part())) * std::cos(2 * std::numbers::pi * part());
    }

private:
    std::uint64_t state_;
};

std::vector<std::uint64_t> sizesOf(const HomeFolder& home)
{
    Numbers numbers(kSeed);
    std::vector<double> sizes(home.files);
    std::ranges::generate(sizes, [&] { return std::exp(kSpread * numbers.normal()); });
    const double most = static_cast<double>(home.bytes) / 100;
    // Cut off and stretched in turn, until both hold.
    for (int turn = 0; turn < 50; ++turn) {
        double all = 0;
        for (const double size : sizes)
            all += size;
        for (double& size : sizes)
            size = std::min(size * static_cast<double>(home.bytes) / all, most);
    }
    std::vector<std::uint64_t> whole(sizes.size());
    std::ranges::transform(sizes, whole.begin(),
                           [](double size) { return static_cast<std::uint64_t>(size); });
    return whole;
}

fs::path folderOf(std::uint64_t number)
{
    const Place& place = kPlaces.at(number % kPlaces.size());
    return fs::path(place.name) / fmt::format("folder {:05}", number);
}

bool isText(const fs::path& file)
{
    for (const Place& place : kPlaces) {
        if (file.string().find(fmt::format("/{}/", place.name)) != std::string::npos)
            return place.isText;
    }
    return false;
}

std::string noise(Numbers& numbers, std::size_t size)
{
    std::string bytes;
    bytes.reserve(size + 8);
    while (bytes.size() < size) {
        const std::uint64_t word = numbers.next();
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    bytes.resize(size);
    return bytes;
}

const std::vector<std::string>& vocabulary()
{
    static const std::vector<std::string> words = [] {
        Numbers numbers(kSeed);
        std::vector<std::string> made(kWords);
        for (std::string& word : made) {
            for (std::uint64_t left = 2 + numbers.below(9); left > 0; --left)
                word += static_cast<char>('a' + numbers.below(26));
            word += ' ';
        }
        return made;
    }();
    return words;
}

std::string prose(Numbers& numbers, std::size_t size)
{
    std::string text;
    text.reserve(size + 16);
    while (text.size() < size)
        text += vocabulary()[numbers.next() % kWords];
    text.resize(size);
    return text;
}

/// Writes bytes that no other file has, at the end or from a place on.
void writeContent(const fs::path& file, std::uint64_t seed, std::uint64_t size,
                  std::ios::openmode mode, std::uint64_t place)
{
    Numbers numbers(kSeed * 1000003 + seed);
    std::ofstream out(file, std::ios::binary | mode);
    if ((mode & std::ios::app) == std::ios::openmode{})
        out.seekp(static_cast<std::streamoff>(place));
    const bool packs = isText(file);
    for (std::uint64_t left = size; left > 0;) {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece));
        const std::string bytes = packs ? prose(numbers, piece) : noise(numbers, piece);
        out.write(bytes.data(), static_cast<std::streamsize>(piece));
        left -= piece;
    }
    out.close();
    expect(out.good(), file.string() + " cannot be written.");
}

void makeFile(const fs::path& file, std::uint64_t seed, std::uint64_t size)
{
    fs::create_directories(file.parent_path());
    writeContent(file, seed, size, std::ios::trunc, 0);
}

std::string nameOf(std::uint64_t number)
{
    return fmt::format("a file with a usual name {:06}", number);
}

fs::path fileOf(const HomeFolder& home, std::uint64_t number)
{
    return home.top / folderOf(number / kFilesInAFolder) / nameOf(number);
}

/// That many files in a thousand, never the same for two of a day's doings, and no file of the
/// first folder, which gets another name.
std::vector<std::uint64_t> chosen(const HomeFolder& home, std::uint64_t inAThousand,
                                  std::uint64_t doing)
{
    std::vector<std::uint64_t> numbers;
    const std::uint64_t count = std::max<std::uint64_t>(home.files * inAThousand / 1000, 1);
    for (std::uint64_t i = 0; i < count; ++i)
        numbers.push_back(kFilesInAFolder + 2 * (i * (home.files - kFilesInAFolder) / 2 / count) +
                          doing);
    return numbers;
}

} // namespace

void makeHomeFolder(const HomeFolder& home)
{
    const auto sizes = sizesOf(home);
    for (std::uint64_t i = 0; i < home.files; ++i)
        makeFile(fileOf(home, i), i, sizes[i]);
}

void passADay(const HomeFolder& home)
{
    const auto sizes = sizesOf(home);
    const auto largest =
        static_cast<std::uint64_t>(std::distance(sizes.begin(), std::ranges::max_element(sizes)));
    writeContent(fileOf(home, largest), home.files * 2, 1000000, std::ios::app, 0);
    for (const std::uint64_t number : chosen(home, 4, 0)) {
        if (number == largest)
            continue;
        const std::uint64_t tenth = sizes[number] / 10 + 1;
        writeContent(fileOf(home, number), home.files * 3 + number, tenth,
                     std::ios::in | std::ios::out, sizes[number] / 2);
        writeContent(fileOf(home, number), home.files * 4 + number, tenth, std::ios::app, 0);
    }
    for (const std::uint64_t number : chosen(home, 1, 1)) {
        if (number != largest)
            fs::remove(fileOf(home, number));
    }
    const std::uint64_t added = std::max<std::uint64_t>(home.files * 2 / 1000, 1);
    for (std::uint64_t i = 0; i < added; ++i) {
        const auto beside = fileOf(home, kFilesInAFolder + i * 97 % (home.files - kFilesInAFolder));
        makeFile(beside.parent_path() / ("new " + nameOf(i)), home.files + i,
                 sizes[i * 89 % home.files]);
    }
    const fs::path renamed = home.top / folderOf(0);
    fs::rename(renamed, renamed.parent_path() / "another name");
}

} // namespace stowline::bench
