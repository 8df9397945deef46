#include "inspect/StoredContents.h"

#include "container/WdbNodeChain.h"
#include "inspect/NodeCursor.h"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace Korvel {

namespace {

constexpr unsigned int EntriesPerNode = 10;
constexpr unsigned int NeverCreated = 0xFFFFFFFF;
constexpr const char* HeaderPart = "file header";
constexpr const char* ContentsPart = "table of contents";

Place headerField(std::size_t offset) {
    return {.part = HeaderPart, .offset = static_cast<std::int64_t>(offset)};
}

bool readHeader(Inspection& inspection, WdbFileHeader& header) {
    const Place place{.part = HeaderPart};
    if (!inspection.bytes().holds(0, sizeof(header))) {
        inspection.error(place, "the file of {} bytes is too short for one",
                         inspection.bytes().size());
        return false;
    }
    if (!inspection.takeRecord(place, 0, header)) return false;
    if (!header.isVersionStringMatched()) {
        inspection.error(place, "is not that of a recording of a version that this tool knows");
        return false;
    }
    if (!isZeroFilled(header.m_application)) {
        inspection.error(headerField(offsetof(WdbFileHeader, m_application)),
                         "the application's name is followed by other bytes than zero");
    }
    if (header.m_creationTime == NeverCreated) {
        inspection.warning(headerField(offsetof(WdbFileHeader, m_creationTime)),
                           "there is no creation time");
    }
    if (header.m_reserved != 0) {
        inspection.error(headerField(offsetof(WdbFileHeader, m_reserved)),
                         "reserved bytes are not zero");
    }
    return true;
}

void judgeItem(Inspection& inspection, const Place& place, const WdbTableOfContentItem& item) {
    const std::string id = item.getSectionID();
    const auto isPrintable = [](char c) { return c >= ' ' && c <= '~'; };
    if (id.empty() || !std::all_of(id.begin(), id.end(), isPrintable)) {
        inspection.error(place, "the section's name is not one");
    }
    if (!isZeroFilled(item.m_sectionID)) {
        inspection.error(place, "the section's name is followed by other bytes than zero");
    }
    if (item.m_version > UINT_MAX) {
        inspection.error(place, "version {} has more than 32 bits", item.m_version);
    }
    if (item.m_size < 1) inspection.error(place, "a section of {} bytes", item.m_size);
}

void readItems(Inspection& inspection, StoredContents& contents) {
    NodeCursor<WdbBlockListNode<EntriesPerNode>> cursor(inspection, {.part = ContentsPart},
                                                        contents.header.m_contentsHead);
    while (cursor.next()) {
        const auto entry = cursor.entry();
        Place place = cursor.place();
        place.block = entry.handle;
        SectionEntry section;
        if (entry.size != sizeof(section.item)) {
            inspection.error(place, "an item of {} bytes instead of {}", entry.size,
                             sizeof(section.item));
        }
        if (!inspection.takeRecord(place, entry.handle, section.item)) continue;
        judgeItem(inspection, place, section.item);
        const std::string id = section.item.getSectionID();
        if (contents.find(id.c_str(), static_cast<unsigned int>(section.item.m_version))) {
            inspection.warning(place, "section '{}' is there twice; readers find the first", id);
        }
        section.place = {.part = id, .offset = section.item.m_offset};
        contents.sections.push_back(section);
    }
}

}  // namespace

const SectionEntry* StoredContents::find(const char* id, unsigned int version) const {
    const auto found =
        std::find_if(sections.begin(), sections.end(),
                     [&](const SectionEntry& section) { return section.is(id, version); });
    return found == sections.end() ? nullptr : &*found;
}

std::optional<StoredContents> readContents(Inspection& inspection) {
    StoredContents contents;
    if (!readHeader(inspection, contents.header)) return std::nullopt;
    if (contents.header.m_contentsHead == 0) {
        inspection.error(headerField(offsetof(WdbFileHeader, m_contentsHead)),
                         "there is no table of contents: the recording ended while it was made");
    }
    readItems(inspection, contents);
    return contents;
}

bool isZeroFilled(const char (&field)[WdbFileHeader::TextSize]) {
    const char* end = field + WdbFileHeader::TextSize;
    return std::all_of(std::find(field, end, '\0'), end, [](char c) { return c == '\0'; });
}

}  // namespace Korvel
