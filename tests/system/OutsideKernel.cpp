// A simulator kernel as other people build it: it knows the library's two names and the order of
// the writer's slots, and neither includes nor links anything of the library.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using TraceVhdl = void (*)(long long, unsigned int, unsigned int, unsigned char*, unsigned char*);
using TraceVlog = void (*)(long long, unsigned int, unsigned int, unsigned char*, unsigned char*,
                           unsigned int, unsigned int);

// Slots of the writer's table of virtual operations; the first two are the destructors.
enum Slot {
    Open = 2,
    GetTraceVhdl = 3,
    GetTraceVlog = 5,
    AddString = 8,
    Close = 9,
    MarkCurrentTime = 12,
    SetBaseDPOffset = 13,
    SetApplication = 14,
    SetAddressSize = 15,
    SetBucketDivision = 16,
    SetFilterRepeatedValue = 17
};

template <typename Result, typename... Arguments>
Result call(void* writer, Slot slot, Arguments... arguments) {
    void* const* const table = *static_cast<void***>(writer);
    Result (*operation)(void*, Arguments...) = nullptr;
    std::memcpy(&operation, table + slot, sizeof(operation));
    return operation(writer, arguments...);
}

void* writerNamed(void* library, const char* name) {
    void* (*getWriter)() = nullptr;
    void* const symbol = dlsym(library, name);
    std::memcpy(&getWriter, &symbol, sizeof(getWriter));
    return symbol == nullptr ? nullptr : getWriter();
}

// A process that the simulation starts in between must leave the recording alone, also one that
// leaves by exit() and so destroys its copy of the writer.
void startAProcess() {
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    int status = -1;
    if (waitpid(child, &status, 0) != child || status != 0) std::_Exit(6);
}

void record(void* writer, const std::string& path, bool forks) {
    unsigned char space[32] = {};
    const std::string application = "outside kernel";
    const std::string design = "none/sim";
    const std::string text = "from outside";
    call<void>(writer, SetApplication, &application);
    call<void>(writer, SetAddressSize, 32ll);
    call<void>(writer, SetBucketDivision, 2048u);
    call<void>(writer, SetFilterRepeatedValue, true);
    call<void>(writer, SetBaseDPOffset, reinterpret_cast<long long>(space));
    call<void>(writer, Open, 0, &design, &path, 0);
    const auto traceVhdl = call<TraceVhdl>(writer, GetTraceVhdl);
    const auto traceVlog = call<TraceVlog>(writer, GetTraceVlog);
    unsigned char value[8] = {5, 0, 0, 0, 2, 0, 0, 0};
    for (int time = 0; time < 2000; ++time) {
        value[0] = static_cast<unsigned char>(time);
        traceVhdl(time, 0, 2, space + 16, value);
        traceVlog(time, 0, 0, space, value, 32, 40);
        call<void>(writer, MarkCurrentTime, static_cast<long long>(time));
        if (forks && time % 500 == 250) startAProcess();
    }
    call<long long>(writer, AddString, &text);
}

}  // namespace

// Arguments: the library, the recording, and how it ends: close, exit, unload or fork.
int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const std::string ending = argv[3];
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 3;
    void* const writer = writerNamed(library, "korvelApi_getStandAloneWdbWriter");
    void* const liveWriter = writerNamed(library, "korvelApi_getWdbWriter");
    if (writer == nullptr || liveWriter == nullptr || liveWriter == writer) return 4;
    record(writer, argv[2], ending == "fork");
    if (ending == "close" || ending == "fork") call<void>(writer, Close);
    return ending == "unload" ? dlclose(library) : 0;
}
