#pragma once

#include <string>

namespace TORQ {

/// Where the simulator's files lie and what they are called.
class OutputFileNames {
public:
    /// Relocates the simulator's output directory; empty means "torq.dir" below the snapshot's
    /// base.
    static std::string torqdir_location;

    /// File name of the waveform numbered @p index: ".wdb" is added where it is missing, the number
    /// goes before the extension, 0 is no number. An empty name means "torq.wdb".
    static std::string getWdbFileName(const std::string& name, unsigned int index);

    /// Name of the snapshot that a design path lies in: the last component of its directory part.
    static std::string getSnapshotName(const std::string& designPath);

    /// Directory that holds the kernel files of @p snapshot below @p base.
    static std::string getKernelExecDirName(const std::string& base, const std::string& snapshot);

    /// Kernel directory of the snapshot that a design path lies in. What precedes the snapshot's
    /// name is the base, without "torq.dir" where it ends in that.
    static std::string getKernelDirectory(const std::string& designPath);
};

}  // namespace TORQ
