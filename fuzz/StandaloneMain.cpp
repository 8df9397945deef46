// Runs a fuzz target without a fuzzer: on every file given (or in a directory given), and on inputs
// generated from a fixed seed, half of them from nothing and half by changing a file.
//   TARGET [--generated COUNT] [FILE | DIRECTORY]...

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run(const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

void collect(const std::filesystem::path& path, std::vector<std::string>& seeds) {
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::directory_iterator(path))
            collect(entry.path(), seeds);
        return;
    }
    std::ifstream file(path, std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Small numbers, all ones and zeros are what counts and lengths go wrong by.
char interestingByte(std::mt19937& random) {
    switch (random() % 4) {
        case 0:
            return 0;
        case 1:
            return static_cast<char>(random() % 8);
        case 2:
            return '\xFF';
        default:
            return static_cast<char>(random());
    }
}

std::string generated(std::mt19937& random, const std::vector<std::string>& seeds) {
    constexpr std::size_t Longest = 600;
    if (seeds.empty() || random() % 2 == 0) {
        std::string input(random() % Longest, '\0');
        for (char& byte : input)
            byte = interestingByte(random);
        return input;
    }
    std::string input = seeds[random() % seeds.size()];
    for (std::size_t edits = 1 + random() % 4; edits > 0 && !input.empty(); --edits)
        input[random() % input.size()] = interestingByte(random);
    if (random() % 4 == 0) input.resize(random() % (input.size() + 1));
    return input;
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    std::vector<std::string> seeds;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--generated" && i + 1 < argc) {
            count = std::strtoul(argv[++i], nullptr, 10);
        } else if (std::filesystem::exists(argv[i])) {
            collect(argv[i], seeds);
        } else {
            std::cerr << argv[0] << ": no such file: " << argv[i] << '\n';
            return 2;
        }
    }
    for (const std::string& seed : seeds)
        run(seed);
    std::mt19937 random(1);
    for (std::size_t i = 0; i < count; ++i)
        run(generated(random, seeds));
    std::cout << seeds.size() << " files and " << count << " generated inputs\n";
    return 0;
}
