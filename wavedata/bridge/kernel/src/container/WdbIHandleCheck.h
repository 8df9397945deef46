#pragma once

namespace Korvel {

class WdbIBlockManager;

/// Tells handles that may be followed from those that a damaged file merely claims.
///
/// A store of blocks in a file implements it, because a read beyond the file's end would end the
/// process. In such a store a later block has a larger handle, so a chain of blocks that goes
/// backwards is damaged, and a walk that refuses to go back is finite.
class WdbIHandleCheck {
public:
    virtual ~WdbIHandleCheck() = default;

    /// Whether @p size bytes at @p handle lie in the store, behind the file's header. A file that
    /// another process is still writing may hold them later.
    virtual bool mayFollow(long long handle, unsigned long long size) const = 0;

    /// The check of @p store; null where every handle comes from the process itself.
    static const WdbIHandleCheck* of(const WdbIBlockManager& store);
};

/// Whether @p size bytes at @p handle can be read from @p store. Handle 0 never can.
bool mayFollowHandle(const WdbIBlockManager& store, long long handle, unsigned long long size);

}  // namespace Korvel
