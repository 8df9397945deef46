#include "inspect/Finding.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

namespace Korvel {

std::string toString(const Place& place) {
    std::string text = place.part;
    const auto append = [&text](const char* what, std::int64_t where) {
        if (where >= 0) fmt::format_to(std::back_inserter(text), ", {} {}", what, where);
    };
    append("bucket", place.bucket);
    append("node at", place.node);
    append("entry", place.entry);
    append("block at", place.block);
    append("event", place.event);
    append("offset", place.offset);
    return text;
}

const char* toString(Severity severity) {
    switch (severity) {
        case Severity::Information:
            return "INFO";
        case Severity::Warning:
            return "WARNING";
        case Severity::Error:
            break;
    }
    return "ERROR";
}

void FindingList::add(Finding finding) {
    ++m_counts[static_cast<int>(finding.severity)];
    if (m_findings.size() < m_kept) m_findings.push_back(std::move(finding));
}

}  // namespace Korvel
