#include "events/WdbEventBlockDatabaseFactory.h"

#include "events/WdbMultipleBucketBtreeDatabase.h"
#include "events/WdbMultipleBucketEventDatabase.h"
#include "events/WdbSingleBucketEventDatabase.h"

namespace Korvel {

WdbEventBlockDatabaseFactory& WdbEventBlockDatabaseFactory::getInstance() {
    static WdbEventBlockDatabaseFactory instance;
    return instance;
}

WdbIEventBlockDatabase* WdbEventBlockDatabaseFactory::create(int typeId,
                                                             WdbFileManager& fileManager) const {
    switch (typeId) {
        case SingleBucket:
            return new WdbSingleBucketEventDatabase(fileManager, typeId);
        case MultipleBucket:
            return new WdbMultipleBucketEventDatabase(fileManager, typeId);
        case MultipleBtree:
            return new WdbMultipleBucketBtreeDatabase(fileManager, typeId);
        default:
            return nullptr;
    }
}

}  // namespace Korvel
