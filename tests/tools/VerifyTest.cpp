#include "inspect/Verifier.h"

#include "description/DesignDescriptionWriter.h"
#include "tests/support/RecordingFile.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr long long Addresses = 5000;
constexpr std::size_t BlockSize = 10240;

std::vector<std::string> verify(const std::string& bytes) {
    const RecordingMemoryBytes memory(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    FindingList list(1000);
    Inspection inspection(memory, list);
    verifyRecording(inspection);
    std::vector<std::string> lines;
    for (const Finding& finding : list.findings()) {
        lines.push_back(fmt::format("{} {}: {}", toString(finding.severity),
                                    toString(finding.place), finding.text));
    }
    return lines;
}

std::vector<std::uint8_t> describedObject(long long address) {
    DesignDescriptionWriter writer;
    ObjectDefinition object;
    object.name = "pc";
    object.address = address;
    writer.addObject(object);
    return writer.finish();
}

// One bucket of a block, one of a few, one of two nodes; strings in two blocks.
std::string sampleRecording(bool isLarge) {
    RecordingFile file(Addresses, describedObject(Addresses - 8));
    for (int i = 0; i < 3; ++i) {
        file.write(i, 8, "ab");
        file.writer().addString(std::string(400, 'x'));
    }
    const int longEvents = isLarge ? 506 : 12;
    for (int i = 0; i < longEvents; ++i)
        file.write(10 + i, 2048, std::string(2030, 'v'));
    for (int i = 0; i < 3; ++i)
        file.write(600 + i, 4990, "end");
    file.close();
    return file.bytes();
}

// Where things lie in the sample, by the layout alone.
struct Sample {
    explicit Sample(std::string contents) : bytes(std::move(contents)) {}

    std::string bytes;

    template <typename Integer>
    void put(std::size_t offset, Integer value) {
        bytes.replace(offset, sizeof(value), fieldOf(value));
    }
    std::size_t at(std::size_t offset) const {
        return static_cast<std::size_t>(fieldAt<long long>(bytes, offset));
    }
    std::size_t item(std::size_t index) const { return at(64 + 8 + 8 * index); }
    std::size_t section(std::size_t index) const { return at(item(index) + 32); }
    std::size_t events() const { return section(1); }
    std::size_t slot(std::size_t bucket) const { return at(events() + 32) + 8 * bucket; }
    std::size_t node(std::size_t bucket) const { return at(slot(bucket)); }
    std::size_t handle(std::size_t bucket, std::size_t entry) const {
        return node(bucket) + 8 + 8 * entry;
    }
    std::size_t size(std::size_t bucket, std::size_t entry) const {
        return node(bucket) + 808 + 4 * entry;
    }
    std::size_t strings() const { return at(at(section(2) + 8)); }

    std::string nodePlace(std::size_t bucket) const {
        return fmt::format("WDB.Event, bucket {}, node at {}", bucket, node(bucket));
    }
    std::string blockPlace(std::size_t bucket, std::size_t entry) const {
        return fmt::format("{}, entry {}, block at {}", nodePlace(bucket), entry,
                           at(handle(bucket, entry)));
    }

    // Unpacks a block, lets it be changed and stores it at the end of the file instead.
    void repack(std::size_t handleAt, std::size_t sizeAt, std::size_t imageSize,
                const std::function<void(std::string&)>& change) {
        std::string image(imageSize, '\0');
        uLongf size = imageSize;
        uncompress(reinterpret_cast<Bytef*>(image.data()), &size,
                   reinterpret_cast<const Bytef*>(bytes.data() + at(handleAt)),
                   fieldAt<unsigned int>(bytes, sizeAt));
        change(image);
        std::string stored(compressBound(image.size()), '\0');
        uLongf storedSize = stored.size();
        compress2(reinterpret_cast<Bytef*>(stored.data()), &storedSize,
                  reinterpret_cast<const Bytef*>(image.data()), image.size(), 1);
        put(handleAt, static_cast<long long>(bytes.size()));
        put(sizeAt, static_cast<unsigned int>(storedSize));
        bytes += stored.substr(0, storedSize);
    }
    template <typename Integer>
    std::string repackEvent(std::size_t bucket, std::size_t offset, Integer value) {
        repack(handle(bucket, 0), size(bucket, 0), BlockSize,
               [&](std::string& image) { image.replace(offset, sizeof(value), fieldOf(value)); });
        return blockPlace(bucket, 0);
    }
    template <typename Integer>
    std::string repackStrings(std::size_t offset, Integer value) {
        repack(strings() + 8, strings() + 1608, 1024,
               [&](std::string& image) { image.replace(offset, sizeof(value), fieldOf(value)); });
        return fmt::format("WDB.StringMap, node at {}, entry 0, block at {}", strings(),
                           at(strings() + 8));
    }
};

// One damaged place a row: what is changed, and the finding that must name that place.
struct Damage {
    const char* name;
    std::string (*harm)(Sample& file);
};

// Events of bucket 0's block: each 18 bytes from offset 20.
const Damage Damages[] = {
    {"version",
     [](Sample& f) {
         f.bytes[22] = '2';
         return std::string("ERROR file header: is not that of a recording");
     }},
    {"application",
     [](Sample& f) {
         f.bytes[47] = 'x';
         return std::string("ERROR file header, offset 24: the application's name");
     }},
    {"headerReserved",
     [](Sample& f) {
         f.put(60, 1);
         return std::string("ERROR file header, offset 60: reserved");
     }},
    {"noContents",
     [](Sample& f) {
         f.put(48, 0LL);
         return std::string("ERROR file header, offset 48: there is no table of contents");
     }},
    {"contentsOutside",
     [](Sample& f) {
         f.put(48, 1LL << 40);
         return std::string("ERROR table of contents, node at 1099511627776: 136 bytes");
     }},
    {"contentsInHeader",
     [](Sample& f) {
         f.put(48, 16LL);
         return std::string("ERROR table of contents, node at 16: some of the 136 bytes");
     }},
    {"contentsCycle",
     [](Sample& f) {
         f.put(64, 64LL);
         return std::string("ERROR table of contents, node at 64: the next node, at 64,");
     }},
    {"contentsNextOfARoomyNode",
     [](Sample& f) {
         f.put(64, 1LL << 40);
         return std::string("ERROR table of contents, node at 64: a node with 3 of 10 entries");
     }},
    {"contentsCount",
     [](Sample& f) {
         f.put(64 + 128, 11);
         return std::string("ERROR table of contents, node at 64: 11 entries are more than");
     }},
    {"contentsPadding",
     [](Sample& f) {
         f.put(64 + 132, 1);
         return std::string("ERROR table of contents, node at 64: the padding");
     }},
    {"contentsUnusedEntry",
     [](Sample& f) {
         f.put(64 + 8 + 8 * 5, 300LL);
         return std::string("ERROR table of contents, node at 64: unused entry 5 is not zero");
     }},
    {"itemSize",
     [](Sample& f) {
         f.put(64 + 88 + 4, 47);
         return fmt::format(
             "ERROR table of contents, node at 64, entry 1, block at {}: an item of "
             "47 bytes",
             f.item(1));
     }},
    {"itemTwice",
     [](Sample& f) {
         f.put(64 + 8 + 8, static_cast<long long>(f.item(0)));
         return fmt::format("ERROR table of contents, node at 64, entry 1, block at {}: some of",
                            f.item(0));
     }},
    {"itemVersion",
     [](Sample& f) {
         f.put(f.item(0) + 28, 1);
         return std::string("entry 0, block at ") + std::to_string(f.item(0)) +
                ": version 4294967297 has more than 32 bits";
     }},
    {"sectionName",
     [](Sample& f) {
         f.put(f.item(0) + 20, 'x');
         return std::string("the section's name is followed by other bytes");
     }},
    {"sectionOutside",
     [](Sample& f) {
         f.put(f.item(0) + 40, 1LL << 50);
         return std::string("ERROR Pellon DBG, offset 200: 1125899906842624 bytes at 200 lie");
     }},
    {"sectionsOverlap",
     [](Sample& f) {
         f.put(f.item(2) + 32, static_cast<long long>(f.events()));
         return fmt::format("ERROR WDB.StringMap, offset {}: some of the 16 bytes", f.events());
     }},
    {"typeOfALaterBuild",
     [](Sample& f) {
         f.put(f.events() + 8, 1002);
         return fmt::format("ERROR WDB.Event, offset {}: type 1002 is not known", f.events() + 8);
     }},
    {"bucketCount",
     [](Sample& f) {
         f.put(f.events() + 12, 2);
         return std::string("2 buckets instead of the 3 that 5000 addresses need");
     }},
    {"addressesABucket",
     [](Sample& f) {
         f.put(f.events() + 16, 0LL);
         return std::string(": 0 addresses a bucket");
     }},
    {"tableOutside",
     [](Sample& f) {
         f.put(f.events() + 32, -8LL);
         return fmt::format("ERROR WDB.Event, offset {}: 24 bytes at -8 lie", f.events() + 32);
     }},
    {"eventsReserved",
     [](Sample& f) {
         f.put(f.events() + 40, 1LL);
         return fmt::format("ERROR WDB.Event, offset {}: reserved", f.events() + 40);
     }},
    {"addressMap",
     [](Sample& f) {
         f.put(f.events() + 48, 1LL << 58);
         return fmt::format("ERROR WDB.Event, offset {}: 4611686018427387904 bytes at 0 lie",
                            f.events() + 48);
     }},
    {"hugeBlocks",
     [](Sample& f) {
         f.put(f.events() + 64, 0xFFFFFFFFU);
         return std::string(": an event block of 4294967295 bytes");
     }},
    {"nodeCapacity",
     [](Sample& f) {
         f.put(f.events() + 68, 99);
         return std::string(": 99 entries a node instead of 100");
     }},
    {"bucketsShareAList",
     [](Sample& f) {
         f.put(f.slot(2), static_cast<long long>(f.node(1)));
         return fmt::format("ERROR {}: some of the 1216 bytes", f.nodePlace(2));
     }},
    {"emptyEntry",
     [](Sample& f) {
         f.put(f.handle(1, 1), 0LL);
         return fmt::format("ERROR {}, entry 1: an entry in use names no block", f.nodePlace(1));
     }},
    {"nodeCycle",
     [](Sample& f) {
         const auto second = static_cast<long long>(f.at(f.node(1)));
         f.put(static_cast<std::size_t>(second), static_cast<long long>(f.node(1)));
         return fmt::format("ERROR WDB.Event, bucket 1, node at {}: the next node, at {},", second,
                            f.node(1));
     }},
    {"blockSizeTooSmall",
     [](Sample& f) {
         f.put(f.size(1, 2), 5U);
         return fmt::format("ERROR {}: the compressed stream is cut off", f.blockPlace(1, 2));
     }},
    {"blockSizeHuge",
     [](Sample& f) {
         f.put(f.size(1, 2), 0xFFFFFFFFU);
         return fmt::format("ERROR {}: 4294967295 bytes", f.blockPlace(1, 2));
     }},
    {"bytesBehindABlock",
     [](Sample& f) {
         f.repackEvent(0, 0, 0LL);
         f.bytes += "tail";
         f.put(f.size(0, 0), fieldAt<unsigned int>(f.bytes, f.size(0, 0)) + 4);
         return fmt::format("ERROR {}: 4 bytes follow", f.blockPlace(0, 0));
     }},
    {"blockInANode",
     [](Sample& f) {
         f.put(f.handle(1, 3), static_cast<long long>(f.node(1)));
         return fmt::format("ERROR {}: some of the", f.blockPlace(1, 3));
     }},
    {"checksum",
     [](Sample& f) {
         f.bytes[f.at(f.handle(1, 0)) + fieldAt<unsigned int>(f.bytes, f.size(1, 0)) - 1] ^= 1;
         return fmt::format("ERROR {}: cannot be unpacked: incorrect data check",
                            f.blockPlace(1, 0));
     }},
    {"shortImage",
     [](Sample& f) {
         f.repack(f.handle(0, 0), f.size(0, 0), BlockSize, [](auto& image) { image.pop_back(); });
         return fmt::format("ERROR {}: unpacks to 10239 bytes", f.blockPlace(0, 0));
     }},
    {"longImage",
     [](Sample& f) {
         f.repack(f.handle(0, 0), f.size(0, 0), BlockSize, [](auto& image) { image += '\0'; });
         return fmt::format("ERROR {}: unpacks to more than 10240", f.blockPlace(0, 0));
     }},
    {"startTime",
     [](Sample& f) {
         return fmt::format("ERROR {}: start time 7 is not", f.repackEvent(0, 0, 7LL));
     }},
    {"timeLength",
     [](Sample& f) {
         return fmt::format("ERROR {}: time length 7 instead of 2", f.repackEvent(0, 8, 7LL));
     }},
    {"noEvents",
     [](Sample& f) {
         return fmt::format("ERROR {}: a block without events", f.repackEvent(0, 16, 0));
     }},
    {"fewerEvents",
     [](Sample& f) {
         return fmt::format("ERROR {}: the bytes behind the last event", f.repackEvent(0, 16, 2));
     }},
    {"moreEventsThanRoom",
     [](Sample& f) {
         return fmt::format("ERROR {}, event 638: reaches past", f.repackEvent(0, 16, -1));
     }},
    {"eventPastTheEnd",
     [](Sample& f) {
         return fmt::format("ERROR {}, event 1: reaches past", f.repackEvent(0, 38 + 12, 10187));
     }},
    {"timeBackwards",
     [](Sample& f) {
         return fmt::format("ERROR {}, event 2: time 0 is before the 1 of",
                            f.repackEvent(0, 56, 0LL));
     }},
    {"timeBackwardsBetweenBlocks",
     [](Sample& f) {
         f.repackEvent(1, 20 + 3 * 2046, 1000LL);
         return fmt::format("ERROR {}, event 0: time 14 is before the 1000 of", f.blockPlace(1, 1));
     }},
    {"addressInTheNextBucket",
     [](Sample& f) {
         return fmt::format("ERROR {}, event 0: addresses 2047 to 2048 reach past the bucket's",
                            f.repackEvent(0, 28, 2047));
     }},
    {"eventWithoutValues",
     [](Sample& f) {
         return fmt::format("ERROR {}, event 2: has no values", f.repackEvent(0, 56 + 12, 0));
     }},
    {"stringBlockSize",
     [](Sample& f) {
         f.put(f.section(2) + 4, 4096);
         return fmt::format("ERROR WDB.StringMap, offset {}: string blocks of 4096",
                            f.section(2) + 4);
     }},
    {"stringSlot",
     [](Sample& f) {
         f.put(f.section(2) + 8, -1LL);
         return fmt::format("ERROR WDB.StringMap, offset {}: 8 bytes at -1", f.section(2) + 8);
     }},
    {"stringIds",
     [](Sample& f) {
         f.put(f.strings() + 808 + 8, 4LL);
         return std::string("entry 1, block at ") + std::to_string(f.at(f.strings() + 16)) +
                ": the block's first id is 4 instead of 3";
     }},
    {"stringBlockId",
     [](Sample& f) {
         return fmt::format("ERROR {}: the block has 2 strings from id 9", f.repackStrings(0, 9LL));
     }},
    {"stringWithoutEnd",
     [](Sample& f) {
         f.put(f.strings() + 2008, 300);
         return fmt::format("ERROR {}: string 212 of the block's 300", f.repackStrings(8, 300));
     }},
    {"description",
     [](Sample& f) {
         f.put(204, 'X');
         return std::string("ERROR Pellon DBG, offset 200: not a design description");
     }},
    {"objectOutside",
     [](Sample& f) {
         f.put(f.events() + 24, 4999LL);
         return std::string("ERROR Pellon DBG, offset 200: object 0, pc: addresses 4992 to 4999");
     }},
};

class VerifyDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(VerifyDamage, isFoundInItsPlace) {
    static const std::string good = sampleRecording(/*isLarge=*/true);
    Sample file{good};
    ASSERT_THAT(verify(file.bytes), IsEmpty());
    const std::string expected = GetParam().harm(file);
    EXPECT_THAT(verify(file.bytes), Contains(HasSubstr(expected)));
}

INSTANTIATE_TEST_SUITE_P(Recording, VerifyDamage, ::testing::ValuesIn(Damages),
                         [](const auto& row) { return std::string(row.param.name); });

bool hasError(const std::vector<std::string>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const std::string& line) { return line.rfind("ERROR", 0) == 0; });
}

// A file that was closed ends with bytes that something refers to, so no beginning of it is sound.
TEST(Verify, refusesEveryCutFile) {
    const std::string good = sampleRecording(/*isLarge=*/false);
    for (std::size_t size = 0; size < good.size(); ++size) {
        ASSERT_TRUE(hasError(verify(good.substr(0, size)))) << "cut to " << size << " bytes";
    }
}

// All but what may be anything: the application's name, times, counts of addresses, the place of an
// empty address map, the type of the string map, the names of sections and the texts of the
// description. Compressed streams are left out of the count too, since some bits of a stream can
// change without changing what it unpacks to.
TEST(Verify, noticesEveryFlippedBit) {
    const Sample good{sampleRecording(/*isLarge=*/false)};
    constexpr unsigned int Seed = 2;
    std::mt19937 random(Seed);
    std::vector<bool> isFree(good.bytes.size());
    const auto free = [&isFree](std::size_t begin, std::size_t size) {
        std::fill_n(isFree.begin() + static_cast<std::ptrdiff_t>(begin), size, true);
    };
    free(24, 24);
    free(56, 4);
    free(200, good.item(0) - 200);
    for (const std::size_t item : {0, 1, 2})
        free(good.item(item), 32);
    free(good.events(), 8);
    free(good.events() + 16, 16);
    free(good.events() + 56, 8);
    free(good.section(2), 4);
    for (const std::size_t bucket : {0, 1, 2}) {
        const auto count = fieldAt<unsigned int>(good.bytes, good.node(bucket) + 1208);
        for (std::size_t i = 0; i < count; ++i) {
            free(good.at(good.handle(bucket, i)),
                 fieldAt<unsigned int>(good.bytes, good.size(bucket, i)));
        }
    }
    for (const std::size_t i : {0, 1}) {
        free(good.at(good.strings() + 8 + 8 * i),
             fieldAt<unsigned int>(good.bytes, good.strings() + 1608 + 4 * i));
    }
    for (std::size_t offset = 0; offset < good.bytes.size(); ++offset) {
        std::string bytes = good.bytes;
        bytes[offset] = static_cast<char>(bytes[offset] ^ (1 << random() % 8));
        const bool isNoticed = !verify(bytes).empty();
        ASSERT_TRUE(isNoticed || isFree[offset]) << "byte " << offset << ", seed " << Seed;
    }
}

// What a killed writer leaves is legal: only the warnings tell. Everything is written once while
// no list knows of it yet, then brought up to date.
TEST(Verify, acceptsAKilledRecording) {
    RecordingFile file(Addresses);
    EXPECT_FALSE(hasError(verify(file.bytes())));
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
}

// A kill can cut a rewrite at a page: the entries are there, their count is not.
TEST(Verify, tellsACutRewriteFromADamagedNode) {
    Sample file{sampleRecording(/*isLarge=*/false)};
    const auto count = fieldAt<unsigned int>(file.bytes, file.node(1) + 1208);
    ASSERT_GT(count, 1U);
    file.put(file.node(1) + 1208, count - 1);
    EXPECT_THAT(verify(file.bytes),
                Contains(StartsWith("WARNING " + file.nodePlace(1) + ": 1 entries behind the")));
    EXPECT_FALSE(hasError(verify(file.bytes)));
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
    manager.create(directory.file("sections.wdb"));
    const unsigned char byte = 1;
    for (int i = 0; i < 11; ++i)
        manager.embedDataInNewSection("Mine", static_cast<unsigned int>(i % 10 + 1), &byte, 1);
    manager.close();
    const auto findings = verify(readFile(directory.file("sections.wdb")));
    EXPECT_THAT(findings, Contains(StartsWith("WARNING WDB.Event: there is no such section")));
    EXPECT_THAT(findings, Contains(HasSubstr("section 'Mine' is there twice")));
    EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                            [](const auto& line) { return line.rfind("INFO Mine", 0) == 0; }),
              11);
}

}  // namespace
}  // namespace Korvel
