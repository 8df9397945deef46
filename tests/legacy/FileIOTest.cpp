#include "legacy/FileIO.h"

#include <tuple>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {

struct BinaryFile : ::testing::Test {
    TemporaryDirectory directory;
    const std::string path = directory.file("store");
    FileIO file;
    char buffer[17] = {};
};

TEST_F(BinaryFile, doesWhatItsModeAllows) {
    for (int mode = FileIO::SerialRead; mode <= 4; ++mode) {
        SCOPED_TRACE(mode);
        const bool opens = mode != 4, reads = mode & 1, writes = mode & 2;
        writeFile(path, "good");
        EXPECT_EQ(file.open(path, FileIO::SerialModes(mode)), opens);
        EXPECT_FALSE(file.open("", FileIO::SerialRead) || file.open("x", FileIO::SerialNone));
        EXPECT_EQ(file.writeData("new", 3), writes);
        EXPECT_TRUE(file.flush());
        EXPECT_EQ(readFile(path), writes ? "new" : "good");
        EXPECT_EQ(file.setOffset(0) && file.readData(buffer, 3), reads);
        EXPECT_EQ(file.getFileSize(), reads && !writes ? 4 : -1ull);
        EXPECT_EQ(file.reopen(), writes && !reads) << "what was refused left path and mode alone";
        EXPECT_EQ(readFile(path), !writes ? "good" : reads ? "new" : "");
        EXPECT_TRUE(file.close() && file.close() && file.flush() && file.getFileSize() == -1ull);
        EXPECT_FALSE(file.isEOF() || file.setOffset(0) || file.readEndianData(buffer, 0));
        EXPECT_EQ(file.open("/dev/full", FileIO::SerialModes(mode)) && file.writeData("a", 1),
                  writes);
        EXPECT_EQ(file.close(), !writes) << "there is no room";
    }
}

TEST_F(BinaryFile, readsNumbersBeyond32Bits) {
    constexpr long Far = 5l << 30;
    EXPECT_TRUE(file.open(path, FileIO::SerialWrite) && file.setOffset(Far));
    EXPECT_TRUE(file.writeData("12345678abcdefgh", 16) && file.open(path, FileIO::SerialRead));
    EXPECT_TRUE(file.getFileSize() == Far + 16ull && file.setOffset(Far));
    EXPECT_TRUE(file.readEndianData(buffer, 8));
    EXPECT_FALSE(file.setOffset(FileIO::InvalidOffset) || file.readEndianData(nullptr, 8));
    file.setSwapBytes(true);
    EXPECT_TRUE(file.readEndianData(buffer + 8, 8));
    EXPECT_STREQ(buffer, "12345678hgfedcba");
    EXPECT_FALSE(file.isEOF() || file.readEndianData(buffer, 1) || !file.isEOF());
}

TEST_F(BinaryFile, readsStringsAsFarAsTheyGo) {
    const std::string some(9999, 's'), cut = some + '\0' + some, next = fieldOf(1) + "n";
    const std::tuple<bool, bool, bool, std::string, std::string> rows[] = {
        {false, false, true, fieldOf(19999) + cut + next, some},
        {true, false, true, fieldOf(short{19999}) + cut + next, some},
        {false, true, true, std::string("\0\0\0\2ab\0\0\0\1n", 11), "ab"},
        {true, true, true, std::string("\0\0\0\0\0\1n", 7), ""},
        {true, false, false, fieldOf(short{-1}) + some, some},
        {false, false, false, fieldOf(-1) + some, ""},
        {false, false, false, fieldOf(-2) + some, some},
        {false, false, false, "abc", "old"},
        {true, false, false, "a", "old"}};
    for (const auto& [isShort, isSwapped, isGood, stored, expected] : rows) {
        SCOPED_TRACE(stored.substr(0, 4) + (isShort ? " short" : ""));
        writeFile(path, stored);
        EXPECT_TRUE(file.open(path, FileIO::SerialRead));
        file.setSwapBytes(isSwapped);
        std::string text = "old", behind;
        EXPECT_EQ(isShort ? file.readShortString(text) : file.readString(text), isGood);
        EXPECT_EQ(text, expected);
        EXPECT_LT(text.capacity(), 40000u) << "memory for what is not there";
        EXPECT_TRUE(!isGood || (file.readString(behind) && behind == "n"));
    }
    const std::string text(70000, 't');
    EXPECT_TRUE(file.open(path, FileIO::SerialWrite));
    EXPECT_TRUE(file.writeShortString(text) && file.writeString(text) && file.flush());
    EXPECT_EQ(readFile(path), fieldOf(short{4464}) + text.substr(0, 4464) + fieldOf(70000) + text);
    EXPECT_EQ(FileIO::diskStringSize(text) + FileIO::diskShortStringSize(text), 140006u);
}

}  // namespace Korvel
