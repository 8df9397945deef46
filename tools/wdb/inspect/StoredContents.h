#pragma once

#include "container/WdbFileHeader.h"
#include "container/WdbTableOfContentItem.h"
#include "inspect/Inspection.h"

#include <optional>
#include <string>
#include <vector>

namespace Korvel {

/// One section as the table of contents has it.
struct SectionEntry {
    WdbTableOfContentItem item;
    Place place;  ///< its id as the part, and where it begins

    bool is(const char* id, unsigned int version) const {
        return item.isSectionAndVersionMatched(id, version);
    }
};

/// The outermost layer of a recording, as stored.
struct StoredContents {
    WdbFileHeader header;
    std::vector<SectionEntry> sections;  ///< in file order

    /// The first one, which is the one that readers find. Null when there is none.
    const SectionEntry* find(const char* id, unsigned int version) const;
};

/// Reads and judges the file header and the table of contents. Nothing, with a finding, when the
/// bytes are no recording at all.
std::optional<StoredContents> readContents(Inspection& inspection);

/// Whether the bytes behind a field's terminator are zero.
bool isZeroFilled(const char (&field)[WdbFileHeader::TextSize]);

}  // namespace Korvel
