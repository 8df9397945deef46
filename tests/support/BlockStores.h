#pragma once

#include <fstream>
#include <memory>
#include <set>
#include <string>

#include "container/WdbFileBlockManager.h"
#include "container/WdbMemoryBlockManager.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {

// A memory store whose blocks end with it.
class OwningMemoryStore : public WdbMemoryBlockManager {
public:
    ~OwningMemoryStore() override {
        for (const long long handle : m_handles)
            WdbMemoryBlockManager::freeBlock(handle, 0);
    }
    long long addBlock(const char* data, unsigned long long size) override {
        return *m_handles.insert(WdbMemoryBlockManager::addBlock(data, size)).first;
    }

private:
    std::set<long long> m_handles;
};

// A store over a file of its own, which begins with the room of a file header as a container does.
template <typename Store, std::size_t... CacheCapacity>
struct FileStore {
    explicit FileStore(std::ios::openmode mode = std::ios::in | std::ios::out) {
        std::ofstream(path, std::ios::binary) << std::string(64, '\0');
        stream.open(path, mode | std::ios::binary);
        stream.exceptions(std::ios::badbit | std::ios::failbit);
        owner = std::make_unique<Store>(stream, CacheCapacity...);
    }
    Store& store() { return *owner; }

    TemporaryDirectory directory;
    const std::string path = directory.file("blocks");
    std::fstream stream;
    std::unique_ptr<Store> owner;
};

}  // namespace Korvel
