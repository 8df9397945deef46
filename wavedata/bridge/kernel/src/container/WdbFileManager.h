#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "container/WdbAppendingBlockList.h"
#include "container/WdbFileBlockManager.h"
#include "container/WdbFileHeader.h"
#include "container/WdbTableOfContentItem.h"

namespace Korvel {

/// A recording's file: a container of named, versioned sections.
///
///   offset  size  what
///        0    64  header (WdbFileHeader)
///       64   136  first node of the table of contents
///      200     -  blocks, in the order they were appended
///
/// Everything behind the header is appended through the block store and never moved. Sections are
/// stored as given. There is no mark of completeness: a file whose writer died lists the sections
/// that were registered so far, and that is what makes it readable.
///
/// Creating and opening throw Veld::OpenException; a failing stream below a block operation ends
/// the process. The lock is the block store's recursive mutex. Writers and readers of one manager
/// must not add sections at the same time.
class WdbFileManager {
public:
    WdbFileManager();
    ~WdbFileManager();
    WdbFileManager(const WdbFileManager&) = delete;
    WdbFileManager& operator=(const WdbFileManager&) = delete;

    /// New empty container; a file that is there is truncated.
    void create(const std::string& path);

    /// Existing container, for reading only.
    void open(const std::string& path);

    /// Throws std::ios_base::failure when the last bytes cannot be written; closed all the same.
    void close();

    /// Lets go of the file without writing to it: it belongs to another process, of which this one
    /// is a fork, and what is buffered here is that one's to write.
    void abandon();

    bool isOpen() const { return m_isOpen; }

    void readHeader();
    void writeHeader();

    /// Names the application of every file that is created from now on, and of the one that is
    /// being written.
    void setApplication(const std::string& name);
    std::string getApplication() const { return m_header.getApplication(); }

    const WdbFileHeader& getHeader() const { return m_header; }

    /// Registers bytes that were already appended. Nothing happens when no file is open.
    void addNewSection(const std::string& id, unsigned int version, long long offset,
                       long long size);

    /// Appends the bytes as a section. Nothing happens when no file is open or @p size is below 1.
    void embedDataInNewSection(const std::string& id, unsigned int version,
                               const unsigned char* data, long long size);

    /// Appends a whole other file as a section. Ends the process when that file cannot be read.
    void embedFileInNewSection(const std::string& id, unsigned int version,
                               const std::string& filePath);

    /// Copies out the first matching item. Throws Veld::OpenException when none matches.
    bool getSection(const std::string& id, unsigned int version, WdbTableOfContentItem& out) const;

    /// The whole section in a buffer that the caller releases with free; null when no entry
    /// matches, its size is below 1 or the file does not hold it.
    /// @param sizeOut  Receives the size; may be null.
    unsigned char* getSectionData(const std::string& id, unsigned int version,
                                  long long* sizeOut) const;

    /// The first @p size bytes of the section in a buffer of that size, which the caller releases
    /// with delete[]; what lies beyond the section is zero. Null when no entry matches, @p size or
    /// the section's size is below 1, or the file does not hold it.
    unsigned char* getSectionData(const std::string& id, unsigned int version,
                                  long long size) const;

    /// Throws Veld::OpenException when no entry matches.
    long long getSectionFileOffset(const std::string& id, unsigned int version) const;

    /// The section's file offset, not its size. Viewers in the field take it for just that;
    /// getSection() tells the size.
    long long getSectionSize(const std::string& id, unsigned int version) const;

    /// All sections in the order they were added.
    std::vector<WdbTableOfContentItem> getSections() const;

    /// For a further store over the file, which holds the block store's mutex while it uses it.
    std::fstream& getStream() { return m_stream; }

    WdbFileBlockManager& getBlockManager() { return m_blockManager; }
    const WdbFileBlockManager& getBlockManager() const { return m_blockManager; }

private:
    using Contents = WdbAppendingBlockList<WdbTableOfContentItem, 10>;

    void discardContents();
    void loadContents();
    bool findSection(const std::string& id, unsigned int version, WdbTableOfContentItem& out) const;
    bool findSectionInFile(const std::string& id, unsigned int version,
                           WdbTableOfContentItem& out) const;
    template <typename Visitor>
    void visitSections(Visitor&& visit) const;

    std::fstream m_stream;  // raises exceptions for the bad and the fail state while in use
    WdbFileBlockManager m_blockManager;
    WdbFileHeader m_header;
    std::string m_application;  // set by the caller; a file that is only read has its own
    std::unique_ptr<Contents> m_contents;  // null while no file is loaded
    bool m_isOpen = false;
    bool m_isWritable = false;  // made by create, not by open
};

}  // namespace Korvel
