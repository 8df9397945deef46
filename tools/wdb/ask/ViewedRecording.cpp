#include "ask/ViewedRecording.h"

#include "Interrupt.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "korvel/WdbEventReaderFactory.h"
#include "veld/OpenException.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <system_error>

namespace Korvel {

namespace {

// Whether the text fails as a time only because its number is too large.
bool isTooLargeTime(const std::string& text, const std::optional<TimeUnit>& unit) {
    const auto isOfNumber = [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.';
    };
    const auto end = std::find_if_not(text.begin(), text.end(), isOfNumber);
    // A fraction of the base unit is no time, however small.
    const auto points = std::count(text.begin(), end, '.');
    const bool isNumber = points <= (end == text.end() ? 0 : 1) && end != text.begin();
    return isNumber && parseTime("1" + std::string(end, text.end()), unit).has_value();
}

}  // namespace

ParsedTime parseTimeArgument(const std::string& file, const std::string& text,
                             const std::optional<TimeUnit>& unit) {
    if (auto time = parseTime(text, unit)) {
        if (time->units >= 0) return *time;
        throw ToolError(file, fmt::format("the time '{}' is negative", text));
    }
    if (isTooLargeTime(text, unit)) return {std::numeric_limits<std::int64_t>::max(), true};
    throw ToolError(file,
                    fmt::format("'{}' is no time{}", text,
                                unit ? "" : " (the time unit is not known: give a plain number)"));
}

void sayUndescribed(const std::string& file, const std::string& reason) {
    fmt::print(stderr, "wdb: {}: objects have no names, only addresses: {}\n", file, reason);
}

ViewedRecording::ViewedRecording(const std::string& file)
    : m_file(file),
      m_reader(WdbEventReaderFactory::getInstance().create(WdbEventReaderFactory::STATIC_READER)) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (std::filesystem::is_fifo(status) || std::filesystem::is_socket(status)) {
        throw ToolError(file, "is no ordinary file");  // and would keep us waiting
    }
    try {
        m_reader->createReader("", file, 0, "");
    } catch (const Veld::OpenException& failure) {
        throw ToolError(file, failure.what());
    }
    readDescription();
}

void ViewedRecording::readDescription() {
    long long size = 0;
    std::string fault = "there is no description of the design";
    m_descriptionBytes.reset(m_reader->getDbg(&size));
    if (m_descriptionBytes && size > 0) {
        m_description = DesignDescription::viewing(m_descriptionBytes.get(),
                                                   static_cast<std::size_t>(size), &fault);
    }
    if (!m_description) sayUndescribed(m_file, fault);
}

std::optional<TimeUnit> ViewedRecording::timeUnit() const {
    if (!m_description) return std::nullopt;
    return m_description->timeUnit();
}

// No stored text is empty: a reader that finds none must not be asked for four thousand million
// further pieces.
StringLookup ViewedRecording::strings() const {
    return [this](std::uint32_t id) -> std::optional<std::string> {
        std::string text = m_reader->getStringMapValue(id);
        if (text.empty()) return std::nullopt;
        return text;
    };
}

std::vector<WdbScalarBTree*> ViewedRecording::makeTrees(
    const std::vector<WdbScalar>& scalars) const {
    ProgressBar bar("index");
    const auto progress = [&bar](double fraction) {
        bar.update(fraction);
        return !Interrupt::isRequested();
    };
    try {
        auto trees = m_reader->getBTreeManager().getBTrees(scalars, progress);
        if (trees.size() == scalars.size()) return trees;
    } catch (const Veld::OpenException& error) {
        throw ToolError(m_file, error.what());
    }
    throw ToolExit{ExitInterrupted};
}

void ViewedRecording::throwIfDamaged() const {
    if (!m_reader->getBTreeManager().hasMetDamage()) return;
    throw ToolError(m_file,
                    "damaged: changes are missing, values may be too old; 'wdb verify' says where");
}

TimeRange timeRange(const ViewedRecording& recording, const std::string& from,
                    const std::string& to) {
    TimeRange range{0, recording.latestTime()};
    ParsedTime first;
    if (!from.empty()) first = recording.parseTime(from);
    if (!to.empty()) {
        range.to = recording.parseTime(to).units;
        if (first.units > range.to) {
            throw ToolError(recording.file(),
                            fmt::format("the range ends at {}, before it begins at {}", to, from));
        }
    }
    range.from = to.empty() ? first.roundedUp() : std::min<long long>(first.roundedUp(), range.to);
    range.to = std::max(range.to, range.from);
    return range;
}

}  // namespace Korvel
