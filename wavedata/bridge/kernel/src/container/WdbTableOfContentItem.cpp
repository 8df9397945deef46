#include "container/WdbTableOfContentItem.h"

#include <cstring>

#include "container/WdbFileHeader.h"

namespace Korvel {

static_assert(WdbTableOfContentItem::SectionIdSize == WdbFileHeader::TextSize);

void WdbTableOfContentItem::clear() {
    std::memset(m_sectionID, 0, sizeof(m_sectionID));
    m_version = 0;
    m_offset = 0;
    m_size = 0;
}

void WdbTableOfContentItem::setSectionID(const std::string& id) {
    fillTextField(m_sectionID, id);
}

std::string WdbTableOfContentItem::getSectionID() const {
    return textOfField(m_sectionID);
}

bool WdbTableOfContentItem::isSectionAndVersionMatched(const std::string& id,
                                                       unsigned int version) const {
    char wanted[SectionIdSize];
    fillTextField(wanted, id);
    return std::memcmp(m_sectionID, wanted, SectionIdSize) == 0 && m_version == version;
}

long long WdbTableOfContentItem::addBlock(WdbIBlockManager& store, unsigned int& size) const {
    size = sizeof(*this);
    return store.addBlock(reinterpret_cast<const char*>(this), size);
}

void WdbTableOfContentItem::loadBlock(long long offset, unsigned int,
                                      const WdbIBlockManager& store) {
    store.getBlock(offset, reinterpret_cast<char*>(this), sizeof(*this));
}

}  // namespace Korvel
