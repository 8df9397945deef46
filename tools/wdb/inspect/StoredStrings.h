#pragma once

#include "container/WdbStringMapDatabase.h"
#include "inspect/StoredContents.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvel {

/// The section "WDB.StringMap" as stored. Blocks are unpacked when one of their strings is asked
/// for, the last one is kept.
class StoredStrings {
public:
    /// Reads and judges the section's header and its index; the blocks are not looked at.
    StoredStrings(Inspection& inspection, const SectionEntry& section);

    std::size_t blockCount() const { return m_blocks.size(); }

    /// Number of strings by the index, and bytes that their blocks take in the file.
    std::uint64_t stringCount() const { return m_stringCount; }
    std::uint64_t storedBytes() const { return m_storedBytes; }

    /// Nothing for an id that is not there or whose block cannot be read.
    std::optional<std::string> text(std::uint32_t id);

    /// Unpacks and judges all blocks.
    void checkBlocks();

private:
    using Header = WdbStringMapDatabase::WdbStringMapDatabaseHeader;

    struct Block {
        std::int64_t firstId = 0;
        std::uint32_t count = 0;
        std::uint32_t storedSize = 0;
        std::int64_t offset = 0;
        std::int64_t node = 0;
        std::uint8_t entry = 0;
        bool isDamaged = false;  // and said so
    };

    /// Where the first index node is; 0 when there is none.
    std::int64_t readHeader(const SectionEntry& section);
    void readIndex(std::int64_t firstNode);
    void addBlock(const Place& place, const WdbStringMapDatabase::List::Node::Entry& entry);
    bool load(std::size_t index);
    bool findTexts(const Block& block);
    Place placeOf(const Block& block) const;

    Inspection& m_inspection;
    Place m_place;
    std::vector<std::uint8_t> m_image;  // of the block unpacked last
    std::vector<Block> m_blocks;
    std::uint64_t m_stringCount = 0;
    std::uint64_t m_storedBytes = 0;
    std::optional<std::size_t> m_loaded;  // index of the block whose texts are at hand
    std::vector<std::uint32_t> m_texts;   // where they begin in its image
};

}  // namespace Korvel
