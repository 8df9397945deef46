#include "container/WdbStringMapDatabase.h"

#include <iostream>

#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbStringMapDatabase";

// Larger blocks than this are a damaged header: a block is unpacked whole for one string.
constexpr unsigned int LargestBlock = 1u << 24;

using Lock = boost::unique_lock<boost::recursive_mutex>;

// From a first id, which a damaged file may put anywhere, up to one that is not below it.
unsigned long long distance(long long first, long long id) {
    return static_cast<unsigned long long>(id) - static_cast<unsigned long long>(first);
}

}  // namespace

const char WdbStringMapDatabase::SectionID[] = "WDB.StringMap";

WdbStringMapDatabase::Iterator& WdbStringMapDatabase::Iterator::operator++() {
    if (!isEof()) ++m_index;
    skipUsedUpNodes();
    return *this;
}

void WdbStringMapDatabase::Iterator::skipUsedUpNodes() {
    while (isEof() && m_walker.next())
        m_index = 0;
}

void WdbStringMapDatabase::Iterator::getBlockInfo(long long& blockHandle,
                                                  unsigned int& compressedSize, long long& startId,
                                                  unsigned int& count) const {
    const List::Node::Entry entry = m_walker.node().entry(m_index);
    blockHandle = entry.firstHandle;
    compressedSize = entry.firstSize;
    startId = entry.secondHandle;
    count = entry.secondSize;
}

void WdbStringMapDatabase::Iterator::getStringBlock(WdbStringBlock& block) const {
    const List::Node::Entry entry = m_walker.node().entry(m_index);
    block.loadBlock(entry.firstHandle, entry.firstSize, *m_pStore);
}

WdbStringMapDatabase::WdbStringMapDatabase(WdbFileManager& fileManager, int databaseTypeId)
    : m_pStore(&fileManager.getBlockManager()) {
    m_header.databaseTypeId = static_cast<unsigned int>(databaseTypeId);
}

WdbStringMapDatabase::~WdbStringMapDatabase() {
    if (m_writable && m_list) m_list->settle();
}

long long WdbStringMapDatabase::createStringMapSection(int databaseTypeId,
                                                       WdbFileManager& fileManager,
                                                       bool registerSection) {
    WdbFileBlockManager& store = fileManager.getBlockManager();
    const Lock lock(store.getMutex());
    WdbStringMapDatabaseHeader header;
    const long long noNode = 0;
    header.databaseTypeId = static_cast<unsigned int>(databaseTypeId);
    header.stringBlockFileOffset =
        store.addBlock(reinterpret_cast<const char*>(&noNode), sizeof(noNode));
    const long long handle = store.addBlock(reinterpret_cast<const char*>(&header), sizeof(header));
    if (registerSection) {
        fileManager.addNewSection(SectionID, SectionVersion, handle, sizeof(header));
    }
    return handle;
}

void WdbStringMapDatabase::initialize(long long headerHandle, bool writable) {
    readHeader(headerHandle);
    m_writable = writable;
    long long firstNode = readHandleSlot(*m_pStore, m_header.stringBlockFileOffset);
    if (writable && firstNode == 0) {
        firstNode = List::createAnEmptyIndexTable(*m_pStore);
        writeHandleSlot(*m_pStore, m_header.stringBlockFileOffset, firstNode);
    }
    m_list = std::make_unique<List>(*m_pStore, firstNode, m_header.stringBlockSize);
    m_lastId = lastStoredId();
}

long long WdbStringMapDatabase::addString(const std::string& text) {
    if (!m_list->openRecord().canAdd(text)) {
        flush();
        m_list->openRecord();
    }
    m_list->openRecord().addString(++m_lastId, text);
    // A reader finds the strings of a block by their zero bytes. One inside a string would shift
    // the texts of all that follow in its block, so nothing follows.
    if (text.find('\0') != std::string::npos) flush();
    return m_lastId;
}

bool WdbStringMapDatabase::getString(unsigned int id, std::string& out) const {
    for (Iterator it = getIterator(); it; ++it) {
        long long handle = 0;
        long long startId = 0;
        unsigned int size = 0;
        unsigned int count = 0;
        it.getBlockInfo(handle, size, startId, count);
        if (id < startId || distance(startId, id) >= count) continue;
        WdbStringBlock block(m_header.stringBlockSize);
        it.getStringBlock(block);
        WdbStringBlockIterator strings = block.getStringBlockIterator();
        while (strings.hasNext()) {
            strings.next();
            if (strings.getID() != id) continue;
            out = strings.getText();
            return true;
        }
    }
    return false;
}

void WdbStringMapDatabase::flush() {
    m_list->closeRecord();
}

void WdbStringMapDatabase::checkpoint() {
    m_list->flush();
}

WdbStringMapDatabase::Iterator WdbStringMapDatabase::getIterator() const {
    if (!m_list) return {*m_pStore, 0};
    if (m_writable) m_list->settle();
    return {*m_pStore, m_list->getFirstNode()};
}

void WdbStringMapDatabase::loadDataBlock(long long handle, unsigned int size,
                                         WdbStringBlock& block) const {
    block.loadBlock(handle, size, *m_pStore);
}

void WdbStringMapDatabase::dumpHeader() const {
    std::cout << "databaseTypeId = " << m_header.databaseTypeId << std::endl
              << "stringBlockSize = " << m_header.stringBlockSize << std::endl
              << "stringBlockFileOffset = " << m_header.stringBlockFileOffset << std::endl;
}

void WdbStringMapDatabase::readHeader(long long headerHandle) {
    if (!mayFollowHandle(*m_pStore, headerHandle, sizeof(m_header))) {
        throwOpenException(ClassFile, __LINE__, "The string map's header lies outside the file.");
    }
    m_pStore->getBlock(headerHandle, reinterpret_cast<char*>(&m_header), sizeof(m_header));
    if (m_header.stringBlockSize <= WdbStringBlock::HeaderSize ||
        m_header.stringBlockSize > LargestBlock ||
        !mayFollowHandle(*m_pStore, m_header.stringBlockFileOffset, sizeof(long long))) {
        throwOpenException(ClassFile, __LINE__, "The string map's header is damaged.");
    }
}

long long WdbStringMapDatabase::lastStoredId() const {
    const List::Node& node = m_list->getCurrentNode();
    if (node.m_count == 0) return 0;
    const List::Node::Entry last = node.entry(node.m_count - 1);
    return static_cast<long long>(static_cast<unsigned long long>(last.secondHandle) +
                                  last.secondSize - 1);
}

}  // namespace Korvel
