#pragma once

#include <cstdio>
#include <string>

namespace Korvel {

/// A binary file as the older transition store reads and writes it: counted runs of bytes, numbers
/// that may come from a machine of the other byte order, and strings behind their length.
///
///   string         4  length, unsigned   then the bytes, without a terminator
///   short string   2  length, unsigned   the same
///
/// Lengths are written in the machine's own byte order. Nothing is printed; every failure is a
/// false result and leaves the stream as the failed call left it.
///
/// In SerialReadWrite mode a setOffset() lies between a write and a read and between a read and a
/// write, as for any C stream. One thread at a time.
class FileIO {
public:
    enum SerialModes : int {
        SerialNone = 0,
        SerialRead = 1,
        SerialWrite = 2,      // creates or empties the file
        SerialReadWrite = 3,  // the same, and what was written can be read
    };

    static constexpr long long InvalidOffset = -1;

    FileIO() = default;
    ~FileIO();
    FileIO(const FileIO&) = delete;
    FileIO& operator=(const FileIO&) = delete;

    /// Opens the file, after closing the one that is open. Without a mode or a path nothing
    /// happens, and the answer is false.
    bool open(const std::string& path, SerialModes mode);

    /// Begins the file of the last open() anew, empty. SerialWrite only.
    bool reopen();

    /// Hands what was written to the system; true where nothing can have been written.
    bool flush();

    /// False when the system refused, now, what was still to be written.
    bool close();

    /// Whether a read has met the end of the file. To have read the last byte is not enough.
    bool isEOF() const;

    /// Size in bytes, or all ones. Only SerialRead knows it: a file that is being written is larger
    /// than the system can tell.
    unsigned long long getFileSize() const;

    /// Goes to the byte at @p offset, which may lie behind the end.
    bool setOffset(long offset);

    /// True when all @p n bytes were read; what was read is in @p buf in any case.
    bool readData(void* buf, unsigned int n);
    bool writeData(const void* buf, unsigned int n);

    /// As readData(), of one number of @p n bytes in the file's byte order.
    bool readEndianData(void* buf, unsigned int n);

    /// Whether numbers in the file are of the other byte order: the owner finds out.
    void setSwapBytes(bool isSwapping) { m_isSwapping = isSwapping; }

    bool writeString(const std::string& text);

    /// Writes as many bytes as the low 16 bits of the string's length say.
    bool writeShortString(const std::string& text);

    /// Reads a string up to its first zero byte; what lies behind that is passed over. Where the
    /// length cannot be read, @p text stays as it is. A string that the file does not hold whole is
    /// what is there of it, and false.
    bool readString(std::string& text);
    bool readShortString(std::string& text);

    static unsigned long long diskStringSize(const std::string& text);
    static unsigned long long diskShortStringSize(const std::string& text);

private:
    bool openStream();
    bool readText(std::string& text, unsigned int length);

    std::FILE* m_pStream = nullptr;  // owned; null when closed
    SerialModes m_mode = SerialNone;
    bool m_isSwapping = false;
    std::string m_path;  // of the last open(), which reopen() goes back to
};

}  // namespace Korvel
