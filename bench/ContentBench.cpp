// Packing and sealing of content beside zstd at the same level piped into age.
#include "bench/Measure.h"
#include "stowline/backup/content/ContentUnsealer.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMebibyte = 1U << 20;
constexpr std::size_t kMebibytes = 1024;
constexpr int kRounds = 3;
constexpr unsigned kThreads = 2; ///< as many as the peer has programs
constexpr int kLevel = 3;

void require(bool isWell, const std::string& sentence)
{
    if (!isWell)
        throw std::runtime_error(sentence); // its files are deleted on the way out
}

/// Words of a made-up language: shrinks to two fifths or so, as texts do.
std::string textLike(std::mt19937_64& generator, const std::vector<std::string>& words)
{
    std::string text;
    while (text.size() < kMebibyte)
        text += words[generator() % words.size()] + ' ';
    text.resize(kMebibyte);
    return text;
}

std::vector<std::string> madeUpWords(std::mt19937_64& generator)
{
    std::vector<std::string> words(5000);
    for (std::string& word : words) {
        for (std::uint64_t letters = 2 + generator() % 8; letters > 0; --letters)
            word += static_cast<char>('a' + generator() % 26);
    }
    return words;
}

std::string random(std::mt19937_64& generator)
{
    std::string bytes(kMebibyte, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator());
    return bytes;
}

void close(std::ofstream& file)
{
    file.close();
    require(!file.fail(), "a file cannot be written");
}

fs::path makeFile(const test::TemporaryFolder& folder, bool isText)
{
    std::mt19937_64 generator(1);
    const auto words = madeUpWords(generator);
    fs::path path = folder.path() / (isText ? "text" : "random");
    std::ofstream file(path, std::ios::binary);
    for (std::size_t i = 0; i < kMebibytes; ++i)
        file << (isText ? textLike(generator, words) : random(generator));
    close(file);
    return path;
}

void eachPiece(const fs::path& from, const std::function<void(std::string_view)>& take)
{
    std::ifstream file(from, std::ios::binary);
    std::string piece(kMebibyte, '\0');
    while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0)
        take(std::string_view(piece).substr(0, static_cast<std::size_t>(file.gcount())));
    require(file.eof() && !file.bad(), "a file cannot be read: " + from.string());
}

/// So that nothing is measured that did not do its work.
void requireSame(const fs::path& one, const fs::path& other)
{
    std::ifstream left(one, std::ios::binary);
    std::ifstream right(other, std::ios::binary);
    require(fs::file_size(one) == fs::file_size(other), "what was opened has another size");
    std::string a(kMebibyte, '\0');
    std::string b(kMebibyte, '\0');
    for (auto rest = fs::file_size(one); rest > 0;
         rest -= std::min<std::uintmax_t>(rest, kMebibyte)) {
        const auto piece = static_cast<std::streamsize>(std::min<std::uintmax_t>(rest, kMebibyte));
        require(left.read(a.data(), piece) && right.read(b.data(), piece) && a == b,
                "what was opened is not what was sealed");
    }
}

/// @return the identifier of the content
std::string seal(const backup::MasterKey& key, const fs::path& from, const fs::path& to)
{
    using Mode = backup::Compression::Mode;
    std::ofstream file(to, std::ios::binary);
    backup::ContentSealer sealer(
        key, {.compression = {.mode = Mode::level, .level = kLevel}, .threads = kThreads},
        [&](std::string_view bytes) { file.write(bytes.data(), std::ssize(bytes)); });
    eachPiece(from, [&](std::string_view bytes) { sealer.write(bytes); });
    sealer.finish();
    close(file);
    return sealer.head().identifier;
}

void open(const backup::MasterKey& key, const std::string& identifier, const fs::path& from,
          const fs::path& to)
{
    std::ofstream file(to, std::ios::binary);
    backup::ContentUnsealer unsealer(
        key, identifier,
        [&](std::string_view bytes) { file.write(bytes.data(), std::ssize(bytes)); }, kThreads);
    eachPiece(from, [&](std::string_view bytes) { unsealer.feed(bytes); });
    unsealer.finish();
    close(file);
}

void runShell(const std::string& line)
{
    const auto result =
        test::runProgram({.words = {"/bin/bash", "-e", "-o", "pipefail", "-c", line}});
    require(result.status == 0, line + ": " + result.errors);
}

/// What is wanted of sealing is wanted of opening, too.
Row rowOf(const std::string& subject, const std::vector<double>& ours,
          const std::vector<double>& theirs)
{
    constexpr double least = 0.9;
    const double ratio = median(theirs) / median(ours);
    const auto speed = [](double microseconds) {
        return fmt::format("{:.0f} MiB/s", kMebibytes / (microseconds / 1e6));
    };
    return {.subject = subject,
            .ours = speed(median(ours)),
            .peer = "zstd | age " + speed(median(theirs)),
            .ratio = ratio,
            .wanted = "≥ 0.9",
            .isMet = ratio >= least};
}

void measureKind(const test::TemporaryFolder& folder, bool isText, std::vector<Row>& rows)
{
    const fs::path content = makeFile(folder, isText);
    const fs::path sealed = folder.path() / "sealed";
    const fs::path opened = folder.path() / "opened";
    const fs::path identity = folder.path() / "identity";
    const auto key = backup::MasterKey::make();
    std::vector<double> ours[2];
    std::vector<double> theirs[2];
    for (int round = 0; round < kRounds; ++round) {
        std::string identifier;
        ours[0].push_back(microsecondsFor([&] { identifier = seal(key, content, sealed); }));
        ours[1].push_back(microsecondsFor([&] { open(key, identifier, sealed, opened); }));
        requireSame(content, opened);
        theirs[0].push_back(microsecondsFor([&] {
            runShell(fmt::format("zstd -q -{} -c {} | age -r $(age-keygen -y {}) > {}", kLevel,
                                 content.string(), identity.string(), sealed.string()));
        }));
        theirs[1].push_back(microsecondsFor([&] {
            runShell(fmt::format("age -d -i {} {} | zstd -q -d -c > {}", identity.string(),
                                 sealed.string(), opened.string()));
        }));
        requireSame(content, opened);
    }
    const std::string kind = isText ? "text-like" : "random";
    rows.push_back(rowOf("pack and seal 1 GiB, " + kind, ours[0], theirs[0]));
    rows.push_back(rowOf("open and unpack 1 GiB, " + kind, ours[1], theirs[1]));
    fs::remove(content);
}

} // namespace

void measureContent()
{
    std::string failure;
    try {
        const test::TemporaryFolder folder;
        runShell("age-keygen -o " + (folder.path() / "identity").string());
        std::vector<Row> rows;
        measureKind(folder, true, rows);
        measureKind(folder, false, rows);
        print(rows);
        return;
    } catch (const std::exception& fault) {
        failure = fault.what();
    }
    fmt::print(stderr, "stopped: {}\n", failure);
    std::exit(1);
}

} // namespace stowline::bench
