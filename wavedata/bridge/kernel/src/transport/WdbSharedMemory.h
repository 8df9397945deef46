#pragma once

#include <string>

#include <sys/types.h>

namespace Korvel {

/// The shared-memory object of a ring, mapped.
///
/// The object is named after a directory, so that a simulator and a viewer that reach the same
/// directory by different paths meet. A failing system call is reported on standard error and
/// leaves the address null.
///
/// Each side holds a lock on the object for as long as its process lives, so that the other one can
/// tell whether it is still there. The object's bytes know nothing of that.
class WdbSharedMemory {
public:
    static constexpr int Open = 0;  ///< maps the object that the simulator made: the viewer's side
    static constexpr int Create = 1;  ///< makes the object, in place of one that is there

    /// What a directory's object says of the two sides without being mapped.
    struct Presence {
        bool isThere = false;
        bool isDenied = false;  ///< one is there, but another user's
        bool hasSimulator = false;
        bool hasViewer = false;
    };

    /// @param create  Any value but these two maps nothing.
    /// @param size    Bytes of the ring. The object is 8 bytes longer.
    WdbSharedMemory(int create, int size, const std::string& directory, int index);
    ~WdbSharedMemory();
    WdbSharedMemory(const WdbSharedMemory&) = delete;
    WdbSharedMemory& operator=(const WdbSharedMemory&) = delete;

    /// Null where nothing is mapped.
    char* getAddress() const { return m_address; }
    const std::string& getName() const { return m_name; }

    /// Map an object of @p size bytes in place of the one that is mapped, and return the address or
    /// null.
    char* createSharedMemory(int size, const std::string& name, int index);
    char* getSharedMemory(int size, const std::string& name, int index);

    /// Makes an object as createSharedMemory() does, but not in place of one that is there: then
    /// nothing is mapped, and nothing is said.
    char* createUnlessThere(int size, const std::string& directory);

    /// Also takes the object's name away, unless it names another one by now.
    void closeMem();

    /// Whether the object was refused because another viewer has it.
    bool isTaken() const { return m_isTaken; }

    /// False in a child of the process that mapped it, which must leave it alone.
    bool isOfThisProcess() const;

    /// Whether the other side is attached now.
    bool isOtherSideThere() const;

    /// Whether the other side was attached, as far as is known, and is not any more.
    bool hasOtherSideLeft() const;

    /// Whether the mapped object has a name, so that others can open it. False where nothing is
    /// mapped.
    bool isNamed() const;

    /// Looks without a word; nothing is there where the directory is not.
    static Presence look(const std::string& directory);

private:
    const char* makeObject(int size);
    bool mapObject(int size);
    void takeNameAway();
    bool reserve(int size);
    bool awaitSize(int size);
    char* fail(const char* call);

    char* m_address = nullptr;
    int m_file = -1;
    std::string m_name;
    int m_mappedSize = 0;
    bool m_isSimulator = false;
    pid_t m_processID;  // of the process that mapped it
    bool m_isTaken = false;
};

/// Name of the object that belongs to @p directory; empty, and reported, where that cannot be found
/// out.
std::string createName(const std::string& directory);

}  // namespace Korvel
