// Hands every file of a folder to a fuzzer's entry, once: fuzz-NAME FOLDER
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int count, char** words)
{
    if (count != 2) {
        std::cerr << "usage: " << words[0] << " FOLDER\n";
        return 2;
    }
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(words[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input(std::istreambuf_iterator<char>(file), {});
        std::cout << entry.path().filename().string() << std::endl; // said before it may crash
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
        ++replayed;
    }
    std::cout << replayed << " inputs replayed\n";
    return replayed > 0 ? 0 : 1;
}
