#include "inspect/Verifier.h"

#include "description/DesignDescriptionWriter.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "tests/support/EventFile.h"
#include "tests/support/RecordingFile.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {
namespace {

using namespace ::testing;

constexpr long long Addresses = 5000;

std::vector<std::string> verify(const std::string& bytes) {
    const RecordingMemoryBytes memory(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    FindingList list(1000);
    Inspection inspection(memory, list);
    verifyRecording(inspection);
    std::vector<std::string> lines;
    for (const auto& [severity, place, text] : list.findings())
        lines.push_back(fmt::format("{} {}: {}", toString(severity), toString(place), text));
    return lines;
}

const auto HasError = Contains(StartsWith("ERROR"));

// An entry of a list and the block that it names.
struct Entry {
    std::string place;
    std::size_t handleAt;
    std::size_t sizeAt;
    std::size_t imageSize;
};

// The bytes of a recording.
struct Stored {
    std::size_t at(std::size_t offset) const { return fieldAt<std::size_t>(bytes, offset); }
    void put(std::size_t to, const std::string& field) { bytes.replace(to, field.size(), field); }

    std::string bytes;
};

// A recording with one object and strings in two blocks; buckets 0 and 2 have one block each,
// bucket 1 one for every four long events. Where things lie in it, by the layout alone.
struct Sample : Stored {
    explicit Sample(int longEvents = 12) {
        DesignDescriptionWriter design;
        ObjectDefinition object;
        object.name = "pc";
        object.address = Addresses - 8;
        design.addObject(object);
        RecordingFile file(Addresses, design.finish());
        for (int i = 0; i < 3; ++i) {
            file.write(i, 8, "ab");
            file.write(i, 4990, "end");
            file.writer().addString(std::string(400, 'x'));
        }
        for (int i = 0; i < longEvents; ++i)
            file.write(10 + i, 2048, std::string(2030, 'v'));
        file.close();
        bytes = file.bytes();
    }

    std::size_t item(std::size_t index) const { return at(64 + 8 + 8 * index); }
    std::size_t section(std::size_t index) const { return at(item(index) + 32); }
    std::size_t slot(std::size_t bucket) const { return at(section(1) + 32) + 8 * bucket; }
    std::size_t node(std::size_t bucket) const { return at(slot(bucket)); }
    std::size_t strings() const { return at(at(section(2) + 8)); }

    static std::string nodePlace(std::size_t bucket, std::size_t node) {
        return fmt::format("WDB.Event, bucket {}, node at {}", bucket, node);
    }
    Entry events(std::size_t bucket, std::size_t index) const {
        const std::size_t at = node(bucket);
        return {fmt::format("{}, entry {}", nodePlace(bucket, at), index), at + 8 + 8 * index,
                at + 808 + 4 * index, 10240};
    }
    Entry texts(std::size_t index) const {
        return {fmt::format("WDB.StringMap, node at {}, entry {}", strings(), index),
                strings() + 8 + 8 * index, strings() + 1608 + 4 * index, 1024};
    }
    unsigned int sizeOf(const Entry& e) const { return fieldAt<unsigned int>(bytes, e.sizeAt); }
    std::string blockPlace(const Entry& entry) const {
        return fmt::format("{}, block at {}", entry.place, at(entry.handleAt));
    }
};

// Bytes that are put somewhere, and the finding that must name that place.
struct Damage {
    std::size_t offset;
    std::string bytes;
    std::string finding;  // "@" stands for the offset
};

void expectFindings(const Stored& good, bool isError, const std::vector<Damage>& damages) {
    for (Damage damage : damages) {
        Stored file = good;
        file.put(damage.offset, damage.bytes);
        const std::size_t mark = damage.finding.find('@');
        if (mark != std::string::npos)
            damage.finding.replace(mark, 1, std::to_string(damage.offset));
        const auto findings = verify(file.bytes);
        EXPECT_THAT(findings,
                    Contains(HasSubstr((isError ? "ERROR " : "WARNING ") + damage.finding)));
        EXPECT_EQ(isError, Value(findings, HasError)) << damage.finding;
    }
}

// What no writer leaves. Fields that only have to be zero, or one value, are left to the flipped
// bits below; a structure that is not claimed shows as a gap in the sound file.
TEST(Verify, namesTheDamagedPlace) {
    const Sample f;
    ASSERT_THAT(verify(f.bytes), IsEmpty());
    const std::string node = "table of contents, node at 64: ";
    const std::string item =
        fmt::format("table of contents, node at 64, entry 0, block at {}: ", f.item(0));
    const std::size_t events = f.section(1);
    const std::size_t texts = f.section(2);
    const Entry last = f.events(1, 2);
    const std::string block = f.blockPlace(last);
    const std::size_t lastByte = f.at(last.handleAt) + f.sizeOf(last) - 1;
    expectFindings(
        f, /*isError=*/true,
        {{22, "2", "file header: is not that of a recording"},
         {47, "x", "file header, offset 24: the application's name"},
         {48, fieldOf(0LL), "file header, offset @: there is no table of contents"},
         {64, fieldOf(64LL), node + "the next node, at 64, does not lie behind"},
         {64, fieldOf(1LL << 40), node + "a node with 3 of 10 entries names a next one"},
         {64 + 128, fieldOf(11), node + "11 entries are more than"},
         {f.item(0) + 20, "x", item + "the section's name is followed"},
         {f.item(0) + 28, fieldOf(1), item + "version 4294967297 has more than 32 bits"},
         {f.item(0) + 40, fieldOf(1LL << 50), "Pellon DBG, offset 200: 1125899906842624 bytes"},
         {events + 8, fieldOf(1003), "WDB.Event, offset @: type 1003 is not known"},
         {events + 8, fieldOf(WdbEventBlockDatabaseFactory::SingleBucket), "WDB.Event, bucket 1, "},
         {events + 12, fieldOf(2), "WDB.Event, offset @: 2 buckets instead of the 3 that 5000"},
         {events + 16, fieldOf(0LL), "WDB.Event, offset @: 0 addresses a bucket"},
         {events + 24, fieldOf(4999LL), "Pellon DBG, offset 200: object 0, pc: addresses 4992"},
         {events + 32, fieldOf(-8LL), "WDB.Event, offset @: 24 bytes at -8 lie"},
         {events + 48, fieldOf(1LL << 58), "WDB.Event, offset @: 4611686018427387904 bytes at 0"},
         {events + 64, fieldOf(-1), "WDB.Event, offset @: an event block of 4294967295 bytes"},
         {f.slot(2), fieldOf(f.node(1)), f.nodePlace(2, f.node(1)) + ": some of the 1216 bytes"},
         {last.handleAt, fieldOf(0LL), last.place + ": an entry in use names no block"},
         {last.sizeAt, fieldOf(5), block + ": the compressed stream is cut off"},
         {last.sizeAt, fieldOf(f.sizeOf(last) + 4), block + ": 4 bytes follow"},
         {lastByte, "?", block + ": cannot be unpacked: incorrect data check"},
         {texts + 4, fieldOf(4096), "WDB.StringMap, offset @: string blocks of 4096"},
         {f.strings() + 816, fieldOf(4LL),
          f.blockPlace(f.texts(1)) + ": the block's first id is 4"},
         {200, fieldOf(-1), "Pellon DBG, offset 200: the design description is damaged"}});
}

// What a killed writer or another compiler leaves is worth a word, but is no damage. A kill can cut
// the rewrite of a node at a page: the entries are there, their count is not.
TEST(Verify, warnsOfWhatIsLegal) {
    const Sample f;
    expectFindings(
        f, /*isError=*/false,
        {{56, fieldOf(-1), "file header, offset @: there is no creation time"},
         {204, "SORT", "Pellon DBG, offset 200: is no design description of ours"},
         {f.section(1), fieldOf(20LL), "WDB.Event, offset @: the latest time is 20, but events"},
         {f.node(1) + 1208, fieldOf(2), f.nodePlace(1, f.node(1)) + ": 1 entries behind the 2"}});
}

// Damage inside a block's image, which is stored anew at the end of the file. No bytes at all stand
// for an image that ends there.
void expectInImage(const Sample& good, const Entry& entry, const std::vector<Damage>& damages) {
    BlockUnpacker unpacker;
    const std::string stored = good.bytes.substr(good.at(entry.handleAt), good.sizeOf(entry));
    unpacker.stored().assign(stored.begin(), stored.end());
    std::vector<std::uint8_t> original(entry.imageSize);
    ASSERT_EQ(unpacker.unpack(original), "");
    for (const Damage& damage : damages) {
        std::string image(original.begin(), original.end());
        image.replace(damage.offset, damage.bytes.size(), damage.bytes);
        if (damage.bytes.empty()) image.resize(damage.offset);
        std::vector<Bytef> packed(compressBound(image.size()));
        uLongf size = packed.size();
        compress(packed.data(), &size, reinterpret_cast<const Bytef*>(image.data()), image.size());
        Sample file = good;
        file.put(entry.handleAt, fieldOf(file.bytes.size()));
        file.put(entry.sizeAt, fieldOf(static_cast<unsigned int>(size)));
        file.bytes.append(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_THAT(verify(file.bytes),
                    Contains(StartsWith("ERROR " + file.blockPlace(entry) + damage.finding)));
    }
}

TEST(Verify, namesDamageInsideBlocks) {
    const Sample f;
    // Its three events begin at 20, 38 and 56.
    expectInImage(
        f, f.events(0, 0),
        {{0, fieldOf(7LL), ": start time 7 is not"},
         {8, fieldOf(7LL), ": time length 7 instead of 2"},
         {16, fieldOf(0), ": a block without events"},
         {16, fieldOf(2), ": the bytes behind the last event"},
         {16, fieldOf(-1), ", event 638: reaches past"},
         {20 + 8, fieldOf(2047), ", event 0: addresses 2047 to 2048 reach past the bucket"},
         {38 + 12, fieldOf(10187), ", event 1: reaches past"},
         {56, fieldOf(0LL), ", event 2: time 0 is before the 1 of"},
         {56 + 12, fieldOf(0), ", event 2: has no values"},
         {10239, "", ": unpacks to 10239 bytes"},
         {10240, "x", ": unpacks to more than 10240"}});
    expectInImage(f, f.events(1, 1), {{20, fieldOf(9LL), ", event 0: time 9 is before the 13 of"}});
    expectInImage(f, f.texts(0),
                  {{0, fieldOf(9LL), ": the block has 2 strings from id 9"},
                   {12, std::string(1012, 'x'), ": string 0 of the block's 2 has no end"},
                   {1023, "x", ": the last string has no end"}});
}

// A file that was closed ends with bytes that something refers to, so no beginning of it is sound.
// A flipped bit is noticed everywhere but in what may be anything: the application's name, times,
// counts of addresses, the place of an empty address map, the type of the string map, the texts of
// the description, and compressed streams, of which some bits can change without changing what they
// unpack to.
TEST(Verify, noticesEveryCutAndEveryFlippedBit) {
    const Sample good;
    constexpr unsigned int Seed = 2;
    std::mt19937 random(Seed);
    const std::size_t events = good.section(1);
    std::vector<std::pair<std::size_t, std::size_t>> free = {
        {24, 24},          {56, 4},          {200, good.item(0) - 200}, {events, 8},
        {events + 16, 16}, {events + 56, 8}, {good.section(2), 4}};
    for (const Entry& entry : {good.events(0, 0), good.events(1, 0), good.events(1, 1),
                               good.events(1, 2), good.events(2, 0), good.texts(0), good.texts(1)})
        free.emplace_back(good.at(entry.handleAt), good.sizeOf(entry));
    for (std::size_t offset = 0; offset < good.bytes.size(); ++offset) {
        ASSERT_THAT(verify(good.bytes.substr(0, offset)), HasError) << "cut at " << offset;
        std::string bytes = good.bytes;
        bytes[offset] = static_cast<char>(bytes[offset] ^ (1 << random() % 8));
        const bool isFree = std::any_of(free.begin(), free.end(), [&](const auto& range) {
            return offset - range.first < range.second;
        });
        ASSERT_TRUE(isFree || !verify(bytes).empty()) << "byte " << offset << ", seed " << Seed;
    }
}

// What a killed writer leaves is legal: only the warnings tell. Everything is written once while
// no list knows of it yet, then brought up to date.
TEST(Verify, acceptsAKilledRecording) {
    RecordingFile file(Addresses);
    EXPECT_THAT(verify(file.bytes()), Not(HasError));
    for (int i = 0; i < 30; ++i)
        file.write(i, 0, std::string(2000, 'v'));
    file.writer().checkpoint();
    for (int i = 30; i < 60; ++i)
        file.write(i, i % 2 * 2048, std::string(2000, 'v'));
    file.writer().setApplication("flushed");
    EXPECT_THAT(verify(file.bytes()),
                ElementsAre(HasSubstr("unfinished tail"), HasSubstr("bytes in 1 places")));
    file.writer().checkpoint();
    EXPECT_THAT(verify(file.bytes()), IsEmpty());
    EXPECT_THAT(verify(Sample(/*longEvents=*/506).bytes), IsEmpty());  // a list of two nodes
}

constexpr std::size_t Times = 800;  // in a node
constexpr std::size_t Gap = 1600;
constexpr std::size_t Keys = 1608;
constexpr std::size_t Count = 27208;
constexpr std::size_t IsLeaf = 27212;

// Fills a block of bucket 1's tree, whose events are 3 apart.
void writeBlock(EventFile& file, int number) {
    for (int i = 5 * number; i < 5 * number + 5; ++i)
        file.write(10 + 3 * i, 2048 + i % 7, std::string(2000, 'v'));
    file.database->setLatestTime(10 + 3 * (5 * number + 4));
}

// A closed recording with a small tree in bucket 0, and one in bucket 1 whose leaves have 100
// entries and 3. Where things lie in it, by the layout alone.
struct TreeSample : Stored {
    TreeSample() {
        EventFile file(WdbEventBlockDatabaseFactory::MultipleBtree, Addresses);
        file.write(1, 8, "ab");
        for (int i = 0; i < 103; ++i)
            writeBlock(file, i);
        file.close();
        bytes = readFile(file.path);
    }

    static std::string place(std::size_t node, int entry = -1) {
        const std::string text = fmt::format("WDB.Event, bucket 1, node at {}", node);
        return entry < 0 ? text + ": " : fmt::format("{}, entry {}", text, entry);
    }

    static constexpr std::size_t Header = EventFile::Table + 3 * 8;
    std::size_t state() const { return at(EventFile::Table + 8); }
};

TEST(Verify, namesTheDamagedPlaceOfATree) {
    const TreeSample f;
    ASSERT_THAT(verify(f.bytes), IsEmpty());
    const std::size_t root = f.at(f.state());
    const std::size_t full = f.at(root);
    const std::size_t last = f.at(root + 8);
    const std::size_t record = f.at(full + 8 * 4);
    const std::string atRecord = f.place(full, 4);
    expectFindings(
        f, /*isError=*/true,
        {{f.Header + 16, fieldOf(1024LL), "WDB.Event, offset @: 1024 addresses a bucket instead"},
         {f.state() + 8, fieldOf(9LL), f.place(full, 0)},
         {f.state() + 271, "x", "WDB.Event, bucket 1, offset " + std::to_string(f.state())},
         {root, fieldOf(last) + fieldOf(full),
          f.place(full) + "does not lie behind the node before it"},
         {root + 8, fieldOf(full), f.place(full) + "some of the 27216 bytes"},
         {root + Times, fieldOf(1LL), f.place(root, 0) + ": covers 1 of time, its child 1500"},
         {root + Times + 8, fieldOf(9999LL), f.place(root, 1) + ": covers 8499 of time, its"},
         {root + Gap, fieldOf(1LL << 32), f.place(root) + "a largest gap of 4294967296"},
         {root + Keys, "?", f.place(root, 0) + ": the key is not that of the child"},
         {root + Keys + 511, "?", f.place(root, 1) + ": the key is not that of the child"},
         {root + Keys + 512, "?", f.place(root) + "unused entry 2 is not zero"},
         {root + Count, fieldOf(101), f.place(root) + "101 entries are more than"},
         {root + Count, fieldOf(0), f.place(root) + "a node without entries"},
         {full + Count, fieldOf(99), f.place(full) + "a node with 99 of 100 entries is not the"},
         {full + IsLeaf, fieldOf(2), f.place(full) + "a leaf flag of 2"},
         {full + Times + 32, fieldOf(70LL), atRecord + ": covers 10 of time instead of 15"},
         {full + Gap, fieldOf(-1LL), f.place(full) + "a largest gap of -1 instead of"},
         {full + Keys, "?", f.place(full, 0)},
         {last + 8 * 3, fieldOf(-1LL), f.place(last) + "unused entry 3 is not zero"},
         {last + Times + 16, fieldOf(35LL), f.place(last, 2)},
         {last + Count, fieldOf(2), f.place(root, 1) + ": covers 42 of time, its child 30"},
         {last + IsLeaf, fieldOf(0), f.place(last) + "an inner node at level 2 of a tree whose"},
         {record, f.bytes.substr(f.at(full + 8 * 6), 12), f.place(full, 5) + ", offset "},
         {record + 12, fieldOf(7), atRecord + ", offset "},
         {record + 16, fieldOf(7LL), atRecord}});
    // What a kill leaves on the right edge.
    expectFindings(
        f, /*isError=*/false,
        {{f.state(), fieldOf(0LL), "file, offset "},
         {root + Times + 8, fieldOf(1501LL), f.place(root, 1) + ": was written before its child"},
         {root + Gap, fieldOf(0LL), f.place(root) + "the largest gap was written before"},
         {root + Keys + 256, std::string(1, '\0'), f.place(root, 1) + ": was written before"},
         {root + Count, fieldOf(1), f.place(root) + "1 entries behind the 1"},
         {last + Times + 16, fieldOf(900LL), f.place(last, 2)}});
}

// A tree is published at odd moments, and every write to one of its nodes is cut short at every
// page. With two leaves the root lies behind them and is written after them.
TEST(Verify, acceptsAKilledTree) {
    constexpr std::size_t Page = 4096;
    EventFile file(WdbEventBlockDatabaseFactory::MultipleBtree, Addresses);
    std::string before = readFile(file.path);
    std::size_t cuts = 0;
    for (int i = 0; i < 133; ++i) {
        writeBlock(file, i);
        const bool isNearGrowth = i % 100 < 3;
        if (i % 30 == 29 || isNearGrowth) file.database->getAllEventBlockDatabaseIterator();
        const std::string now = readFile(file.path);
        EXPECT_TRUE(!isNearGrowth || !Value(verify(now), HasError)) << i;
        const bool isSameShape = now.size() < before.size() + Count;
        for (std::size_t cut = Page; isSameShape && cut < before.size(); cut += Page) {
            if (now.compare(cut, before.size() - cut, before, cut) == 0) break;
            if (now.compare(0, cut, before, 0, cut) == 0) continue;
            const std::string torn = now.substr(0, cut) + before.substr(cut);
            EXPECT_THAT(verify(torn + now.substr(before.size())), Not(HasError)) << i << ' ' << cut;
            ++cuts;
        }
        before = now;
    }
    EXPECT_GE(cuts, 50U);
}

// The last bucket takes, whole, what no other has; that is worth a word, but is no damage.
TEST(Verify, acceptsAddressesWithoutABucket) {
    RecordingFile file(4096);
    file.write(1, 4096, std::string(3000, 'f'));
    file.write(2, 1LL << 31, "far");
    file.write(3, -5, "negative");
    file.close();
    EXPECT_THAT(verify(file.bytes()),
                ElementsAre(HasSubstr("event 0: addresses -5 to 2 are not all among the 4096"),
                            HasSubstr("event 0: addresses 4096 to 7095 are not all among")));
}

TEST(Verify, reportsUnknownSectionsAndDoubleOnes) {
    WdbFileManager manager;
    const TemporaryDirectory directory;
    const std::string path = directory.file("sections.wdb");
    manager.create(path);
    for (unsigned int i = 0; i < 11; ++i)
        manager.embedDataInNewSection("Mine", i % 10, reinterpret_cast<const Bytef*>("x"), 1);
    manager.close();
    EXPECT_THAT(verify(readFile(path)),
                AllOf(Contains(StartsWith("WARNING WDB.Event: there is no such section")),
                      Contains(HasSubstr("section 'Mine' is there twice")),
                      Contains(StartsWith("INFO Mine")).Times(11), Not(HasError)));
}

}  // namespace
}  // namespace Korvel
