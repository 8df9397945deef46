#pragma once

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Korvel {

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Bytes for a test to compare with what is stored: little-endian, as every field of a recording.
template <typename Integer>
std::string fieldOf(Integer value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

// A field of stored bytes; a test that looks beyond them fails.
template <typename Integer>
Integer fieldAt(const std::string& bytes, std::size_t offset) {
    const std::string field = bytes.substr(offset, sizeof(Integer));
    if (field.size() != sizeof(Integer)) throw std::out_of_range("no such field");
    Integer value;
    std::memcpy(&value, field.data(), sizeof(value));
    return value;
}

template <typename Integer>
void damage(const std::string& path, std::size_t offset, Integer value) {
    std::string bytes = readFile(path);
    bytes.replace(offset, sizeof(value), fieldOf(value));
    writeFile(path, bytes);
}

}  // namespace Korvel
