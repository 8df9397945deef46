#include "container/WdbIHandleCheck.h"

#include "container/WdbIBlockManager.h"

namespace Korvel {

const WdbIHandleCheck* WdbIHandleCheck::of(const WdbIBlockManager& store) {
    return dynamic_cast<const WdbIHandleCheck*>(&store);
}

bool mayFollowHandle(const WdbIBlockManager& store, long long handle, unsigned long long size) {
    if (handle == 0) return false;
    const WdbIHandleCheck* check = WdbIHandleCheck::of(store);
    return check == nullptr || check->mayFollow(handle, size);
}

}  // namespace Korvel
