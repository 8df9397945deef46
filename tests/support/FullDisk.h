#pragma once

#include <csignal>

#include <sys/resource.h>

namespace Korvel {

// From here on this process can write no file beyond 4 KiB, as on a full disk: for death tests.
inline void fillDisk() {
    const rlimit limit = {4096, 4096};
    ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace Korvel
