#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Korvel {

/// Where in a recording something is. -1 stands for what does not apply.
struct Place {
    std::string part;          ///< "file header", "table of contents" or a section's name
    std::int64_t bucket = -1;  ///< index
    std::int64_t node = -1;    ///< file offset of a list node
    std::int64_t entry = -1;   ///< index in that node
    std::int64_t block = -1;   ///< file offset of a stored block
    std::int64_t event = -1;   ///< index in that block
    std::int64_t offset = -1;  ///< file offset of anything else
};

/// "WDB.Event, bucket 0, node at 3344, entry 2, block at 9120, event 17".
std::string toString(const Place& place);

enum class Severity {
    Information,  ///< nothing wrong
    Warning,      ///< legal but worth knowing: what a killed or a careless writer leaves
    Error         ///< no writer leaves this: the file is damaged
};

/// "ERROR", "WARNING" or "INFO".
const char* toString(Severity severity);

struct Finding {
    Severity severity = Severity::Error;
    Place place;
    std::string text;
};

/// Takes what is found as it is found.
class FindingSink {
public:
    virtual ~FindingSink() = default;
    virtual void add(Finding finding) = 0;
};

/// Counts findings and keeps the first ones. A damaged file can give more than memory holds.
class FindingList final : public FindingSink {
public:
    explicit FindingList(std::size_t kept) : m_kept(kept) {}

    void add(Finding finding) override;

    std::uint64_t count(Severity severity) const { return m_counts[static_cast<int>(severity)]; }
    const std::vector<Finding>& findings() const { return m_findings; }

private:
    std::size_t m_kept;
    std::uint64_t m_counts[3] = {};  // by severity, the dropped ones too
    std::vector<Finding> m_findings;
};

}  // namespace Korvel
