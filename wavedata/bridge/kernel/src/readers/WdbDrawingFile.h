#pragma once

#include <functional>
#include <string>

namespace Korvel {

// The temporary file that holds a viewer's drawing indexes:
//   STEM[_INDEX]_PROCESS_SECONDS.pelwvdat
// The process in the name tells a file whose viewer was killed from one that is in use.

/// The file's name without directory: at most 30 characters of the recording's name without its
/// extension, @p index where it is above 0, the process, and the seconds since 1970-01-01 UTC.
std::string drawingFileName(const std::string& wdbPath, int index, long long process,
                            unsigned int seconds);

/// Where such files go: @p wanted where that is a directory, otherwise the system's own place for
/// temporary files, otherwise the current directory.
std::string drawingFileDirectory(const std::string& wanted);

/// Makes the file for this process, at an absolute path that nothing has yet: where the name is
/// taken, its seconds count up. Files in @p directory whose process is gone are removed.
/// @param make  Creates the file.
/// @return the path.
std::string makeDrawingFile(const std::string& directory, const std::string& wdbPath, int index,
                            const std::function<void(const std::string& path)>& make);

}  // namespace Korvel
