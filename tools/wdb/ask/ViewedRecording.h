#pragma once

#include "description/DesignDescription.h"
#include "description/ValueText.h"
#include "inspect/TimeText.h"
#include "korvel/WdbAddressBTreeManager.h"
#include "korvel/WdbIEventReader.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {

/// A time as the command line gives it: "120ns", or a plain number of units. Times beyond 64 bits
/// become the largest. Throws ToolError for anything else, negative times included.
/// @param file  What errors name.
ParsedTime parseTimeArgument(const std::string& file, const std::string& text,
                             const std::optional<TimeUnit>& unit);

/// Objects have no names, only addresses: says why in one line on standard error.
void sayUndescribed(const std::string& file, const std::string& reason);

/// A recording as a viewer sees it: through a reader that the library exports.
class ViewedRecording {
public:
    /// A finished one. Throws ToolError when the file cannot be opened. Says so in one line on
    /// standard error where the design is not described, because objects have no names then.
    explicit ViewedRecording(const std::string& file);

    /// One that @p reader, which is open, makes of a running simulation.
    ViewedRecording(const std::string& file, std::unique_ptr<WdbIEventReader> reader,
                    std::optional<DesignDescription> description)
        : m_file(file), m_reader(std::move(reader)), m_description(std::move(description)) {}

    const std::string& file() const { return m_file; }
    WdbIEventReader& reader() const { return *m_reader; }

    /// Null when the recording has none that can be read.
    const DesignDescription* description() const {
        return m_description ? &*m_description : nullptr;
    }
    /// Nothing where the design is not described.
    std::optional<TimeUnit> timeUnit() const;
    long long latestTime() const { return m_reader->getLatestTime(); }

    /// The texts that values of strings refer to.
    StringLookup strings() const;

    ParsedTime parseTime(const std::string& text) const {
        return parseTimeArgument(m_file, text, timeUnit());
    }
    std::string formatTime(long long time) const { return Korvel::formatTime(time, timeUnit()); }

    /// The indexes of scalars, made with a progress bar. Asking for all at once costs one scan.
    /// Throws ToolExit where an Interrupt that the caller keeps is requested meanwhile.
    std::vector<WdbScalarBTree*> makeTrees(const std::vector<WdbScalar>& scalars) const;

    /// Throws ToolError where what was asked of the recording met a part that cannot be read. To be
    /// called last: what could be read is the answer all the same.
    void throwIfDamaged() const;

private:
    struct Free {
        void operator()(unsigned char* bytes) const { std::free(bytes); }
    };

    void readDescription();

    std::string m_file;
    std::unique_ptr<WdbIEventReader> m_reader;
    std::unique_ptr<unsigned char, Free> m_descriptionBytes;  // what m_description views
    std::optional<DesignDescription> m_description;
};

/// The part of a recording's time that a verb is asked about.
struct TimeRange {
    long long from = 0;
    long long to = 0;
};

/// The range that two options give; an empty text means the begin, or the end, of the recording.
/// Throws ToolError where it ends before it begins.
TimeRange timeRange(const ViewedRecording& recording, const std::string& from,
                    const std::string& to);

}  // namespace Korvel
