#include "writers/WdbStandAloneWriter.h"

#include <filesystem>
#include <functional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/LibraryAccess.h"
#include "veld/OpenException.h"
#include "writers/WriterFactory.h"

namespace Korvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr long long Addresses = 5000;

class StandAloneWriter : public ::testing::Test {
protected:
    StandAloneWriter() { m_writer.setAddressSize(Addresses); }

    void open(const std::string& name = "recording.wdb") {
        m_writer.open(IWdbWriter::DefaultMode, m_directory.file("none/sim"), path(name), 0);
    }
    StoredRecording finished(const std::string& name = "recording.wdb") {
        m_writer.close();
        return decode(readFile(path(name)));
    }
    std::string path(const std::string& name) const { return m_directory.file(name); }

    TemporaryDirectory m_directory;
    WdbStandAloneWriter m_writer;
};

TEST_F(StandAloneWriter, givesEachBegunDivisionABucket) {
    const struct {
        long long addresses;
        unsigned int division;
        std::size_t buckets;
    } cases[] = {{0, 2048, 0},    {1, 2048, 1},       {2048, 2048, 1}, {2049, 2048, 2},
                 {4096, 2048, 2}, {4097, 2048, 3},    {5000, 1000, 5}, {5001, 1000, 6},
                 {3, 1, 3},       {3, 4294967295u, 1}};
    for (const auto& row : cases) {
        m_writer.setAddressSize(row.addresses);
        m_writer.setBucketDivision(row.division);
        open();
        // A viewer may open the recording before anything was recorded.
        EXPECT_EQ(decode(readFile(path("recording.wdb"))).buckets.size(), row.buckets);
        const StoredRecording recording = finished();
        EXPECT_EQ(recording.buckets.size(), row.buckets) << row.addresses << "/" << row.division;
        EXPECT_EQ(recording.addressesPerBucket, row.division);
        EXPECT_EQ(recording.numberOfAddresses, static_cast<unsigned long long>(row.addresses));
        EXPECT_THAT(recording.allEvents(), IsEmpty());
        EXPECT_EQ(recording.sectionIDs(), "WDB.Event WDB.StringMap ");
    }
}

// The SystemC functions advance the latest time and the others do not. Bits [33, 41) of 96 lie in
// the second of three pairs. The base offset counts from the call on.
TEST_F(StandAloneWriter, eachTraceFunctionRecordsItsAddressAndValue) {
    std::string words(
        "\x01\x00\x00\x00\x00\x00\x00\x00"
        "\xff\xff\xff\xff\x00\x00\x00\x00"
        "\x03\x00\x00\x00\x00\x00\x00\x00",
        24);
    std::string fresh("\x05\x00\x00\x00\x80\x00\x00\x00", 8);
    const std::string merged("\x0b\xfe\xff\xff\x00\x01\x00\x00", 8);
    auto* current = reinterpret_cast<unsigned char*>(words.data());
    auto* bits = reinterpret_cast<unsigned char*>(fresh.data());
    const auto vhdl = m_writer.getTraceVhdlFunc();
    const auto vlog = m_writer.getTraceVlogFunc();
    const auto scObject = m_writer.getTraceScObjectFunc();
    const auto scVirtual = m_writer.getTraceScVirtualObjectFunc();
    const struct {
        std::function<void()> call;
        std::vector<StoredEvent> events;
        long long latestTime;
    } cases[] = {
        {[&] { vhdl(7, 9, 3, current + 8, bits); }, {{7, 108, fresh.substr(0, 3)}}, 0},
        {[&] { m_writer.getTraceVhdlFuncScalar()(7, 0, 1, bits); }, {}, 0},
        {[&] { vlog(7, 9, 9, current, bits, 33, 41); }, {{7, 108, merged}}, 0},
        {[&] { vlog(7, 9, 9, current, bits, 33, 33); }, {}, 0},
        {[&] { vlog(7, 9, 9, current, bits, 33, 0); }, {}, 0},
        {[&] { scObject(7, 2000, current, bits, 33, 8); }, {{7, 2008, merged}}, 7},
        {[&] { scObject(7, 2000, current, bits, 33, 0); }, {}, 7},
        {[&] { scVirtual(7, 2000, bits, 30, 2); }, {{7, 2030, fresh.substr(0, 2)}}, 7},
        {[&] { m_writer.markCurrentTime(9), m_writer.markCurrentTime(8); }, {}, 8},
    };
    for (const auto& row : cases) {
        m_writer.setBaseDPOffset(1);
        open();
        m_writer.setBaseDPOffset(reinterpret_cast<long long>(current) - 100);
        row.call();
        const StoredRecording recording = finished();
        EXPECT_EQ(recording.allEvents(), row.events) << "row " << &row - cases;
        EXPECT_EQ(recording.latestTime, row.latestTime) << "row " << &row - cases;
    }
}

TEST_F(StandAloneWriter, storesStringsThatABlockCanTake) {
    EXPECT_EQ(m_writer.addString("not open"), -1);
    open();
    EXPECT_EQ(m_writer.addString(""), 1);
    EXPECT_EQ(m_writer.addString(std::string(1011, 'x')), -1);
    EXPECT_EQ(m_writer.addString(std::string(1010, 'y')), 2);
    EXPECT_EQ(m_writer.addString(std::string("cut\0off", 7)), 3);
    EXPECT_EQ(m_writer.addString("last"), 4);
    EXPECT_THAT(finished().strings, ElementsAre("", std::string(1010, 'y'), "cut", "last"));
    EXPECT_EQ(m_writer.addString("closed"), -1);
}

// The flag counts when a block fills up, so it works for a recording that is open already.
TEST_F(StandAloneWriter, filterCanBeSetWhileOpen) {
    for (const bool filter : {false, true}) {
        m_writer.setFilterRepeatedValue(!filter);
        open();
        m_writer.setFilterRepeatedValue(filter);
        for (int i = 0; i < 1000; ++i)
            traceBytes(m_writer, 1, 0, std::string(100, static_cast<char>('a' + i % 26)));
        EXPECT_EQ(finished().allEvents().size() < 100, filter);
    }
}

TEST_F(StandAloneWriter, refusesSettingsBeforeItTouchesAFile) {
    writeFile(path("recording.wdb"), "precious");
    const struct {
        long long addresses;
        unsigned int division;
    } cases[] = {{5000, 0}, {-1, 2048}, {1ll << 62, 2048}};
    for (const auto& row : cases) {
        m_writer.setAddressSize(row.addresses);
        m_writer.setBucketDivision(row.division);
        EXPECT_THROW(open(), Veld::OpenException) << row.addresses << "/" << row.division;
        EXPECT_EQ(readFile(path("recording.wdb")), "precious");
        EXPECT_EQ(m_writer.addString("closed"), -1);
    }
}

TEST_F(StandAloneWriter, isClosedAfterAFailedOpen) {
    open("first.wdb");
    traceBytes(m_writer, 1, 2, "a");
    EXPECT_THROW(open("missing/second.wdb"), Veld::OpenException);
    // What was open was finished before the other file was tried.
    EXPECT_THAT(decode(readFile(path("first.wdb"))).allEvents(),
                ElementsAre(StoredEvent{1, 2, "a"}));
    const std::string bytes = readFile(path("first.wdb"));
    traceBytes(m_writer, 2, 2, "b");
    m_writer.getTraceVlogFunc()(2, 0, 0, nullptr, nullptr, 0, 1);
    m_writer.getTraceScObjectFunc()(2, 0, nullptr, nullptr, 0, 1);
    m_writer.getTraceScVirtualObjectFunc()(2, 0, nullptr, 0, 1);
    m_writer.markCurrentTime(3);
    m_writer.checkpoint();
    EXPECT_EQ(m_writer.addString("closed"), -1);
    m_writer.close();
    EXPECT_EQ(readFile(path("first.wdb")), bytes);
    open("third.wdb");
    traceBytes(m_writer, 3, 4, "c");
    EXPECT_THAT(finished("third.wdb").allEvents(), ElementsAre(StoredEvent{3, 4, "c"}));
}

// A second open finishes the first recording; ids and events begin anew, the application stays.
TEST_F(StandAloneWriter, recordsOneFileAfterAnother) {
    m_writer.setApplication("before open");
    open("first.wdb");
    traceBytes(m_writer, 1, 2, "a");
    EXPECT_EQ(m_writer.addString("one"), 1);
    m_writer.markCurrentTime(5);
    open("second.wdb");
    const StoredRecording first = decode(readFile(path("first.wdb")));
    EXPECT_EQ(m_writer.addString("two"), 1);
    EXPECT_EQ(first.application, "before open");
    EXPECT_EQ(first.latestTime, 5);
    EXPECT_THAT(first.allEvents(), ElementsAre(StoredEvent{1, 2, "a"}));
    const StoredRecording second = finished("second.wdb");
    EXPECT_EQ(second.application, "before open");
    EXPECT_EQ(second.latestTime, 0);
    EXPECT_THAT(second.allEvents(), IsEmpty());
    EXPECT_THAT(second.strings, ElementsAre("two"));
    open();
    m_writer.setApplication("a name of more than 24 characters");
    m_writer.restart();
    m_writer.setMaxTraceableSize(1);
    EXPECT_EQ(finished().application, "a name of more than 24 c");
}

TEST_F(StandAloneWriter, embedsTheCompilersFilesOfTheSnapshot) {
    const std::string kernelDirectory = path("torq.dir/snap/");
    std::filesystem::create_directories(kernelDirectory);
    const auto record = [&] {
        m_writer.open(IWdbWriter::DefaultMode, path("snap/sim"), path("recording.wdb"), 0);
        return finished();
    };
    EXPECT_EQ(record().sectionIDs(), "WDB.Event WDB.StringMap ");
    writeFile(kernelDirectory + "torq.rtti", "types");
    EXPECT_EQ(record().sectionIDs(), "Pellon RTTI WDB.Event WDB.StringMap ");
    const std::string debug = std::string(100'000, 'd') + "end";
    writeFile(kernelDirectory + "torq.dbg", debug);
    const StoredRecording both = record();
    EXPECT_EQ(both.sectionIDs(), "Pellon DBG Pellon RTTI WDB.Event WDB.StringMap ");
    const std::string bytes = readFile(path("recording.wdb"));
    EXPECT_EQ(bytes.substr(200, debug.size()), debug);
    EXPECT_EQ(both.sections[0].offset, 200);
    EXPECT_EQ(both.sections[0].size, static_cast<long long>(debug.size()));
    writeFile(kernelDirectory + "torq.dbg", "");
    EXPECT_EQ(record().sectionIDs(), "Pellon RTTI WDB.Event WDB.StringMap ");
    std::filesystem::remove(kernelDirectory + "torq.dbg");
    std::filesystem::create_directory(kernelDirectory + "torq.dbg");
    EXPECT_EXIT(record(), ::testing::ExitedWithCode(1),
                "WDB FATAL ERROR: Can't read WDB constituent file .*torq.dbg for the following");
}

TEST_F(StandAloneWriter, recordsIntoTheUsualNameWhenNoneIsGiven) {
    EXPECT_EXIT(
        {
            std::filesystem::current_path(path(""));
            m_writer.open(IWdbWriter::DefaultMode, "", "", 5);
            m_writer.close();
            std::exit(decode(readFile("torq.wdb")).sections.size() == 2 ? 0 : 2);
        },
        ::testing::ExitedWithCode(0), "^$");
}

// Whoever was constructed last records, whichever writer handed out the function. In a process of
// its own, since the factory's writer stays.
TEST_F(StandAloneWriter, factoryTakesTheTraceFunctionsOver) {
    open("own.wdb");
    EXPECT_EXIT(
        {
            IWdbWriter* factorys = WriterFactory::getWdbWriter();
            factorys->setAddressSize(Addresses);
            factorys->open(IWdbWriter::DefaultMode, "", path("factory.wdb"), 0);
            traceBytes(m_writer, 1, 2, "a");
            factorys->close();
            m_writer.close();
            const bool isSame = WriterFactory::getWdbWriter() == factorys;
            const std::size_t own = decode(readFile(path("own.wdb"))).allEvents().size();
            const std::size_t taken = decode(readFile(path("factory.wdb"))).allEvents().size();
            std::exit(isSame && own == 0 && taken == 1 ? 0 : 2);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST_F(StandAloneWriter, functionsOutliveTheirWriter) {
    auto writer = std::make_unique<WdbStandAloneWriter>();
    writer->setAddressSize(Addresses);
    writer->open(IWdbWriter::DefaultMode, "", path("recording.wdb"), 0);
    traceBytes(*writer, 1, 3, "v");
    const IWdbWriter::TraceVhdlFunc vhdl = writer->getTraceVhdlFunc();
    const IWdbWriter::TraceScObjectFunc scObject = writer->getTraceScObjectFunc();
    writer.reset();
    vhdl(2, 0, 1, nullptr, nullptr);
    scObject(2, 0, nullptr, nullptr, 0, 1);
    EXPECT_THAT(decode(readFile(path("recording.wdb"))).allEvents(),
                ElementsAre(StoredEvent{1, 3, "v"}));
}

}  // namespace
}  // namespace Korvel
