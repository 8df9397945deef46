#include <climits>
#include <memory>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/WdbStringMapDatabase.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {
namespace {

constexpr int TypeId = 5;
// In a new container: the list's slot, the header, the section's item, the first list node.
constexpr long long Slot = 200;
constexpr long long Header = Slot + 8;
constexpr long long Node = Header + 16 + 48;

class StringMap : public ::testing::Test {
protected:
    StringMap() { start(); }

    void start() {
        map.reset();
        manager.create(path);
        WdbStringMapDatabase(manager, TypeId).createStringMapSection(TypeId, manager, true);
        reopen(true);
    }
    void reopen(bool writable, long long header = Header) {
        map = std::make_unique<WdbStringMapDatabase>(manager, TypeId);
        map->initialize(header, writable);
    }
    std::string close() {
        map.reset();
        manager.close();
        return readFile(path);
    }
    void openFile() {
        close();
        manager.open(path);
        reopen(false);
    }
    std::string get(unsigned int id) const {
        std::string text = "none";
        map->getString(id, text);
        return text;
    }
    // Number of strings of each stored block.
    std::vector<unsigned int> counts() const {
        std::vector<unsigned int> counts;
        long long handle, startId;
        unsigned int size;
        for (WdbStringMapDatabase::Iterator it = map->getIterator(); it; ++it)
            it.getBlockInfo(handle, size, startId, counts.emplace_back());
        return counts;
    }

    TemporaryDirectory directory;
    const std::string path = directory.file("a.wdb");
    WdbFileManager manager;
    std::unique_ptr<WdbStringMapDatabase> map;
};

// Whole recordings are compared elsewhere; they have one type, and one section of strings.
TEST_F(StringMap, isDescribedByItsHeaderAndReadWithoutANode) {
    ::testing::internal::CaptureStdout();
    map->dumpHeader();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "databaseTypeId = 5\nstringBlockSize = 1024\nstringBlockFileOffset = 200\n");
    const long long unregistered = map->createStringMapSection(TypeId, manager, false);
    EXPECT_EQ(manager.getSections().size(), 1u) << "only the first is in the table";
    const std::string before = close();
    EXPECT_EQ(before.substr(Header, 16), fieldOf(TypeId) + fieldOf(1024) + fieldOf(Slot));
    openFile();
    reopen(false, unregistered);
    EXPECT_EQ(get(1), "none");
    EXPECT_EQ(close(), before);
}

// Strings of random lengths, looked up at once and at the end, in this and in later databases.
TEST_F(StringMap, givesEveryStringBackByItsId) {
    std::mt19937 random(7);
    std::vector<std::string> model = {"none"};
    for (unsigned int i = 0; i < 500; ++i) {
        if (i % 200 == 150) reopen(true);
        EXPECT_EQ(get(i + 1), "none");
        model.emplace_back(random() % (i % 3 == 0 ? 1011 : 30), static_cast<char>('a' + i % 26));
        ASSERT_EQ(map->addString(model.back()), i + 1);
        const unsigned int earlier =
            i + 1 - static_cast<unsigned int>(random()) % std::min(9u, i + 1);
        ASSERT_EQ(get(earlier), model[earlier]);
    }
    openFile();
    for (unsigned int id = 0; id <= 500; ++id)
        ASSERT_EQ(get(id), model[id]);
    EXPECT_EQ(get(501) + get(UINT_MAX), "nonenone");
    EXPECT_GT(counts().size(), 101u) << "there is no second node";
}

TEST_F(StringMap, fillsBlocksToTheLastByteButOne) {
    const struct {
        const char* name;
        std::vector<std::string> texts;
        std::vector<unsigned int> counts;
    } rows[] = {
        {"full", {std::string(505, 'a'), std::string(504, 'b')}, {2}},
        {"oneByteMore", {std::string(505, 'a'), std::string(505, 'b')}, {1, 1}},
        {"longest", {"", std::string(1010, 'a'), "", ""}, {1, 1, 2}},
        {"zeroByteEndsABlock", {"a", std::string("b\0c", 3), "d", "e"}, {2, 2}},
    };
    for (const auto& row : rows) {
        start();
        for (const std::string& text : row.texts)
            map->addString(text);
        EXPECT_EQ(counts(), row.counts) << row.name;
        openFile();
        for (unsigned int id = 1; id <= row.texts.size(); ++id)
            EXPECT_EQ(get(id), row.texts[id - 1].c_str()) << row.name;
    }
}

TEST_F(StringMap, survivesDamage) {
    for (int i = 0; i < 14; ++i)
        map->addString(std::string(400, static_cast<char>('a' + i)));
    const std::string good = close();
    const std::string refused = "Tarn|wavedata/bridge/kernel/src/WdbStringMapDatabase|";
    const std::string damaged = refused + "The string map's header is damaged.";
    // Two strings a block. The third entry holds 5 and 6; its sizes and counts lie in eight bytes
    // with the fourth's.
    const struct {
        const char* name;
        long long offset, value;  // eight bytes
        std::string found;        // the exception, or the first letters of all strings found
    } rows[] = {
        {"blocksHuge", Header, (1ll << 57) + 5, damaged},
        {"blocksWithoutRoom", Header, (12ll << 32) + 5, damaged},
        {"slotBeyondTheEnd", Header + 8, 1ll << 62, damaged},
        {"slotNegative", Header + 8, -8, damaged},
        {"blockBeyondTheEnd", Node + 8 + 2 * 8, 1ll << 62, "abcdghijklmn"},
        {"blockElsewhere", Node + 8 + 2 * 8, Node, "abcdghijklmn"},
        {"firstIdLowest", Node + 808 + 2 * 8, LLONG_MIN, "abcdghijklmn"},
        {"firstIdHighest", Node + 808 + 2 * 8, LLONG_MAX, "abcdghijklmn"},
        {"sizes", Node + 1608 + 2 * 4, -1, "abcdijklmn"},
        {"counts", Node + 2008 + 2 * 4, -1, "abcdefghijklmn"},
    };
    for (const auto& row : rows) {
        writeFile(path, good);
        damage(path, static_cast<std::size_t>(row.offset), row.value);
        std::string found = openFailureOf([&] { openFile(); });
        std::string text;
        for (unsigned int id = 0; id < 20 && found.find('|') == std::string::npos; ++id)
            if (map->getString(id, text)) found += text.front();
        EXPECT_EQ(found, row.found) << row.name;
    }
    EXPECT_EQ(openFailureOf([&] { map->initialize(1ll << 40, false); }),
              refused + "The string map's header lies outside the file.");
}

}  // namespace
}  // namespace Korvel
