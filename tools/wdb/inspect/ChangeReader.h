#pragma once

#include "inspect/OpenRecording.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Korvel {

/// Puts the changes of some objects together from the events of all their buckets, in time order.
///
/// An event may hold part of an object, or several objects; several events of one time leave the
/// last value. What the recording has no value for yet is unknown: X in a 4-state value, U in an
/// enumeration.
class ChangeReader {
public:
    /// One change. The bytes, as many as the object has, live until the visitor returns.
    using Visitor =
        std::function<bool(std::int64_t time, const ObjectView& object, const std::uint8_t* bytes)>;

    /// @param objects  Without repetition.
    /// Throws ToolError when their values do not fit into memory.
    ChangeReader(OpenRecording& recording, const DesignDescription& description,
                 const std::vector<ObjectId>& objects);

    /// Calls visit for each change in the closed range [from, to] until it answers false: by time,
    /// then in the order of the objects. Once.
    void read(std::int64_t from, std::int64_t to, const Visitor& visit);

private:
    struct Tracked {
        ObjectView object;
        std::size_t value = 0;   // where its bytes are
        bool isTouched = false;  // since the last time that was shown
        bool isShown = false;    // a value is known
    };
    // A bucket's next event.
    struct Source {
        std::unique_ptr<EventBlockCursor> blocks;
        unsigned int bucket = 0;
        std::size_t index = 0;  // in the current block
        std::int64_t time = 0;
    };

    void track(const DesignDescription& description, const std::vector<ObjectId>& objects);
    void openSources(const StoredEvents& events);
    bool isWanted(std::int64_t begin, std::int64_t end);
    bool advance(Source& source);
    void apply(const WdbEvent& event);
    bool show(std::int64_t time, std::int64_t from, const Visitor& visit);

    static constexpr std::uint32_t NotTracked = 0xFFFFFFFFU;

    OpenRecording& m_recording;
    const DesignDescription& m_description;
    std::vector<Tracked> m_tracked;
    std::vector<std::uint32_t> m_indexOf;  // by object id: in m_tracked, or NotTracked
    std::vector<std::uint8_t> m_now;       // values as the events left them
    std::vector<std::uint8_t> m_shown;     // values as they were before the current time
    std::vector<std::uint32_t> m_touched;  // indexes of the objects touched at the current time
    std::vector<Source> m_sources;         // a heap, earliest event first
    std::vector<ObjectId> m_found;         // scratch of one event
};

}  // namespace Korvel
