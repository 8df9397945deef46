#pragma once

namespace Korvel {

/// First block of the section "WDB.Event".
///
///   offset  size  field
///        0     8  latest time          signed, largest time that the recording reached
///        8     4  database type id     signed (WdbEventBlockDatabaseFactory)
///       12     4  number of buckets
///       16     8  addresses a bucket
///       24     8  number of addresses
///       32     8  bucket table         signed file offset of one 8-byte slot a bucket
///       40     8  reserved             zero
///       48     8  address map size     signed, number of 16-byte intervals of traced object ids
///       56     8  address map offset   signed file offset; 0: none
///       64     4  event block size     bytes of a block before compression
///       68     4  node capacity        entries a list or tree node
struct WdbEventDatabaseHeader {
    static constexpr unsigned int EventBlockSize = 10240;
    static constexpr unsigned int NodeCapacity = 100;
    static constexpr unsigned int AddressesPerBucket = 2048;

    long long latestTime = 0;
    int databaseTypeId = 0;
    unsigned int numberOfBuckets = 0;
    unsigned long long addressesPerBucket = AddressesPerBucket;
    unsigned long long numberOfAddresses = 0;
    long long bucketTableOffset = 0;
    long long reserved = 0;
    long long addressMapSize = 0;
    long long addressMapOffset = 0;
    unsigned int eventBlockSize = EventBlockSize;
    unsigned int nodeCapacity = NodeCapacity;
};
static_assert(sizeof(WdbEventDatabaseHeader) == 72);

}  // namespace Korvel
