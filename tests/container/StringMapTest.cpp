#include <climits>
#include <memory>
#include <numeric>
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
constexpr long long NodeSize = 2416;

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

TEST_F(StringMap, laysOutItsSection) {
    for (const char* text : {"one", "", "three"})
        map->addString(text);
    const std::string file = close();
    EXPECT_EQ(file.substr(Slot, 8 + 16 + 48),
              fieldOf(Node) + fieldOf(TypeId) + fieldOf(1024) + fieldOf(Slot) +  //
                  "WDB.StringMap" + std::string(11, '\0') + fieldOf(1ll) + fieldOf(Header) +
                  fieldOf(16ll));
    std::string node(NodeSize, '\0');
    const auto blockSize = static_cast<int>(file.size() - Node - NodeSize);
    node.replace(8, 8, fieldOf(Node + NodeSize)).replace(8 + 800, 8, fieldOf(1ll));
    node.replace(8 + 1600, 4, fieldOf(blockSize)).replace(8 + 2000, 4, fieldOf(3));
    EXPECT_EQ(file.substr(Node, NodeSize), node.replace(8 + 2400, 4, fieldOf(1)));

    openFile();
    WdbStringBlock block(1024);
    map->getIterator().getStringBlock(block);
    EXPECT_EQ(std::string(block.getText(0) - 12, 1024), fieldOf(1ll) + fieldOf(3) +
                                                            std::string("one\0\0three\0", 11) +
                                                            std::string(1024 - 12 - 11, '\0'));
    ::testing::internal::CaptureStdout();
    map->dumpHeader();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "databaseTypeId = 5\nstringBlockSize = 1024\nstringBlockFileOffset = 200\n");
}

// Strings of random lengths, looked up at once and at the end, in this and in later databases.
TEST_F(StringMap, givesEveryStringBackByItsId) {
    std::mt19937 random(7);
    std::vector<std::string> model = {"none"};
    EXPECT_EQ(get(1), "none");
    for (int i = 0; i < 500; ++i) {
        if (i % 200 == 150) reopen(true);
        model.emplace_back(random() % (i % 3 == 0 ? 1011 : 30), static_cast<char>('a' + i % 26));
        ASSERT_EQ(map->addString(model.back()), i + 1);
        const std::size_t id = model.size() - 1 - random() % std::min<std::size_t>(9, model.size());
        if (i % 8 == 0) {
            ASSERT_EQ(get(static_cast<unsigned int>(id)), model[id]);
        }
    }
    openFile();
    model.emplace_back("none");
    for (std::size_t id = 0; id < model.size(); ++id)
        ASSERT_EQ(get(static_cast<unsigned int>(id)), model[id]);
    EXPECT_EQ(get(UINT_MAX), "none");
    // The hundred and first block begins a node of its own.
    ASSERT_GT(counts().size(), 101u);
    const auto second = static_cast<std::size_t>(fieldAt<long long>(readFile(path), Node));
    const std::vector<unsigned int> all = counts();
    EXPECT_EQ(fieldAt<long long>(readFile(path), second + 8 + 800),
              std::accumulate(all.begin(), all.begin() + 100, 1ll));
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

TEST_F(StringMap, isReadWithoutWritingAlsoWhereItHasNoNode) {
    const long long unregistered = map->createStringMapSection(TypeId, manager, false);
    EXPECT_EQ(manager.getSections().size(), 1u) << "only the first is in the table";
    const std::string before = close();
    openFile();
    reopen(false, unregistered);
    EXPECT_EQ(get(1), "none");
    EXPECT_EQ(close(), before);
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
        {"headNegative", Slot, -8, ""},
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
