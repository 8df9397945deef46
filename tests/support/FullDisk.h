#pragma once

#include <csignal>

#include <sys/resource.h>

namespace Korvel {

// For death tests: from here on no file can grow beyond so many bytes, as on a full disk.
inline void fillDisk(rlim_t bytes = 4096) {
    const rlimit limit = {bytes, bytes};
    ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace Korvel
