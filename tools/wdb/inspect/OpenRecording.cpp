#include "inspect/OpenRecording.h"

#include "ToolError.h"
#include "description/DesignDescriptionWriter.h"
#include "events/WdbIEventBlockDatabase.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace Korvel {

namespace {

constexpr std::size_t KeptFindings = 1000;

// How a design description of ours begins: where its root table is, then the identifier of its
// format.
struct DescriptionStart {
    char root[4];
    char identifier[4];
};
constexpr char DescriptionIdentifier[] = {'T', 'O', 'R', 'Q'};

bool isDescription(const DescriptionStart& start) {
    return std::memcmp(start.identifier, DescriptionIdentifier, sizeof(DescriptionIdentifier)) == 0;
}

}  // namespace

std::optional<DesignDescription> readDescription(Inspection& inspection,
                                                 const SectionEntry& section) {
    const WdbTableOfContentItem& item = section.item;
    if (item.m_size < 1 ||
        !inspection.claim(section.place, item.m_offset, static_cast<std::uint64_t>(item.m_size))) {
        return std::nullopt;
    }
    DescriptionStart start = {};
    const auto size = static_cast<std::size_t>(item.m_size);
    if (!inspection.read(section.place, item.m_offset, &start, std::min(size, sizeof(start)))) {
        return std::nullopt;
    }
    // The section holds whatever the simulator's own compiler left for it.
    if (!isDescription(start)) {
        inspection.warning(section.place,
                           "is no design description of ours: objects are named by address");
        return std::nullopt;
    }
    if (size > DesignDescriptionWriter::MaxBytes) {
        inspection.error(section.place, "{} bytes are too many for a design description",
                         item.m_size);
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(size);
    if (!inspection.read(section.place, item.m_offset, bytes.data(), bytes.size())) {
        return std::nullopt;
    }
    std::string fault;
    auto description = DesignDescription::fromBytes(std::move(bytes), &fault);
    if (!description) inspection.error(section.place, "{}", fault);
    return description;
}

OpenRecording::OpenRecording(const std::string& path)
    : m_path(path), m_bytes(path), m_findings(KeptFindings), m_inspection(m_bytes, m_findings) {
    auto contents = readContents(m_inspection);
    if (!contents) throw ToolError(path, toString(firstError()->place) + ": " + firstError()->text);
    m_contents = std::move(*contents);
    const SectionEntry* section =
        m_contents.find(WdbIEventBlockDatabase::SectionID, WdbIEventBlockDatabase::SectionVersion);
    if (section != nullptr) m_events = readEvents(m_inspection, *section);
}

const DesignDescription* OpenRecording::description() {
    if (!m_isDescriptionRead) {
        m_isDescriptionRead = true;
        const SectionEntry* section = m_contents.find(DescriptionSection, EmbeddedSectionVersion);
        if (section != nullptr) m_description = readDescription(m_inspection, *section);
    }
    return m_description ? &*m_description : nullptr;
}

std::optional<TimeUnit> OpenRecording::timeUnit() {
    if (description() == nullptr) return std::nullopt;
    return m_description->timeUnit();
}

StoredStrings* OpenRecording::strings() {
    if (!m_strings) {
        const SectionEntry* section =
            m_contents.find(WdbStringMapDatabase::SectionID, WdbStringMapDatabase::SectionVersion);
        if (section != nullptr) m_strings.emplace(m_inspection, *section);
    }
    return m_strings ? &*m_strings : nullptr;
}

StringLookup OpenRecording::stringLookup() {
    return [this](std::uint32_t id) -> std::optional<std::string> {
        StoredStrings* stored = strings();
        return stored != nullptr ? stored->text(id) : std::nullopt;
    };
}

void OpenRecording::throwIfDamaged() const {
    const auto errors = m_findings.count(Severity::Error);
    const Finding* first = firstError();
    if (errors == 0) return;
    if (first == nullptr) throw ToolError(m_path, "the recording is damaged");
    throw ToolError(m_path,
                    fmt::format("the recording is damaged, {} fault{}, the first: {}: {}", errors,
                                errors == 1 ? "" : "s", toString(first->place), first->text));
}

const Finding* OpenRecording::firstError() const {
    const auto& all = m_findings.findings();
    const auto found = std::find_if(all.begin(), all.end(), [](const Finding& finding) {
        return finding.severity == Severity::Error;
    });
    return found == all.end() ? nullptr : &*found;
}

}  // namespace Korvel
