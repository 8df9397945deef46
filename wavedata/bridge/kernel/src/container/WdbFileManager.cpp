#include "container/WdbFileManager.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <boost/filesystem/operations.hpp>

#include "container/WdbBlockCodec.h"
#include "support/WdbFatalError.h"
#include "support/WdbKeepForever.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbFileManager";
const char TooOldOrDamaged[] =
    "The file may be corrupt or of an unsupported older format.  Korvel introduced a new, enhanced "
    "waveform database in release 1.0. Because the new database is incompatible with the old one, "
    "this version of Korvel cannot open WDB files created by earlier releases";
const char OpenConstituentFailed[] = "WDB FATAL ERROR: Can't open WDB constituent file ";
const char SeekConstituentFailed[] = "WDB FATAL ERROR: Can't seek in WDB constituent file ";
const char ReadConstituentFailed[] = "WDB FATAL ERROR: Can't read WDB constituent file ";

using Lock = boost::unique_lock<boost::recursive_mutex>;

[[noreturn]] void throwOpenFailure(int line, const std::string& message) {
    throwOpenException(ClassFile, line, message);
}

[[noreturn]] void constituentFailed(const char* text, const std::string& path) {
    wdbFatalError((text + path + " for the following reason: ").c_str());
}

// A whole file, which the compiler left beside the snapshot.
std::vector<unsigned char> readConstituent(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) constituentFailed(OpenConstituentFailed, path);
    file.seekg(0, std::ios::end);
    const long long size = file.tellg();
    if (size == -1) constituentFailed(SeekConstituentFailed, path);
    // A directory opens like a file and claims a size that no buffer can have; reading tells.
    char first = 0;
    file.seekg(0, std::ios::beg);
    if (size > 0 && !file.read(&first, 1)) constituentFailed(ReadConstituentFailed, path);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    file.seekg(0, std::ios::beg);
    file.read(reinterpret_cast<char*>(bytes.data()), size);
    if (!file) constituentFailed(ReadConstituentFailed, path);
    return bytes;
}

}  // namespace

WdbFileManager::WdbFileManager() : m_blockManager(m_stream) {
    // A writer that lives until the process ends compresses its last blocks then.
    outliveCodecUsers();
}

WdbFileManager::~WdbFileManager() {
    close();
}

void WdbFileManager::create(const std::string& path) {
    const Lock lock(m_blockManager.getMutex());
    close();
    try {
        m_stream.clear();
        m_stream.exceptions(std::ios::badbit | std::ios::failbit);
        m_stream.open(path, std::ios::in | std::ios::out | std::ios::trunc | std::ios::binary);
    } catch (const std::ios_base::failure&) {
        throwOpenFailure(__LINE__, "Cannot create simulation database file at: " + path +
                                       " Please check that this filepath is writable or specify "
                                       "an alternative location using --wdb");
    }
    m_header = WdbFileHeader();
    m_header.setApplication(m_application);
    m_header.m_creationTime = static_cast<unsigned int>(std::time(nullptr));
    m_blockManager.putBlock(0, reinterpret_cast<const char*>(&m_header), sizeof(m_header));
    loadContents();
    m_isOpen = true;
    m_isWritable = true;
    m_header.m_contentsHead = m_contents->getFirstNode();
}

void WdbFileManager::open(const std::string& path) {
    const Lock lock(m_blockManager.getMutex());
    close();
    boost::system::error_code error;
    const boost::filesystem::file_status status = boost::filesystem::status(path, error);
    if (error || !boost::filesystem::exists(status)) {
        throwOpenFailure(__LINE__, "wdb database file does not exist.");
    }
    try {
        m_stream.clear();
        m_stream.exceptions(std::ios::badbit | std::ios::failbit);
        m_stream.open(path, std::ios::in | std::ios::binary);
    } catch (const std::ios_base::failure&) {
        throwOpenFailure(__LINE__, "Cannot open simulation database file.");
    }
    // A directory opens like a file and a short file has no header; both are refused like a header
    // of another version, and so is a head that names no node.
    bool readable = true;
    try {
        readFromStream(m_stream, 0, reinterpret_cast<char*>(&m_header), sizeof(m_header));
    } catch (const std::ios_base::failure&) {
        m_stream.clear();
        readable = false;
    }
    const long long head = m_header.m_contentsHead;
    if (readable && m_header.isVersionStringMatched()) {
        readable = head == 0 || m_blockManager.mayFollow(head, sizeof(Contents::Node));
    } else {
        readable = false;
    }
    if (!readable) {
        m_stream.close();
        throwOpenFailure(__LINE__, TooOldOrDamaged);
    }
    m_blockManager.readBeside(path);
    loadContents();
    m_isOpen = true;
}

void WdbFileManager::close() {
    const Lock lock(m_blockManager.getMutex());
    const bool wasOpen = m_isOpen;
    m_isOpen = false;
    m_isWritable = false;
    m_blockManager.forgetFile();
    try {
        if (wasOpen) m_stream.close();
    } catch (...) {
        m_contents.reset();
        throw;
    }
    discardContents();
}

void WdbFileManager::abandon() {
    const Lock lock(m_blockManager.getMutex());
    m_isOpen = false;
    m_isWritable = false;
    // Destroying either would write; both stay in memory until this process ends.
    keepForever(m_contents.release());
    keepForever(new std::fstream(std::move(m_stream)));
}

void WdbFileManager::readHeader() {
    const Lock lock(m_blockManager.getMutex());
    if (!m_isOpen) return;
    m_blockManager.getBlock(0, reinterpret_cast<char*>(&m_header), sizeof(m_header));
}

void WdbFileManager::writeHeader() {
    const Lock lock(m_blockManager.getMutex());
    if (!m_isOpen || !m_isWritable) return;
    m_blockManager.putBlock(0, reinterpret_cast<const char*>(&m_header), sizeof(m_header));
    m_blockManager.flushStream();
}

void WdbFileManager::setApplication(const std::string& name) {
    m_application = name;
    m_header.setApplication(name);
    writeHeader();
}

void WdbFileManager::addNewSection(const std::string& id, unsigned int version, long long offset,
                                   long long size) {
    const Lock lock(m_blockManager.getMutex());
    if (!m_isOpen) return;
    WdbTableOfContentItem& item = m_contents->openRecord();
    item.setSectionID(id);
    item.m_version = version;
    item.m_offset = offset;
    item.m_size = size;
    m_contents->settle();
}

void WdbFileManager::embedDataInNewSection(const std::string& id, unsigned int version,
                                           const unsigned char* data, long long size) {
    if (!m_isOpen || size < 1) return;
    const Lock lock(m_blockManager.getMutex());
    const long long offset = m_blockManager.addBlock(reinterpret_cast<const char*>(data),
                                                     static_cast<unsigned long long>(size));
    addNewSection(id, version, offset, size);
}

void WdbFileManager::embedFileInNewSection(const std::string& id, unsigned int version,
                                           const std::string& filePath) {
    if (!m_isOpen) return;
    const std::vector<unsigned char> bytes = readConstituent(filePath);
    embedDataInNewSection(id, version, bytes.data(), static_cast<long long>(bytes.size()));
}

bool WdbFileManager::getSection(const std::string& id, unsigned int version,
                                WdbTableOfContentItem& out) const {
    if (findSection(id, version, out)) return true;
    throwOpenFailure(__LINE__, "Cannot find sectionID = '" + id + "' and version = '" +
                                   std::to_string(version) + "' in the wave database");
}

unsigned char* WdbFileManager::getSectionData(const std::string& id, unsigned int version,
                                              long long* sizeOut) const {
    WdbTableOfContentItem item;
    if (!findSectionInFile(id, version, item)) return nullptr;
    const auto size = static_cast<std::size_t>(item.m_size);
    auto* data = static_cast<unsigned char*>(std::malloc(size));
    if (data == nullptr) return nullptr;
    m_blockManager.getBlock(item.m_offset, reinterpret_cast<char*>(data), size);
    if (sizeOut != nullptr) *sizeOut = item.m_size;
    return data;
}

unsigned char* WdbFileManager::getSectionData(const std::string& id, unsigned int version,
                                              long long size) const {
    WdbTableOfContentItem item;
    if (size < 1 || !findSectionInFile(id, version, item)) return nullptr;
    auto* data = new unsigned char[static_cast<std::size_t>(size)]();
    m_blockManager.getBlock(item.m_offset, reinterpret_cast<char*>(data),
                            static_cast<unsigned long long>(std::min(size, item.m_size)));
    return data;
}

long long WdbFileManager::getSectionFileOffset(const std::string& id, unsigned int version) const {
    WdbTableOfContentItem item;
    getSection(id, version, item);
    return item.m_offset;
}

long long WdbFileManager::getSectionSize(const std::string& id, unsigned int version) const {
    return getSectionFileOffset(id, version);
}

std::vector<WdbTableOfContentItem> WdbFileManager::getSections() const {
    std::vector<WdbTableOfContentItem> sections;
    visitSections([&](const WdbTableOfContentItem& item) {
        sections.push_back(item);
        return true;
    });
    return sections;
}

void WdbFileManager::discardContents() {
    if (!m_contents) return;
    m_contents->settle();
    m_contents.reset();
}

// The list makes its first node when the header names none, and only a new file has none.
void WdbFileManager::loadContents() {
    discardContents();
    m_contents =
        std::make_unique<Contents>(m_blockManager, WdbFileHeader::ContentsHeadOffset, 0, 0);
}

// The first entry in file order wins.
bool WdbFileManager::findSection(const std::string& id, unsigned int version,
                                 WdbTableOfContentItem& out) const {
    bool found = false;
    visitSections([&](const WdbTableOfContentItem& item) {
        found = item.isSectionAndVersionMatched(id, version);
        if (found) out = item;
        return !found;
    });
    return found;
}

// As findSection, for callers that go on to read: the section must be there, byte for byte.
bool WdbFileManager::findSectionInFile(const std::string& id, unsigned int version,
                                       WdbTableOfContentItem& out) const {
    return findSection(id, version, out) && out.m_size >= 1 &&
           m_blockManager.mayFollow(out.m_offset, static_cast<unsigned long long>(out.m_size));
}

// Calls visit for every section in file order until it answers false.
template <typename Visitor>
void WdbFileManager::visitSections(Visitor&& visit) const {
    if (!m_contents) return;
    m_contents->settle();
    Contents::Walker walker = m_contents->walk();
    if (!walker.isAtNode()) return;
    WdbTableOfContentItem item;
    do {
        for (unsigned int i = 0; i < walker.node().m_count; ++i) {
            const Contents::Node::Entry entry = walker.node().entry(i);
            if (!m_blockManager.mayFollow(entry.handle, sizeof(item))) continue;
            item.loadBlock(entry.handle, entry.size, m_blockManager);
            if (!visit(item)) return;
        }
    } while (walker.next());
}

}  // namespace Korvel
