#include <ctime>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "container/WdbFileManager.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {
namespace {

using ::testing::Eq;
using ::testing::ExitedWithCode;
using ::testing::StartsWith;

const std::string Thrower = "Tarn|wavedata/bridge/kernel/src/WdbFileManager|";
const std::string Refusal =
    Thrower + "The file may be corrupt or of an unsupported older format.  ";
const std::string AddBlockFailed =
    "WDB FATAL ERROR: failed to add file block (WdbFileBlockManager) for the following reason: ";
constexpr std::size_t ContentsNode = 64;

class FileManager : public ::testing::Test {
protected:
    FileManager() { manager.create(path); }

    void embed(const std::string& id, unsigned int version, const std::string& text) {
        manager.embedDataInNewSection(id, version,
                                      reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<long long>(text.size()));
    }
    std::string dataOf(const std::string& id, unsigned int version) {
        long long size = 0;
        const std::unique_ptr<unsigned char, void (*)(void*)> data(
            manager.getSectionData(id, version, &size), std::free);
        return data ? std::string(data.get(), data.get() + size) : "null";
    }
    std::string dataOf(const std::string& id, unsigned int version, long long size) {
        const std::unique_ptr<unsigned char[]> data(manager.getSectionData(id, version, size));
        return data ? std::string(data.get(), data.get() + size) : "null";
    }
    std::string bytes() {
        manager.writeHeader();  // flushes as well
        return readFile(path);
    }
    static std::string refusalOf(const std::string& file) {
        return openFailureOf([&] { WdbFileManager().open(file); });
    }

    TemporaryDirectory directory;
    const std::string path = directory.file("a.wdb");
    const std::string other = directory.file("other");
    WdbFileManager manager;
};

// The name may be set before and after the file is made, and is cut at what the field holds.
TEST_F(FileManager, beginsWithAHeaderThatNamesItsApplication) {
    for (const std::size_t length : {0u, 23u, 24u, 25u}) {
        const std::string name(length, 'n');
        const std::string header = std::string("Pellon WAVE DATABASE 01\0", 24) +
                                   (name + std::string(24, '\0')).substr(0, 24) + fieldOf(64ll);
        manager.setApplication(name);
        manager.create(path);
        const std::string file = readFile(path);
        EXPECT_EQ(file.substr(0, 56), header);
        EXPECT_LE(std::time(nullptr) - fieldAt<unsigned int>(file, 56), 60) << "is now";
        EXPECT_EQ(file.substr(60), std::string(140, '\0')) << "an empty node follows";
        manager.setApplication("other");
        manager.setApplication(name);
        EXPECT_EQ(bytes().substr(0, 56), header);
        WdbFileManager reader;
        reader.setApplication("reader");
        reader.open(path);
        EXPECT_EQ(reader.getApplication(), name.substr(0, 24));
        reader.create(other);
        EXPECT_EQ(reader.getApplication(), "reader") << "the other file's name is not its own";
    }
}

TEST_F(FileManager, findsSectionsByWhatTheirFieldHolds) {
    const std::string full(24, 'f');
    for (const auto& [version, text] : {std::pair(1, "first"), {1, "second"}, {2, "third"}})
        embed("Twice", static_cast<unsigned int>(version), text);
    embed(full + "cut", 1, "long");
    embed("Empty", 1, "");
    EXPECT_EQ(manager.getSections().size(), 4u) << "there is nothing to embed";
    manager.addNewSection("Empty", 1, 200, 0);
    const struct {
        std::string id;
        unsigned int version;
        const char* data;
    } rows[] = {{"Twice", 1, "first"},       {"Twice", 2, "third"},
                {"Twice", 3, "null"},        {full, 1, "long"},
                {full + "other", 1, "long"}, {"Empty", 1, "null"},
                {full.substr(1), 1, "null"}, {"", 1, "null"}};
    for (const auto& row : rows)
        EXPECT_EQ(dataOf(row.id, row.version), row.data) << row.id;
    EXPECT_EQ(dataOf("Twice", 1, 3), "fir");
    EXPECT_EQ(dataOf("Twice", 1, 8), std::string("first\0\0\0", 8)) << "never beyond the section";
    EXPECT_EQ(dataOf("Twice", 1, 0) + dataOf("Empty", 1, 5), "nullnull");
    std::free(manager.getSectionData("Twice", 1, nullptr));
    WdbTableOfContentItem item;
    EXPECT_TRUE(manager.getSection("Twice", 2, item));
    EXPECT_EQ(item.m_size, 5);
    EXPECT_EQ(manager.getSectionFileOffset("Twice", 2), item.m_offset);
    EXPECT_EQ(manager.getSectionSize("Twice", 2), item.m_offset);
}

TEST_F(FileManager, doesNothingWhileNoFileIsOpen) {
    const std::string before = bytes();
    manager.close();
    embed("Late", 1, "data");
    manager.addNewSection("Late", 1, 200, 4);
    manager.embedFileInNewSection("Late", 1, directory.file("missing"));
    manager.setApplication("late");
    manager.readHeader();
    EXPECT_EQ(dataOf("Late", 1), "null");
    EXPECT_EQ(readFile(path), before);
}

TEST_F(FileManager, saysWhatCannotBeOpened) {
    const std::string missing = directory.file("missing/a.wdb");
    EXPECT_EQ(refusalOf(missing), Thrower + "wdb database file does not exist.");
    const auto noSection =
        Thrower + "Cannot find sectionID = 'No such' and version = '7' in the wave database";
    WdbTableOfContentItem item;
    EXPECT_EQ(openFailureOf([&] { manager.getSection("No such", 7, item); }), noSection);
    EXPECT_EQ(openFailureOf([&] { manager.getSectionSize("No such", 7); }), noSection);
    for (const std::string& at : {missing, std::string(), path + "/x.wdb", std::string("/proc/x"),
                                  directory.file(std::string(300, 'x'))}) {
        EXPECT_EQ(openFailureOf([&] { manager.create(at); }),
                  Thrower + "Cannot create simulation database file at: " + at +
                      " Please check that this filepath is writable or specify an alternative "
                      "location using --wdb");
    }
    EXPECT_EXIT(manager.create("/dev/full"), ExitedWithCode(1),
                ::testing::EndsWith("block (WdbFileBlockManager) for the following reason: " +
                                    std::string(std::strerror(ENOSPC)) + "\n"));
}

TEST_F(FileManager, refusesWhatIsNotWholeOrNotItsVersion) {
    embed("Section", 1, "data");
    const std::string good = bytes();
    for (const std::size_t length : {0u, 1u, 63u, 64u, 199u}) {
        writeFile(other, good.substr(0, length));
        EXPECT_THAT(refusalOf(other), StartsWith(Refusal)) << length;
    }
    for (const std::size_t changed : {0u, 15u, 16u, 22u, 23u}) {
        writeFile(other, std::string(good).replace(changed, 1, "x"));
        EXPECT_THAT(refusalOf(other), StartsWith(Refusal)) << changed;
    }
    EXPECT_THAT(refusalOf(directory.file(".")), StartsWith(Refusal));
    writeFile(other, good.substr(0, 200));  // its first item is cut off
    manager.open(other);
    EXPECT_TRUE(manager.getSections().empty());
    // A table without a node asks for one, which no reader can make.
    damage(other, 48, 0ll);
    EXPECT_EXIT(refusalOf(other), ExitedWithCode(1), StartsWith(AddBlockFailed));
}

TEST_F(FileManager, findsWhatIsSoundInADamagedTable) {
    // Three sections of a letter, their items at 201, 250 and 299.
    const struct {
        const char* name;
        std::size_t offset;
        long long value;    // eight bytes
        const char* found;  // the sections' data; "?" where it cannot be read
    } rows[] = {
        {"itemInTheHeader", ContentsNode + 16, 16, "ac"},
        {"sizeBeyondTheEnd", 250 + 40, 1ll << 62, "a?c"},
        {"sizeNegative", 250 + 40, -1, "a?c"},
        {"dataBeyondTheEnd", 250 + 32, 1ll << 62, "a?c"},
    };
    for (const char letter : {'a', 'b', 'c'})
        embed(std::string(1, letter), 1, std::string(1, letter));
    const std::string good = bytes();
    for (const auto& row : rows) {
        writeFile(path, good);
        damage(path, row.offset, row.value);
        manager.open(path);
        std::string found;
        for (const WdbTableOfContentItem& item : manager.getSections()) {
            const std::string id = item.getSectionID();
            found += dataOf(id, 1) == id && dataOf(id, 1, 1) == id ? id : "?";
        }
        EXPECT_EQ(found, row.found) << row.name;
    }
}

TEST_F(FileManager, endsTheProcessOnFilesThatItCannotEmbed) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const struct {
        std::string what, path;
        int reason;
    } rows[] = {{"open", directory.file("missing"), ENOENT},
                {"seek in", "/proc/self/fd/" + std::to_string(ends[0]), ESPIPE},
                {"read", directory.file("."), EISDIR}};
    for (const auto& row : rows) {
        EXPECT_EXIT(manager.embedFileInNewSection("File", 2, row.path), ExitedWithCode(1),
                    Eq("WDB FATAL ERROR: Can't " + row.what + " WDB constituent file " + row.path +
                       " for the following reason: " + std::strerror(row.reason) + "\n"));
    }
}

}  // namespace
}  // namespace Korvel
