#pragma once

#include <boost/shared_ptr.hpp>

namespace Korvel {

/// Value bytes of consecutive addresses, owned by the iterator that gave them.
struct WdbEventValue {
    const unsigned char* bytes = nullptr;
    unsigned int length = 0;
};

/// What can look up events without a scan. The list databases have none.
class WdbIEventSource {
public:
    /// Goes through the values of one address in the order of their times.
    class Iterator {
    public:
        virtual ~Iterator() = default;

        virtual bool isEof() const = 0;
        virtual void operator++() = 0;

        /// The value, and those of the following addresses as far as the same event changed them.
        /// Lives until the next step; empty at the end.
        virtual WdbEventValue operator*() const = 0;

        /// When the value was written.
        virtual long long getTime() const = 0;

        /// When the next one was written; -1 for the last one, 0 at the end.
        virtual long long getEndTime() const = 0;
    };
    using IteratorPtr = boost::shared_ptr<Iterator>;

    virtual ~WdbIEventSource() = default;

    virtual long long getLatestTime() const = 0;

    /// From when on events may still change.
    virtual long long getFirstDirtyTime() const = 0;

    virtual IteratorPtr find(long long, long long, long long, long long) const = 0;

    /// The values of @p address, from the one in effect at @p time on; from the first one where
    /// there is none yet. Never null. Throws std::out_of_range for an address that has no bucket.
    virtual IteratorPtr findEventBlock(long long address, long long time) const = 0;
};

}  // namespace Korvel
