#pragma once

namespace Korvel {

class WdbEventBlock;

/// Goes through the stored blocks of one list or tree, first to last.
class WdbIEventBlockIterator {
public:
    virtual ~WdbIEventBlockIterator() = default;

    virtual bool isEof() const = 0;
    virtual operator bool() const = 0;
    virtual WdbIEventBlockIterator& operator++() = 0;

    /// Loads the current block, and sets the base address that its addresses count from.
    virtual void getEventBlock(WdbEventBlock& block) const = 0;
};

}  // namespace Korvel
