#pragma once

namespace Korvel {

class WdbFileManager;
class WdbIEventBlockDatabase;

/// Makes the event database that a section's header names.
class WdbEventBlockDatabaseFactory {
public:
    static constexpr int SingleBucket = 1000;    // one list for all addresses
    static constexpr int MultipleBucket = 1001;  // one list a bucket of addresses
    static constexpr int MultipleBtree = 1002;   // one tree a bucket of addresses

    static WdbEventBlockDatabaseFactory& getInstance();

    /// A new database, owned by the caller; null for a type that there is no implementation of.
    WdbIEventBlockDatabase* create(int typeId, WdbFileManager& fileManager) const;

private:
    WdbEventBlockDatabaseFactory() = default;
};

}  // namespace Korvel
