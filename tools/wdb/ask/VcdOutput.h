#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// The file that a dump is written to. Every failure throws ToolError naming it.
class VcdOutput {
public:
    /// Replaces what is there. "-" stands for standard output.
    explicit VcdOutput(const std::string& name);
    ~VcdOutput();
    VcdOutput(const VcdOutput&) = delete;
    VcdOutput& operator=(const VcdOutput&) = delete;

    void put(std::string_view text);
    /// Ends writing; what could not be written yet shows here.
    void close();

private:
    bool isStandardOutput() const { return m_file == stdout; }
    [[noreturn]] void fail() const;

    std::string m_name;
    std::FILE* m_file;  // null once closed
    std::vector<char> m_buffer;
};

/// The n-th identifier code: short, and free of characters that begin something else in a dump.
std::string vcdCode(std::uint32_t n);

/// A text as the value of a string variable: one word, whatever bytes it has.
std::string escapeVcdText(std::string_view text);

/// A text for the inside of a command: its words, none of which ends the command.
std::string plainVcdText(std::string_view text);

}  // namespace Korvel
