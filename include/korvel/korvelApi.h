#pragma once

// The two functions by which a simulator kernel obtains its writer. They have C linkage, so that
// a kernel that loads the library with dlopen finds them by name.

#ifdef __cplusplus
extern "C" {
#endif

/// The process's writer for a simulation that a viewer watches while it runs.
/// Points to a Korvel::IWdbWriter that the library owns; never null, never deleted by the caller.
__attribute__((visibility("default"))) void* korvelApi_getWdbWriter(void);

/// The process's writer of a recording on disk.
/// Points to a Korvel::IWdbWriter that the library owns; never null, never deleted by the caller.
__attribute__((visibility("default"))) void* korvelApi_getStandAloneWdbWriter(void);

#ifdef __cplusplus
}
#endif
