#include "events/WdbIEventBlockDatabase.h"

#include "container/WdbFileManager.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbIEventBlockDatabase";

}  // namespace

const char WdbIEventBlockDatabase::SectionID[] = "WDB.Event";

long long WdbIEventBlockDatabase::createEventSection(int typeId, unsigned int numberOfBuckets,
                                                     unsigned long numberOfAddresses,
                                                     unsigned int addressesPerBucket,
                                                     WdbFileManager& fileManager) {
    if (typeId == WdbEventBlockDatabaseFactory::SingleBucket && numberOfBuckets == 0) {
        throwOpenException(ClassFile, __LINE__,
                           "A single-bucket event section needs a slot for its one list.");
    }
    WdbFileBlockManager& store = fileManager.getBlockManager();
    const boost::unique_lock<boost::recursive_mutex> lock(store.getMutex());
    const std::vector<long long> bucketTable(numberOfBuckets);
    WdbEventDatabaseHeader header;
    header.databaseTypeId = typeId;
    header.numberOfBuckets = numberOfBuckets;
    header.addressesPerBucket = addressesPerBucket;
    header.numberOfAddresses = numberOfAddresses;
    header.bucketTableOffset = store.addBlock(reinterpret_cast<const char*>(bucketTable.data()),
                                              bucketTable.size() * sizeof(long long));
    const long long headerOffset =
        store.addBlock(reinterpret_cast<const char*>(&header), sizeof(header));
    fileManager.addNewSection(SectionID, SectionVersion, headerOffset, sizeof(header));
    return headerOffset;
}

}  // namespace Korvel
