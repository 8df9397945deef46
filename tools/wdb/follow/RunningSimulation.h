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

    /// Returns once it runs, having said on standard error that it is waited for, and having read
    /// the description. Throws ToolError where it has its viewer already, and ToolExit where an
    /// Interrupt that the caller keeps is requested.
    void waitForIt();

    /// Null where there is none that can be read; standard error has a line on that.
    const DesignDescription* description() const {
        return m_description ? &*m_description : nullptr;
    }

    ParsedTime parseTime(const std::string& text) const;

    /// Attaches to it and records it into @p file. The description goes along. Throws ToolError.
    ViewedRecording record(const std::string& file);

private:
    void readDescription();
    unsigned long addressSize() const;

    std::string m_designPath;
    WdbLiveSimulation m_simulation;
    std::filesystem::path m_directory;
    std::optional<DesignDescription> m_description;
};

}  // namespace Korvel
