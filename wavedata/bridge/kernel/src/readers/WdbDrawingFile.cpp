#include "readers/WdbDrawingFile.h"

#include <cerrno>
#include <charconv>
#include <ctime>
#include <limits>

#include <signal.h>
#include <unistd.h>
#include <boost/filesystem.hpp>

#include "veld/OpenException.h"

namespace Korvel {
namespace {

namespace fs = boost::filesystem;

const char Suffix[] = ".pelwvdat";
constexpr std::size_t LongestStem = 30;

// Cuts "_NUMBER" off the end of a name. False, and nothing is cut, where it does not end so.
bool cutNumber(std::string& name, long long& number) {
    const std::size_t line = name.rfind('_');
    if (line == std::string::npos) return false;
    const char* end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + line + 1, end, number);
    if (error != std::errc() || rest != end || number < 0) return false;
    name.resize(line);
    return true;
}

// Whether the name is that of a drawing file whose process has ended.
bool isLeftBehind(std::string name) {
    const std::string suffix = Suffix;
    if (name.size() < suffix.size() ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    name.resize(name.size() - suffix.size());
    long long seconds = 0;
    long long process = 0;
    if (!cutNumber(name, seconds) || !cutNumber(name, process)) return false;
    if (process == 0 || process > std::numeric_limits<pid_t>::max()) return false;
    return ::kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH;
}

void removeFilesLeftBehind(const std::string& directory) {
    boost::system::error_code error;
    fs::directory_iterator file(directory, error);
    for (; !error && file != fs::directory_iterator(); file.increment(error)) {
        boost::system::error_code ignored;  // somebody else's file stays
        if (isLeftBehind(file->path().filename().string())) fs::remove(file->path(), ignored);
    }
}

}  // namespace

std::string drawingFileName(const std::string& wdbPath, int index, long long process,
                            unsigned int seconds) {
    std::string name = fs::path(wdbPath).stem().string().substr(0, LongestStem);
    if (index > 0) name += "_" + std::to_string(index);
    return name + "_" + std::to_string(process) + "_" + std::to_string(seconds) + Suffix;
}

std::string drawingFileDirectory(const std::string& wanted) {
    boost::system::error_code error;
    if (!wanted.empty() && fs::status(wanted, error).type() == fs::directory_file) return wanted;
    const fs::path temporary = fs::temp_directory_path(error);
    return error ? "." : temporary.string();
}

std::string makeDrawingFile(const std::string& directory, const std::string& wdbPath, int index,
                            const std::function<void(const std::string& path)>& make) {
    removeFilesLeftBehind(directory);
    auto seconds = static_cast<unsigned int>(std::time(nullptr));
    for (;; ++seconds) {
        const fs::path path = fs::system_complete(
            fs::path(directory) / drawingFileName(wdbPath, index, ::getpid(), seconds));
        const auto isTaken = [&path] {
            boost::system::error_code error;
            return fs::exists(fs::symlink_status(path, error));
        };
        if (isTaken()) continue;
        try {
            make(path.string());
            return path.string();
        } catch (const Veld::OpenException&) {
            // Processes of two containers may have the same number.
            if (!isTaken()) throw;
        }
    }
}

}  // namespace Korvel
