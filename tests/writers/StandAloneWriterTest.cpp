#include "writers/WdbStandAloneWriter.h"

#include <functional>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/LibraryAccess.h"
#include "veld/OpenException.h"
#include "writers/WriterFactory.h"

namespace Korvel {
namespace {

class StandAloneWriter : public ::testing::Test {
protected:
    StandAloneWriter() { m_writer.setAddressSize(5000); }

    void open(const std::string& name = "recording.wdb") {
        m_writer.open(IWdbWriter::DefaultMode, path("snap/sim"), path(name), 0);
    }
    StoredRecording stored(const std::string& name = "recording.wdb") const {
        return decode(readFile(path(name)));
    }
    StoredRecording finished() {
        m_writer.close();
        return stored();
    }
    std::string path(const std::string& name) const { return m_directory.file(name); }

    TemporaryDirectory m_directory;
    WdbStandAloneWriter m_writer;
};

// What is refused leaves the file alone; a viewer may open what is not before anything is recorded.
TEST_F(StandAloneWriter, givesEachBegunDivisionABucket) {
    constexpr std::size_t Refused = -1;
    const struct {
        long long addresses;
        unsigned int division;
        std::size_t buckets;
        int type = IWdbWriter::MultipleBucket;
    } cases[] = {{5000, 0, Refused},
                 {-1, 2048, Refused},
                 {1ll << 62, 2048, Refused},
                 {5000, 2048, Refused, 999},
                 {5000, 2048, Refused, 1003},
                 {5000, 1024, Refused, IWdbWriter::MultipleBucketBtree},
                 {0, 2048, 0},
                 {1, 2048, 1},
                 {2048, 2048, 1},
                 {2049, 2048, 2},
                 {2049, 2048, 2, IWdbWriter::MultipleBucketBtree},
                 {3, 1, 3},
                 {3, 4294967295u, 1}};
    for (const auto& row : cases) {
        m_writer.setDatabaseType(row.type);
        m_writer.setAddressSize(row.addresses);
        m_writer.setBucketDivision(row.division);
        if (row.buckets == Refused) {
            writeFile(path("recording.wdb"), "precious");
            EXPECT_THROW(open(), Veld::OpenException) << row.addresses << "/" << row.division;
            EXPECT_EQ(readFile(path("recording.wdb")), "precious");
            continue;
        }
        open();
        const StoredRecording recording = stored();
        EXPECT_EQ(recording.buckets.size(), row.buckets) << row.addresses << "/" << row.division;
        EXPECT_EQ(recording.addressesPerBucket, row.division);
        EXPECT_EQ(recording.numberOfAddresses, static_cast<unsigned long long>(row.addresses));
    }
}

// The SystemC functions advance the latest time and the others do not. Bits [33, 41) of 96 lie in
// the second of three pairs. The base offset counts from the call on.
TEST_F(StandAloneWriter, eachTraceFunctionRecordsItsAddressAndValue) {
    std::string words = fieldOf(1ll) + fieldOf(0xffffffffll) + fieldOf(3ll);
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
        std::vector<RecordedEvent> events;
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

// The flag counts when a block fills up, so it works for a recording that is open already. 102
// events fill a block. The next leaves one of them, again after every 101: with the 911th there are
// two, and the last 89 are not in a full block.
TEST_F(StandAloneWriter, dropsSupersededWritesOfFullBlocksUnlessToldOtherwise) {
    for (const bool filter : {true, false}) {
        open();
        if (!filter) m_writer.setFilterRepeatedValue(false);
        for (int i = 0; i < 1000; ++i)
            traceBytes(m_writer, 1, 0, std::string(84, static_cast<char>('a' + i % 26)));
        const std::vector<RecordedEvent> events = finished().allEvents();
        EXPECT_EQ(events.size(), filter ? 91u : 1000u);
        EXPECT_EQ(events.back().value, std::string(84, 'l')) << "the last write counts";
    }
}

// A second open finishes what was open, also when it fails, and begins anew. Whatever is called
// while nothing is open does nothing.
TEST_F(StandAloneWriter, recordsOneFileAfterAnother) {
    EXPECT_EQ(m_writer.addString("not open"), -1);
    for (const std::string name : {"first.wdb", "second.wdb"}) {
        open(name);
        traceBytes(m_writer, 1, 2, name);
        EXPECT_EQ(m_writer.addString(std::string(1011, 'x')), -1);
        EXPECT_EQ(m_writer.addString(name), 1);
        EXPECT_EQ(m_writer.addString(std::string(1010, 'y')), 2);
    }
    m_writer.markCurrentTime(5);
    EXPECT_THROW(open("missing/third.wdb"), Veld::OpenException);
    const std::string bytes = readFile(path("second.wdb"));
    traceBytes(m_writer, 2, 2, "b");
    m_writer.getTraceVlogFunc()(2, 0, 0, nullptr, nullptr, 0, 1);
    m_writer.getTraceScObjectFunc()(2, 0, nullptr, nullptr, 0, 1);
    m_writer.getTraceScVirtualObjectFunc()(2, 0, nullptr, 0, 1);
    m_writer.markCurrentTime(3);
    m_writer.checkpoint();
    EXPECT_EQ(m_writer.addString("closed"), -1);
    m_writer.close();
    EXPECT_EQ(readFile(path("second.wdb")), bytes);
    for (const std::string name : {"first.wdb", "second.wdb"}) {
        EXPECT_EQ(stored(name).allEvents(), std::vector<RecordedEvent>({{1, 2, name}}));
        EXPECT_EQ(stored(name).strings, std::vector<std::string>({name, std::string(1010, 'y')}));
    }
    open("third.wdb");
    EXPECT_EQ(stored("third.wdb").latestTime, 0);
}

TEST_F(StandAloneWriter, embedsTheCompilersFilesThatAreThere) {
    const auto sectionsWith = [&](const std::string& file, const std::string& content) {
        writeFile(path("torq.dir/snap/" + file), content);
        open();
        std::string ids;
        for (const StoredSection& section : finished().sections)
            ids += section.id + " ";
        return ids;
    };
    std::filesystem::create_directories(path("torq.dir/snap/"));
    EXPECT_EQ(sectionsWith("other", "file"), "WDB.Event WDB.StringMap ");
    EXPECT_EQ(sectionsWith("torq.rtti", "types"), "Pellon RTTI WDB.Event WDB.StringMap ");
    EXPECT_EQ(readFile(path("recording.wdb")).substr(200, 5), "types");
    EXPECT_EQ(sectionsWith("torq.dbg", ""), "Pellon RTTI WDB.Event WDB.StringMap ");
}

// Whoever was constructed last records, whichever writer handed out the function, and under the
// usual name when none is given. In a process of its own, since the factory's writer stays.
TEST_F(StandAloneWriter, factoryTakesTheTraceFunctionsOver) {
    const auto recordByTheFactory = [&] {
        open("own.wdb");
        std::filesystem::current_path(path(""));
        IWdbWriter* factorys = WriterFactory::getWdbWriter();
        factorys->setAddressSize(5000);
        factorys->open(IWdbWriter::DefaultMode, "", "", 5);
        traceBytes(m_writer, 1, 2, "a");
        factorys->close();
        m_writer.close();
        const bool isTaken =
            stored("own.wdb").allEvents().empty() && stored("torq.wdb").allEvents().size() == 1;
        std::exit(isTaken && WriterFactory::getWdbWriter() == factorys ? 0 : 2);
    };
    EXPECT_EXIT(recordByTheFactory(), ::testing::ExitedWithCode(0), "^$");
}

TEST_F(StandAloneWriter, functionsOutliveTheirWriter) {
    auto writer = std::make_unique<WdbStandAloneWriter>();
    const IWdbWriter::TraceVhdlFunc vhdl = writer->getTraceVhdlFunc();
    const IWdbWriter::TraceScObjectFunc scObject = writer->getTraceScObjectFunc();
    writer->setAddressSize(5000);
    writer->open(IWdbWriter::DefaultMode, "", path("recording.wdb"), 0);
    traceBytes(*writer, 1, 3, "v");
    writer.reset();
    vhdl(2, 0, 1, nullptr, nullptr);
    scObject(2, 0, nullptr, nullptr, 0, 1);
    EXPECT_EQ(stored().allEvents(), std::vector<RecordedEvent>({{1, 3, "v"}}));
}

}  // namespace
}  // namespace Korvel
