#include "support/OutputFileNames.h"

namespace TORQ {
namespace {

const char DefaultWdbName[] = "torq.wdb";
const char WdbExtension[] = ".wdb";
const char OutputDirectory[] = "torq.dir";

// A path cut at its last "/". Without one, everything is the last component. Directly below the
// root the directory is "/", so that it stays absolute.
struct SplitPath {
    std::string directory;
    std::string last;
    bool hasSlash;
};

SplitPath splitAtLastSlash(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return {"", path, false};
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1), true};
}

// Up to the last "/", or the whole path when there is none.
std::string directoryPart(const std::string& designPath) {
    const SplitPath split = splitAtLastSlash(designPath);
    return split.hasSlash ? split.directory : designPath;
}

// The relocated output directory always ends in a folder of the usual name, so that a simulator
// and a viewer that were given the same location meet in the same place.
std::string relocatedDirectory(const std::string& base, const std::string& location) {
    std::string directory;
    if (location.front() != '/' && !base.empty()) directory = base + "/";
    directory += location;
    if (location.find(OutputDirectory) == std::string::npos) {
        directory += std::string("/") + OutputDirectory;
    }
    return directory;
}

}  // namespace

std::string OutputFileNames::torqdir_location;

std::string OutputFileNames::getWdbFileName(const std::string& name, unsigned int index) {
    const std::string extension = WdbExtension;
    std::string result = name.empty() ? DefaultWdbName : name;
    if (result.size() < extension.size() ||
        result.compare(result.size() - extension.size(), extension.size(), extension) != 0) {
        result += extension;
    }
    if (index == 0) return result;
    const std::size_t dot = result.rfind('.');
    return result.substr(0, dot) + std::to_string(index) + result.substr(dot);
}

std::string OutputFileNames::getSnapshotName(const std::string& designPath) {
    return splitAtLastSlash(directoryPart(designPath)).last;
}

std::string OutputFileNames::getKernelExecDirName(const std::string& base,
                                                  const std::string& snapshot) {
    std::string directory;
    if (torqdir_location.empty()) {
        if (!base.empty()) directory = base + "/";
        directory += OutputDirectory;
    } else {
        directory = relocatedDirectory(base, torqdir_location);
    }
    return directory + "/" + snapshot;
}

std::string OutputFileNames::getKernelDirectory(const std::string& designPath) {
    SplitPath snapshot = splitAtLastSlash(directoryPart(designPath));
    SplitPath base = splitAtLastSlash(snapshot.directory);
    const bool inOutputDirectory = base.last == OutputDirectory;
    return getKernelExecDirName(inOutputDirectory ? base.directory : snapshot.directory,
                                snapshot.last);
}

}  // namespace TORQ
