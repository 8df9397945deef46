#include <vector>

#include <gtest/gtest.h>

#include "container/WdbAppendingBlockList.h"
#include "tests/support/BlockStores.h"
#include "tests/support/FileBytes.h"

namespace Korvel {
namespace {

// One letter, stored as one byte; a blank has nothing to store.
struct Letter {
    long long addBlock(WdbIBlockManager& store, unsigned int& size) const {
        size = 1;
        return letter == ' ' ? 0 : store.addBlock(&letter, 1);
    }
    void clear() { letter = ' '; }
    char letter = ' ';
};

using LetterList = WdbAppendingBlockList<Letter, 4>;
constexpr long long Slot = 64;       // right behind the header's room
constexpr long long FirstNode = 72;  // right behind the slot
constexpr long long NodeSize = 8 + 12 * 4 + 8;

class BlockList : public ::testing::Test, protected FileStore<WdbFileBlockManager> {
protected:
    BlockList() { store().addBlock(fieldOf(0ll).data(), 8); }

    LetterList open(WdbListAccess access = WdbListAccess::Append) {
        return LetterList(store(), Slot, 0, 0, access);
    }
    static void add(LetterList& list, const std::string& letters) {
        for (const char letter : letters) {
            list.openRecord().letter = letter;
            list.closeRecord();
        }
    }
    // What a walk over the stored nodes finds.
    std::string letters(const LetterList& list) {
        std::string found;
        LetterList::Walker walker = list.walk();
        for (bool more = walker.isAtNode(); more; more = walker.next()) {
            for (unsigned int i = 0; i < walker.node().m_count; ++i)
                store().getBlock(walker.node().entry(i).handle, &(found += '?').back(), 1);
        }
        return found;
    }
};

TEST_F(BlockList, isReadBesideItsWriterAndGoesOnWhereItWasLeft) {
    stream.flush();
    const std::string nothing = readFile(path);
    EXPECT_EQ(letters(open(WdbListAccess::Read)), "");
    stream.flush();
    EXPECT_EQ(readFile(path), nothing) << "a reader made a node";
    for (const char* some : {"ab ", "c", "d"}) {
        LetterList list = open();
        add(list, some);
        list.closeRecord();  // none is open
        list.settle();
    }
    LetterList list = open();
    const LetterList::Walker walker = list.walk();
    add(list, "efghij");
    EXPECT_FALSE(walker.hasNext()) << "the walk began before there was another node";
    EXPECT_EQ(letters(open(WdbListAccess::Read)), "abcdefghi") << "the last node is not settled";
    list.settle();
    EXPECT_EQ(letters(list), "abcdefghij");
}

// Nodes of "abcdefghij": 72, then 136 + 5 for the second, then 4 records, 64 bytes, 1 record.
constexpr long long SecondNode = FirstNode + NodeSize + 5;
constexpr long long ThirdNode = SecondNode + NodeSize + 4;

// A walk ends; what it can reach without leaving the file or going back is found.
TEST_F(BlockList, endsOnDamagedChains) {
    const struct {
        const char* name;
        long long offset, value;  // eight bytes
        const char* found;
    } rows[] = {
        {"headInTheHeader", Slot, 8, ""},
        {"headNegative", Slot, -72, ""},
        {"headAtTheEnd", Slot, ThirdNode + NodeSize, ""},
        {"nextIsItself", FirstNode, FirstNode, "abcd"},
        {"nextGoesBack", SecondNode, FirstNode, "abcdefgh"},
        {"nextIsNotWholeInTheFile", SecondNode, ThirdNode + 2, "abcdefgh"},
        {"nextIsHuge", FirstNode, 0x7FFFFFFFFFFFFFFF, "abcd"},
        {"nextSkipsANode", FirstNode, ThirdNode, "abcdij"},
        {"countBeyondTheCapacity", ThirdNode + 56, 0xFFFFFFFF, "abcdefghij"},
        {"countOfAFullNodeToo", FirstNode + 56, 0xFFFFFFFF, "abcdefghij"},
        {"countBelow", SecondNode + 56, 2, "abcdefij"},
        {"entryWithoutHandle", SecondNode + 8 + 8, 0, "abcdeij"},
        {"entryWithoutSize", SecondNode + 8 + 32 + 8, 0, "abcdefij"},
    };
    LetterList list = open();
    add(list, "abcdefghij");
    list.settle();
    for (const auto& row : rows) {
        char good[8];
        store().getBlock(row.offset, good, 8);
        store().putBlock(row.offset, fieldOf(row.value).data(), 8);
        EXPECT_EQ(letters(open(WdbListAccess::Read)), row.found) << row.name;
        store().putBlock(row.offset, good, 8);
    }
}

}  // namespace
}  // namespace Korvel
