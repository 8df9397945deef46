#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// A file that a verb writes, a dump or a picture. Every failure throws ToolError naming it and
/// leaves no half of it.
class OutputFile {
public:
    /// Replaces what is there. "-" stands for standard output.
    explicit OutputFile(const std::string& name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

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

/// Whether a file may be made there: throws ToolError where that is known to fail. Makes nothing.
void checkCreatable(const std::string& name);

/// Whether both names lead to one file, which need not exist.
bool isSameFile(const std::string& one, const std::string& two);

}  // namespace Korvel
