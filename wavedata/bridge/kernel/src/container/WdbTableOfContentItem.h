#pragma once

#include <string>

#include "container/WdbIBlockManager.h"

namespace Korvel {

/// One section of a recording, as its table of contents keeps it.
///
///   offset  size  field
///        0    24  section identifier  ASCII, zero-filled, no terminator when 24 long
///       24     8  section version     32 bits, upper half zero
///       32     8  file offset         signed, the section's first byte
///       40     8  size                signed, bytes
struct WdbTableOfContentItem {
    static constexpr unsigned int SectionIdSize = 24;

    WdbTableOfContentItem() { clear(); }

    void clear();

    /// Keeps at most 24 characters.
    void setSectionID(const std::string& id);
    std::string getSectionID() const;

    /// Compares as much of @p id as a field holds, so a longer identifier matches its beginning.
    bool isSectionAndVersionMatched(const std::string& id, unsigned int version) const;

    /// Stores the item as a block of its own.
    long long addBlock(WdbIBlockManager& store, unsigned int& size) const;
    void loadBlock(long long offset, unsigned int size, const WdbIBlockManager& store);

    char m_sectionID[SectionIdSize];
    unsigned long long m_version;
    long long m_offset;
    long long m_size;
};
static_assert(sizeof(WdbTableOfContentItem) == 48);

}  // namespace Korvel
