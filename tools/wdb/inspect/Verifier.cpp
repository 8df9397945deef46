#include "inspect/Verifier.h"

#include "events/WdbIEventBlockDatabase.h"
#include "inspect/OpenRecording.h"

#include <algorithm>
#include <array>
#include <optional>

namespace Korvel {

namespace {

class Verifier {
public:
    Verifier(Inspection& inspection, const std::function<void(double)>& progress)
        : m_inspection(inspection), m_progress(progress) {}

    VerifySummary verify();

private:
    // One a section that this build knows. The first of its name is what readers see; another one
    // is only bytes.
    struct Kind {
        const char* id;
        unsigned int version;
        void (Verifier::*check)(const SectionEntry& section);
    };
    static const std::array<Kind, 4> s_kinds;

    void checkSection(const StoredContents& contents, const SectionEntry& section);
    void checkEvents(const SectionEntry& section);
    void checkBucket(const UsedBucket& bucket);
    void checkStrings(const SectionEntry& section);
    void checkDescription(const SectionEntry& section);
    void checkBytes(const SectionEntry& section);
    void checkAgainstEachOther();
    void checkGaps();
    void showProgress();

    Inspection& m_inspection;
    const std::function<void(double)>& m_progress;
    VerifySummary m_summary;
    std::optional<StoredEvents> m_events;
    std::optional<DesignDescription> m_description;
    Place m_descriptionPlace;
    std::optional<std::int64_t> m_latestTime;  // of all events
    unsigned int m_blocksSinceProgress = 0;
};

const std::array<Verifier::Kind, 4> Verifier::s_kinds{
    {{WdbIEventBlockDatabase::SectionID, WdbIEventBlockDatabase::SectionVersion,
      &Verifier::checkEvents},
     {WdbStringMapDatabase::SectionID, WdbStringMapDatabase::SectionVersion,
      &Verifier::checkStrings},
     {DescriptionSection, EmbeddedSectionVersion, &Verifier::checkDescription},
     {TypeInformationSection, EmbeddedSectionVersion, &Verifier::checkBytes}}};

VerifySummary Verifier::verify() {
    const auto contents = readContents(m_inspection);
    if (!contents) return m_summary;
    m_summary.sections = contents->sections.size();
    for (const SectionEntry& section : contents->sections)
        checkSection(*contents, section);
    if (!contents->find(WdbIEventBlockDatabase::SectionID,
                        WdbIEventBlockDatabase::SectionVersion)) {
        m_inspection.warning({.part = WdbIEventBlockDatabase::SectionID},
                             "there is no such section: the recording ended before it began");
    }
    checkAgainstEachOther();
    checkGaps();
    return m_summary;
}

void Verifier::checkSection(const StoredContents& contents, const SectionEntry& section) {
    for (const Kind& kind : s_kinds) {
        if (!section.is(kind.id, kind.version)) continue;
        const bool isFirst = contents.find(kind.id, kind.version) == &section;
        (this->*(isFirst ? kind.check : &Verifier::checkBytes))(section);
        return;
    }
    m_inspection.information(section.place, "version {}, {} bytes: not known to this build",
                             section.item.m_version, section.item.m_size);
    checkBytes(section);
}

void Verifier::checkEvents(const SectionEntry& section) {
    m_events = readEvents(m_inspection, section);
    if (!m_events) return;
    for (const UsedBucket& bucket : m_events->buckets)
        checkBucket(bucket);
    // A writer that was killed has not said how far it came; one that is never told does not know.
    if (m_latestTime && *m_latestTime > m_events->header.latestTime) {
        m_inspection.warning(m_events->place,
                             "the latest time is {}, but events reach {}: the recording was not "
                             "closed, or never told of time",
                             m_events->header.latestTime, *m_latestTime);
    }
}

void Verifier::checkBucket(const UsedBucket& bucket) {
    EventBlockCursor blocks(m_inspection, *m_events, bucket);
    while (blocks.next()) {
        ++m_summary.blocks;
        m_summary.events += blocks.eventCount();
        showProgress();
    }
    if (blocks.latestTime() > m_latestTime) m_latestTime = blocks.latestTime();
}

void Verifier::checkStrings(const SectionEntry& section) {
    StoredStrings strings(m_inspection, section);
    strings.checkBlocks();
    m_summary.strings = strings.stringCount();
    showProgress();
}

void Verifier::checkDescription(const SectionEntry& section) {
    m_description = readDescription(m_inspection, section);
    m_descriptionPlace = section.place;
    if (m_description) m_summary.objects = m_description->objectCount();
}

void Verifier::checkBytes(const SectionEntry& section) {
    if (section.item.m_size < 1) return;
    m_inspection.claim(section.place, section.item.m_offset,
                       static_cast<std::uint64_t>(section.item.m_size));
}

void Verifier::checkAgainstEachOther() {
    if (!m_events || !m_description) return;
    const auto addresses = static_cast<std::int64_t>(m_events->header.numberOfAddresses);
    for (ObjectId id = 0; id < m_description->objectCount(); ++id) {
        const ObjectView object = m_description->object(id);
        if (object.address + object.size <= addresses) continue;
        m_inspection.error(m_descriptionPlace,
                           "object {}, {}: addresses {} to {} reach past the {} there are", id,
                           m_description->objectPathWithRange(id), object.address,
                           object.address + object.size - 1, addresses);
    }
}

// Blocks are appended before anything names them, so a writer that was killed leaves some at the
// end; where only part of the lists were brought up to date, some further up too.
void Verifier::checkGaps() {
    if (m_events && !m_events->isTypeKnown) return;
    const std::uint64_t size = m_inspection.bytes().size();
    std::uint64_t gaps = 0;
    std::uint64_t bytes = 0;
    std::uint64_t first = 0;
    m_inspection.claimed().visitGaps(size, [&](std::uint64_t begin, std::uint64_t end) {
        if (end == size) {
            m_inspection.warning({.part = "file", .offset = static_cast<std::int64_t>(begin)},
                                 "nothing refers to the last {} bytes: the unfinished tail of a "
                                 "recording that was not closed",
                                 end - begin);
            return;
        }
        if (gaps == 0) first = begin;
        ++gaps;
        bytes += end - begin;
    });
    if (gaps == 0) return;
    m_inspection.warning({.part = "file", .offset = static_cast<std::int64_t>(first)},
                         "nothing refers to {} bytes in {} places, of which this is the first: "
                         "blocks of a recording that was not closed",
                         bytes, gaps);
}

void Verifier::showProgress() {
    // Asking the clock and the file's size for every block would show.
    constexpr unsigned int BlocksBetween = 64;
    if (!m_progress || ++m_blocksSinceProgress < BlocksBetween) return;
    m_blocksSinceProgress = 0;
    m_progress(static_cast<double>(m_inspection.claimed().total()) /
               static_cast<double>(m_inspection.bytes().size()));
}

}  // namespace

VerifySummary verifyRecording(Inspection& inspection, const std::function<void(double)>& progress) {
    return Verifier(inspection, progress).verify();
}

}  // namespace Korvel
