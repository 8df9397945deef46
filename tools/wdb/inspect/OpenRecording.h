#pragma once

#include "description/DesignDescription.h"
#include "description/ValueText.h"
#include "inspect/StoredContents.h"
#include "inspect/StoredEvents.h"
#include "inspect/StoredStrings.h"

#include <optional>
#include <string>

namespace Korvel {

/// Section that holds the design description.
constexpr const char* DescriptionSection = "Pellon DBG";
/// Section that holds the compiler's type information, which only the compiler reads.
constexpr const char* TypeInformationSection = "Pellon RTTI";
constexpr unsigned int EmbeddedSectionVersion = 1;

/// Reads the design description that a section holds. Nothing, with a finding, when it is none: a
/// warning when the section holds something else, an error when the description is damaged.
std::optional<DesignDescription> readDescription(Inspection& inspection,
                                                 const SectionEntry& section);

/// A recording as the verbs show it: all that can be read, whatever else is damaged.
class OpenRecording {
public:
    /// Opens the file and reads its header, its table of contents and the event section's header
    /// and bucket table. Throws ToolError when it is no recording.
    explicit OpenRecording(const std::string& path);

    const std::string& path() const { return m_path; }
    Inspection& inspection() { return m_inspection; }
    const StoredContents& contents() const { return m_contents; }
    const std::optional<StoredEvents>& events() const { return m_events; }

    /// Null when the recording has none that can be read. Read when first asked for.
    const DesignDescription* description();
    std::optional<TimeUnit> timeUnit();

    /// Null when the recording has none. Read when first asked for.
    StoredStrings* strings();
    StringLookup stringLookup();

    /// Throws ToolError when damage was met since the recording was opened.
    void throwIfDamaged() const;

private:
    const Finding* firstError() const;

    std::string m_path;
    RecordingFileBytes m_bytes;
    FindingList m_findings;
    Inspection m_inspection;
    StoredContents m_contents;
    std::optional<StoredEvents> m_events;
    bool m_isDescriptionRead = false;
    std::optional<DesignDescription> m_description;
    std::optional<StoredStrings> m_strings;
};

}  // namespace Korvel
