#include "transport/WdbSharedMemory.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include "support/WdbErrorPrint.h"

namespace Korvel {
namespace {

constexpr int MarginSize = 8;  // behind the ring, never touched
constexpr mode_t AccessMode = 0777;
// A side sets its bit when it takes its lock, so that the other one can tell a process that died
// from one that never came, or takes no lock. The bits mean nothing else for an object in memory.
constexpr mode_t SimulatorWasThere = S_ISGID;
constexpr mode_t ViewerWasThere = S_ISVTX;

// How long a viewer waits for an object that has just been made to get its size.
constexpr int SizeAttempts = 100;
constexpr useconds_t SizeInterval = 10'000;

// The byte of the object whose lock tells that a side is there, and the one whose lock is held by
// whoever changes its mode or its name.
enum LockByte : off_t { SimulatorByte = 0, ViewerByte = 1, EntryByte = 2 };

// How long somebody else may take to do so. Long, since it takes two system calls.
constexpr int EntryAttempts = 200;
constexpr useconds_t EntryInterval = 1'000;

// How often an object is made anew because another simulator makes one at the same moment.
constexpr int CreateAttempts = 3;

struct flock lockOf(LockByte byte, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// False where somebody else has it. The lock belongs to the open file: unlike a process's lock it
// is not lost when another descriptor of the same object is closed.
bool takeLock(int file, LockByte byte) {
    struct flock lock = lockOf(byte, F_WRLCK);
    return ::fcntl(file, F_OFD_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

bool isLockedByOther(int file, LockByte byte) {
    struct flock lock = lockOf(byte, F_WRLCK);
    return ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// While one lives, nobody else changes the object's mode or name, so that what a look at them finds
// stays true. Nothing is locked where there is no file.
class EntryLock {
public:
    explicit EntryLock(int file) : m_file(file) {
        for (int i = 0; m_file >= 0 && i < EntryAttempts && !takeLock(m_file, EntryByte); ++i)
            ::usleep(EntryInterval);
    }
    ~EntryLock() {
        struct flock lock = lockOf(EntryByte, F_UNLCK);
        if (m_file >= 0) ::fcntl(m_file, F_OFD_SETLK, &lock);
    }
    EntryLock(const EntryLock&) = delete;
    EntryLock& operator=(const EntryLock&) = delete;

private:
    int m_file;
};

// May be refused where the object is another user's: this side then counts as one without a lock.
void setBit(int file, mode_t bit) {
    constexpr mode_t AllBits = 07777;
    const EntryLock lock(file);
    struct stat status = {};
    if (::fstat(file, &status) != 0) return;
    const int refused = ::fchmod(file, (status.st_mode & AllBits) | bit);
    static_cast<void>(refused);
}

int openObject(const std::string& name) {
    return ::shm_open(name.c_str(), O_RDWR, AccessMode);
}

bool isSameObject(int one, int two) {
    struct stat first = {};
    struct stat second = {};
    return ::fstat(one, &first) == 0 && ::fstat(two, &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string nameOf(const struct stat& directory) {
    return "/" + std::to_string(directory.st_dev) + std::to_string(directory.st_ino);
}

bool statDirectory(const std::string& directory, struct stat& status) {
    boost::system::error_code error;
    const boost::filesystem::path path = boost::filesystem::system_complete(directory, error);
    return ::stat((path.string() + "/").c_str(), &status) == 0;
}

}  // namespace

std::string createName(const std::string& directory) {
    struct stat status = {};
    if (statDirectory(directory, status)) return nameOf(status);
    wdbErrorPrint("stat");
    return {};
}

WdbSharedMemory::WdbSharedMemory(int create, int size, const std::string& directory, int index)
    : m_processID(::getpid()) {
    if (create != Create && create != Open) return;
    const std::string name = createName(directory);
    if (name.empty()) return;
    if (create == Create) {
        createSharedMemory(size + MarginSize, name, index);
    } else {
        getSharedMemory(size + MarginSize, name, index);
    }
}

WdbSharedMemory::~WdbSharedMemory() {
    closeMem();
}

char* WdbSharedMemory::createSharedMemory(int size, const std::string& name, int) {
    closeMem();
    m_name = name;
    m_isSimulator = true;
    const char* failure = nullptr;
    for (int i = 0; i < CreateAttempts; ++i) {
        const int old = openObject(name);
        {
            const EntryLock lock(old);
            ::shm_unlink(name.c_str());
        }
        if (old >= 0) ::close(old);
        failure = makeObject(size);
        if (failure == nullptr) return m_address;
        if (errno != EEXIST) break;
    }
    return fail(failure);
}

char* WdbSharedMemory::createUnlessThere(int size, const std::string& directory) {
    closeMem();
    m_isSimulator = true;
    struct stat status = {};
    if (!statDirectory(directory, status)) return nullptr;
    m_name = nameOf(status);
    return makeObject(size + MarginSize) == nullptr ? m_address : fail(nullptr);
}

// The call that failed, or null.
const char* WdbSharedMemory::makeObject(int size) {
    m_file = ::shm_open(m_name.c_str(), O_RDWR | O_CREAT | O_EXCL, AccessMode);
    if (m_file < 0) return "shm_open";
    takeLock(m_file, SimulatorByte);  // before the object has its size, which is what viewers await
    if (!reserve(size)) return "ftruncate";
    setBit(m_file, SimulatorWasThere);  // last: a change of size takes it away
    return mapObject(size) ? nullptr : "mmap";
}

char* WdbSharedMemory::getSharedMemory(int size, const std::string& name, int) {
    closeMem();
    m_name = name;
    m_isSimulator = false;
    m_file = openObject(name);
    if (m_file < 0) return fail("shm_open");
    if (!takeLock(m_file, ViewerByte)) {
        m_isTaken = true;
        return fail(nullptr);
    }
    setBit(m_file, ViewerWasThere);
    return awaitSize(size) && mapObject(size) ? m_address : fail("mmap");
}

// Takes the memory now: where there is none left, a later access would kill the simulator.
bool WdbSharedMemory::reserve(int size) {
    if (::ftruncate(m_file, size) != 0) return false;
    do {
        errno = ::posix_fallocate(m_file, 0, size);
    } while (errno == EINTR);
    return errno == 0;
}

bool WdbSharedMemory::awaitSize(int size) {
    struct stat status = {};
    for (int i = 0; ::fstat(m_file, &status) == 0; ++i) {
        if (status.st_size >= size) return true;
        if (i == SizeAttempts) {
            errno = ENODATA;
            return false;
        }
        ::usleep(SizeInterval);
    }
    return false;
}

bool WdbSharedMemory::mapObject(int size) {
    void* address = ::mmap(nullptr, static_cast<std::size_t>(size), PROT_READ | PROT_WRITE,
                           MAP_SHARED, m_file, 0);
    if (address == MAP_FAILED) return false;
    m_address = static_cast<char*>(address);
    m_mappedSize = size;
    return true;
}

// Leaves nothing of its own behind, but for the error number; says so where a call is named.
char* WdbSharedMemory::fail(const char* call) {
    const int reason = errno;
    if (call != nullptr) wdbErrorPrint(call);
    if (m_isSimulator) {
        closeMem();
    } else if (m_file >= 0) {
        ::close(m_file);
        m_file = -1;
    }
    errno = reason;
    return nullptr;
}

void WdbSharedMemory::closeMem() {
    // A child of the simulator that ends leaves the object to its parent.
    if (m_file >= 0 && isOfThisProcess()) takeNameAway();
    if (m_address != nullptr) ::munmap(m_address, static_cast<std::size_t>(m_mappedSize));
    m_address = nullptr;
    if (m_file >= 0) ::close(m_file);
    m_file = -1;
}

// Unless it names another object.
void WdbSharedMemory::takeNameAway() {
    const EntryLock lock(m_file);
    const int named = openObject(m_name);
    if (named < 0) return;
    if (isSameObject(named, m_file)) ::shm_unlink(m_name.c_str());
    ::close(named);
}

bool WdbSharedMemory::isOfThisProcess() const {
    return m_processID == ::getpid();
}

bool WdbSharedMemory::isOtherSideThere() const {
    return m_file >= 0 && isLockedByOther(m_file, m_isSimulator ? ViewerByte : SimulatorByte);
}

bool WdbSharedMemory::hasOtherSideLeft() const {
    struct stat status = {};
    if (m_file < 0 || isOtherSideThere() || ::fstat(m_file, &status) != 0) return false;
    if (m_isSimulator) return (status.st_mode & ViewerWasThere) != 0;
    return (status.st_mode & SimulatorWasThere) != 0 || status.st_nlink == 0;
}

bool WdbSharedMemory::isNamed() const {
    struct stat status = {};
    return m_file >= 0 && ::fstat(m_file, &status) == 0 && status.st_nlink != 0;
}

WdbSharedMemory::Presence WdbSharedMemory::look(const std::string& directory) {
    Presence presence;
    struct stat status = {};
    if (!statDirectory(directory, status)) return presence;
    const int file = openObject(nameOf(status));
    presence.isDenied = file < 0 && errno == EACCES;
    if (file < 0) return presence;
    presence.isThere = true;
    presence.hasSimulator = isLockedByOther(file, SimulatorByte);
    presence.hasViewer = isLockedByOther(file, ViewerByte);
    ::close(file);
    return presence;
}

}  // namespace Korvel
