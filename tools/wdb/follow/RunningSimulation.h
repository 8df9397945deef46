#pragma once

#include "ask/ViewedRecording.h"
#include "korvel/WdbLiveSimulation.h"

#include <filesystem>
#include <optional>
#include <string>

namespace Korvel {

/// A simulation that is to be followed: waits for it, reads what its design is, attaches to it.
class RunningSimulation {
public:
    /// @param directory  Of the snapshot. Need not exist yet.
    explicit RunningSimulation(const std::string& directory);

    /// Of the snapshot, after the directory that it lies in.
    std::string name() const { return m_directory.filename().string(); }

    /// The file that describes the design; errors about objects and times name it.
    std::string descriptionFile() const;
    std::string rttiFile() const;

    /// Returns once it runs, having said on standard error that it is waited for. Throws ToolError
    /// where it has its viewer already, or is another user's, and ToolExit where an Interrupt that
    /// the caller keeps is requested.
    void waitForIt();

    /// Reads the description as it is now. False where there is none that can be read.
    bool readDescription();
    /// Tells standard error why there is none.
    void sayUndescribed() const;

    /// Null before it is read, and where there is none.
    const DesignDescription* description() const {
        return m_description ? &*m_description : nullptr;
    }

    ParsedTime parseTime(const std::string& text) const;

    /// Attaches to it and records it into @p file. The description goes along. Throws ToolError.
    ViewedRecording record(const std::string& file);

private:
    unsigned long addressSize() const;

    std::string m_designPath;
    WdbLiveSimulation m_simulation;
    std::filesystem::path m_directory;
    std::optional<DesignDescription> m_description;
    std::string m_fault;  // why there is none
};

}  // namespace Korvel
