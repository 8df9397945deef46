#pragma once

#include <vector>

namespace Korvel {

/// Takes an object that must not be destroyed, because its destructor would write to a file that
/// belongs to another process, and keeps it where a look for lost memory finds it.
template <typename T>
void keepForever(T* object) {
    static std::vector<T*>* const kept = new std::vector<T*>;
    kept->push_back(object);
}

}  // namespace Korvel
