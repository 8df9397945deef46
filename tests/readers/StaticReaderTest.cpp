#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "container/WdbStringMapDatabase.h"
#include "korvel/WdbEventReaderFactory.h"
#include "readers/WdbDrawingFile.h"
#include "readers/WdbStaticReader.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"

namespace Korvel {
namespace {

namespace fs = std::filesystem;

const char NoDatabase[] =
    "Tarn|wavedata/bridge/kernel/src/WdbStaticReader|The wdb file does not contain event database.";

class StaticReader : public ::testing::Test {
protected:
    void open() { reader.createReader("ignored", file.path, 7, directory.file("")); }

    TemporaryDirectory directory;  // of the drawing index
    EventFile file{MultipleBucket, 5000};
    WdbStaticReader reader;
};

TEST_F(StaticReader, answersFromARecording) {
    const WdbStaticReader closed;
    EXPECT_EQ(closed.getLatestTime(), 0);
    EXPECT_EQ(closed.getStringMapValue(1), "");
    EXPECT_FALSE(closed.isObjectTraced(1));

    file.database->setLatestTime(20);
    file.manager.embedDataInNewSection("Pellon Proto", 1,
                                       reinterpret_cast<const unsigned char*>("no zero"), 4);
    file.close();
    open();
    EXPECT_EQ(reader.getLatestTime(), 20);
    EXPECT_TRUE(reader.isWDBVersionMatched());
    EXPECT_TRUE(reader.isObjectTraced(123));
    EXPECT_EQ(reader.getProtoSettings(), "no z");
    long long size = 0;
    EXPECT_EQ(reader.getRtti(&size), nullptr);
    EXPECT_EQ(reader.getDbgHeader(8), nullptr);
    EXPECT_EQ(reader.getStringMapValue(1), "");
    EXPECT_FALSE(reader.hasMoreData());
    boost::unique_lock<boost::mutex> lock(reader.getTimeMarkMutex());
    reader.markTime(lock);
}

TEST_F(StaticReader, loadsTheObjectsThatAreTraced) {
    const long long intervals[] = {1, 4, 10, 10, 3, 6, 9, 8};  // the last two are refused
    file.database->setAddressMapFileOffsetAndSize(
        file.manager.getBlockManager().addBlock(reinterpret_cast<const char*>(intervals),
                                                sizeof(intervals)),
        4);
    file.close();
    open();
    std::string traced;
    for (unsigned int id = 0; id < 12; ++id)
        traced += reader.isObjectTraced(id) ? 'x' : '.';
    EXPECT_EQ(traced, ".xxxx.....x.");
    for (const unsigned int id : {5U, 7U, 6U, 6U})
        reader.setObjectTraced(id, 0, 0);
    EXPECT_TRUE(reader.isObjectTraced(5) && reader.isObjectTraced(7));
    EXPECT_FALSE(reader.isObjectTraced(8));
}

TEST_F(StaticReader, looksUpStringsAlsoBeyondItsCache) {
    auto* strings = new WdbStringMapDatabase(file.manager, 0);
    strings->initialize(strings->createStringMapSection(0, file.manager, true), true);
    for (int i = 1; i <= 1500; ++i)
        strings->addString("text " + std::to_string(i));
    delete strings;
    file.close();
    open();
    for (int round = 0; round < 2; ++round) {
        for (const int id : {1, 2, 1500, 1})
            EXPECT_EQ(reader.getStringMapValue(id), "text " + std::to_string(id));
        for (int id = 1; id <= 1400; ++id)
            ASSERT_EQ(reader.getStringMapValue(id), "text " + std::to_string(id));
    }
    for (const long long id : {0LL, -1LL, 1501LL, (1LL << 32) + 1})
        EXPECT_EQ(reader.getStringMapValue(id), "") << id;
}

// A viewer that opens another recording with the same reader sees nothing of the one before.
TEST_F(StaticReader, opensAnotherRecording) {
    file.write(5, 10, "a");
    file.close();
    open();
    EXPECT_EQ(reader.getBTreeManager().getBTrees({{10}}).front()->getRecordCount(), 1);
    EventFile other{SingleBucket, 5000};
    other.write(7, 10, "b");
    other.close();
    reader.createReader("", other.path, 0, directory.file(""));
    EXPECT_EQ(reader.getBTreeManager().getBTrees({{10}}).front()->getLastValueTime(), 7);
    EXPECT_NE(openFailureOf([&] { reader.createReader("", "missing.wdb", 0, ""); }), "");
    EXPECT_EQ(reader.getLatestTime(), 0);
    EXPECT_TRUE(reader.getBTreeManager().getBTrees({{10}}).front()->isEmpty());
}

TEST_F(StaticReader, refusesWhatHoldsNoEvents) {
    const TemporaryDirectory elsewhere;
    WdbFileManager empty;
    empty.create(elsewhere.file("empty.wdb"));
    empty.close();
    const auto failureOf = [&](const std::string& path) {
        return openFailureOf([&] { WdbStaticReader().createReader("", path, 0, ""); });
    };
    EXPECT_EQ(failureOf(elsewhere.file("empty.wdb")), NoDatabase);
    file.close();
    damage<int>(file.path, static_cast<std::size_t>(file.header()) + 8, 999);
    EXPECT_EQ(failureOf(file.path), NoDatabase);
    damage<int>(file.path, static_cast<std::size_t>(file.header()) + 8, MultipleBucket);
    damage<long long>(file.path, static_cast<std::size_t>(file.header()) + 48, 1LL << 60);
    damage<long long>(file.path, static_cast<std::size_t>(file.header()) + 56, 100);
    EXPECT_EQ(failureOf(file.path),
              "Tarn|wavedata/bridge/kernel/src/WdbStaticReader|The wdb file "
              "does not hold its list of traced objects.");
    const auto unknown = static_cast<WdbEventReaderFactory::ReaderType>(2);
    EXPECT_EQ(WdbEventReaderFactory::getInstance().create(unknown), nullptr);
    for (const char* name : {"missing.wdb", "", "."})
        EXPECT_NE(failureOf(elsewhere.file(name)), "") << name;
    EXPECT_TRUE(fs::is_empty(directory.file("")));
}

TEST_F(StaticReader, keepsItsDrawingFileAsLongAsItLives) {
    file.close();
    writeFile(directory.file("a_2147483646_5.pelwvdat"), "of a process that is gone");
    const std::string foreign[] = {"a_2147483646_5.txt", "2147483646_5.pelwvdat", "a_x_5.pelwvdat",
                                   "a_" + std::to_string(::getpid()) + "_5.pelwvdat"};
    for (const std::string& name : foreign)
        writeFile(directory.file(name), "not ours to remove");
    {
        WdbStaticReader first;
        WdbStaticReader second;
        for (WdbStaticReader* one : {&first, &second})
            one->createReader("", file.path, 7, directory.file(""));
        EXPECT_NE(first.getDrawingBTreeFilePath(), second.getDrawingBTreeFilePath());
        for (const WdbStaticReader* one : {&first, &second}) {
            EXPECT_TRUE(fs::exists(one->getDrawingBTreeFilePath()));
            EXPECT_EQ(fs::path(one->getDrawingBTreeFilePath()).filename().string().substr(0, 2),
                      "a_");
        }
    }
    for (const std::string& name : foreign)
        EXPECT_TRUE(fs::exists(directory.file(name))) << name;
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.file("")), {}), 4);
}

TEST(DrawingFile, isNamedAfterTheRecordingAndItsProcess) {
    EXPECT_EQ(drawingFileName("/x.y/run.a.wdb", 0, 12, 34), "run.a_12_34.pelwvdat");
    EXPECT_EQ(drawingFileName(std::string(40, 'n') + ".wdb", 3, 12, 4294967295U),
              std::string(30, 'n') + "_3_12_4294967295.pelwvdat");
    const TemporaryDirectory directory;
    EXPECT_EQ(drawingFileDirectory(directory.file("")), directory.file(""));
    const char* before = std::getenv("TMPDIR");
    const std::string saved = before != nullptr ? before : "";
    ::setenv("TMPDIR", directory.file("").c_str(), 1);
    EXPECT_EQ(drawingFileDirectory(directory.file("none")), directory.file(""));
    ::setenv("TMPDIR", directory.file("none").c_str(), 1);
    EXPECT_EQ(drawingFileDirectory(""), ".");
    before != nullptr ? ::setenv("TMPDIR", saved.c_str(), 1) : ::unsetenv("TMPDIR");
}

// What a viewer can ask about some scalars around a time, in one row.
std::vector<long long> answersOf(WdbStaticReader& reader, const std::vector<WdbScalar>& scalars,
                                 long long time, long long resolution) {
    WdbAddressBTreeManager& manager = reader.getBTreeManager();
    std::vector<WdbTimeByteValues> all(2);
    manager.getValues(time, scalars, all[0].values);
    std::vector<long long> row = {reader.getLatestTime(), manager.getNextChange(time, scalars)};
    const auto trees = manager.getBTrees(scalars);
    row.insert(row.end(), {reader.getPreviousEvent(time, trees), reader.getNextEvent(time, trees)});
    reader.getValueEvent(time, trees, all[1]);
    reader.getValueEvents(time, time + 500 * resolution, resolution, trees, all);
    for (const WdbTimeByteValues& snapshot : all) {
        row.push_back(snapshot.time);
        for (const WdbByteValue& value : snapshot.values)
            row.push_back(256 * value.type + value.value);
    }
    return row;
}

// Thousands of blocks, some of them at one time, with long gaps, idle addresses and word pairs
// across a bucket's end: a viewer cannot tell how the events are kept.
TEST(StaticReaders, answerAlikeForEveryDatabase) {
    std::mt19937 random(5);
    EventFile files[] = {{SingleBucket, 5000}, {MultipleBucket, 5000}, {MultipleBtree, 5000}};
    for (EventFile& file : files) {
        file.manager.getBlockManager().putBlock(file.header() + 64, fieldOf(160).data(), 4);
        file.load(/*writable=*/true);
    }
    std::vector<long long> times = {0};
    while (times.size() < 12'000) {
        const long long gaps[] = {0, 0, 0, 0, 1, 8, random() % 200 > 0 ? 0 : 1'000'000'000'000};
        times.push_back(times.back() + gaps[random() % 7]);
        const long long address = random() % 300 == 0 ? random() % 5000 : 2030 + random() % 30;
        const std::string values(1 + random() % 9, static_cast<char>('a' + random() % 3));
        for (EventFile& file : files)
            file.write(times.back(), address, values);
    }
    WdbStaticReader readers[3];
    for (int i = 0; i < 3; ++i) {
        files[i].database->setLatestTime(times.back());
        files[i].close();
        readers[i].createReader("", files[i].path, 0, "");
    }
    for (int question = 0; question < 40; ++question) {
        std::vector<WdbScalar> scalars(1 + random() % 4);
        for (auto& [address, bit] : scalars) {
            address = random() % 8 == 0 ? random() % 5100 : 2020 + random() % 45;
            bit = static_cast<int>(random() % 41) - 1;
        }
        const long long time = times[random() % times.size()] + random() % 5 - 2;
        const auto expected = answersOf(readers[0], scalars, time, question % 3);
        ASSERT_EQ(answersOf(readers[1], scalars, time, question % 3), expected);
        ASSERT_EQ(answersOf(readers[2], scalars, time, question % 3), expected);
    }
}

// One damaged list takes nothing from the other buckets, and does not go unsaid.
TEST_F(StaticReader, answersFromTheBucketsThatAreSound) {
    for (int i = 0; i < 3000; ++i) {
        file.write(i, 10, i % 2 == 0 ? "a" : "b");
        file.write(i, 4097, i % 2 == 0 ? "a" : "b");
    }
    file.close();
    const std::string sound = readFile(file.path);
    const auto node = static_cast<std::size_t>(fieldAt<long long>(sound, EventFile::Table));
    constexpr std::size_t FirstBlock = 8;  // behind the handle of the next node
    for (const std::size_t place :
         {static_cast<std::size_t>(EventFile::Table), node, node + FirstBlock}) {
        writeFile(file.path, sound);
        damage<long long>(file.path, place, 1LL << 40);
        open();
        WdbAddressBTreeManager& manager = reader.getBTreeManager();
        std::vector<WdbByteValue> values;
        manager.getValues(2999, {{4097}}, values);
        EXPECT_EQ(values[0].value, 'b');
        EXPECT_FALSE(manager.hasMetDamage()) << place;
        manager.getValues(1, {{10}}, values);
        EXPECT_TRUE(manager.hasMetDamage()) << place;
        open();
        EXPECT_EQ(manager.getBTrees({{4097}}).front()->getRecordCount(), 3000);
        EXPECT_FALSE(manager.hasMetDamage());
        manager.getBTrees({{10}});
        EXPECT_TRUE(manager.hasMetDamage()) << place;
    }
}

}  // namespace
}  // namespace Korvel
