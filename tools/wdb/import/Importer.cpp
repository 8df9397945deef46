#include "import/Importer.h"

#include "Interrupt.h"
#include "ToolError.h"
#include "import/ImportDescription.h"
#include "import/Recorder.h"
#include "import/RecordingLayout.h"
#include "vcd/VcdDeclarations.h"
#include "vcd/VcdReader.h"
#include "veld/OpenException.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Korvel {

namespace {

constexpr const char* Application = "wdb import";
constexpr unsigned int AddressesPerBucket = 2048;
constexpr double SurveyShare = 0.15;  // of the time that both passes take together

// ---- First pass
// ----------------------------------------------------------------------------------

// Handler of VcdReader that finds out what the description says about the values.
class Survey {
public:
    Survey(std::size_t signals, VcdProgress progress)
        : m_progress(std::move(progress)), m_seen(signals, 0) {}

    bool onTime(long long time) {
        m_time = time;
        return !Interrupt::isRequested();
    }
    void onScalar(std::uint32_t signal, char digit) { m_seen[signal] |= digitClass(digit); }
    void onVector(std::uint32_t signal, std::string_view, std::uint8_t classes) {
        m_seen[signal] |= classes;
    }
    void onReal(std::uint32_t signal, std::string_view) { m_seen[signal] |= SeenReal; }
    void onText(std::uint32_t signal, std::string_view) { m_seen[signal] |= SeenText; }
    bool onProgress(std::uint64_t offset) { return m_progress(offset); }

    void onDumping(bool isOn) {
        if (isOn == !m_offSince) return;
        if (isOn && *m_offSince < m_time) m_blackouts.push_back({*m_offSince, m_time});
        if (isOn) {
            m_offSince.reset();
        } else {
            m_offSince = m_time;
        }
    }

    std::vector<Blackout> blackouts() const {
        std::vector<Blackout> all = m_blackouts;
        if (m_offSince) all.push_back({*m_offSince, OpenEnd});
        return all;
    }
    const std::vector<std::uint8_t>& seen() const { return m_seen; }

private:
    VcdProgress m_progress;
    std::vector<std::uint8_t> m_seen;
    std::vector<Blackout> m_blackouts;
    std::optional<long long> m_offSince;  // when dumping was switched off
    long long m_time = 0;
};

// ---- What the writer wants
// -----------------------------------------------------------------------

// The snapshot directory in which a writer finds the description that it embeds.
//
// A writer ends the process at once when the disk is full. So that nothing is left behind then
// either, a child process removes the directory: when its end of a pipe closes, whoever closed it.
class TemporarySnapshot {
public:
    explicit TemporarySnapshot(const std::vector<std::uint8_t>& description) {
        namespace fs = std::filesystem;
        std::string name = (fs::temp_directory_path() / "wdb-import-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw ToolError::fromErrno(name, "cannot create");
        m_directory = name;
        startRemover();
        const fs::path snapshot = m_directory / "torq.dir" / "import";
        m_designPath = (snapshot / "import").string();
        const std::string file = (snapshot / "torq.dbg").string();
        std::error_code ignored;
        fs::create_directories(snapshot, ignored);
        std::ofstream stream(file, std::ios::binary);
        stream.write(reinterpret_cast<const char*>(description.data()),
                     static_cast<std::streamsize>(description.size()));
        stream.close();
        if (stream) return;
        const ToolError error = ToolError::fromErrno(file, "cannot write");
        remove();
        throw error;
    }
    ~TemporarySnapshot() { remove(); }
    TemporarySnapshot(const TemporarySnapshot&) = delete;
    TemporarySnapshot& operator=(const TemporarySnapshot&) = delete;

    const std::string& designPath() const { return m_designPath; }

private:
    void startRemover() {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        m_remover = fork();
        if (m_remover != 0) {
            close(ends[0]);
            m_alive = ends[1];
            return;
        }
        close(ends[1]);
        std::signal(SIGINT, SIG_IGN);
        std::signal(SIGTERM, SIG_IGN);
        char nothing = 0;
        while (read(ends[0], &nothing, 1) < 0 && errno == EINTR)
            continue;
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
        _exit(0);
    }

    void remove() {
        if (m_alive >= 0) close(std::exchange(m_alive, -1));
        if (m_remover > 0) waitpid(std::exchange(m_remover, -1), nullptr, 0);
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);  // where there is no child
    }

    std::filesystem::path m_directory;
    std::string m_designPath;
    pid_t m_remover = -1;  // -1 = none
    int m_alive = -1;      // end of the pipe that closes with this process
};

// An open recording, closed on every way out. Failures of the writer become ToolErrors.
class RecordingSession {
public:
    RecordingSession(IWdbWriter& writer, std::string fileName, const std::string& designPath)
        : m_writer(writer), m_fileName(std::move(fileName)) {
        m_writer.setBucketDivision(AddressesPerBucket);
        m_writer.setApplication(Application);
        // A dump may hold several values of one time; they stay, in their order.
        m_writer.setFilterRepeatedValue(false);
        guarded([&] { m_writer.open(IWdbWriter::DefaultMode, designPath, m_fileName, 0); });
    }
    ~RecordingSession() {
        if (!m_isOpen) return;
        try {
            m_writer.close();
        } catch (const std::exception&) {
            // Another failure is on its way to the user already.
        }
    }
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    void close() {
        m_isOpen = false;
        guarded([&] { m_writer.close(); });
    }

private:
    template <class Operation>
    void guarded(Operation operation) {
        try {
            operation();
        } catch (const Veld::OpenException& error) {
            throw ToolError(m_fileName, error.what());
        } catch (const std::ios_base::failure&) {
            throw ToolError::fromErrno(m_fileName, "cannot write");
        }
    }

    IWdbWriter& m_writer;
    std::string m_fileName;
    bool m_isOpen = true;
};

// ---- Both passes
// ---------------------------------------------------------------------------------

class Import {
public:
    Import(VcdSource& dump, std::string inputName, const std::function<void(double)>& onProgress)
        : m_dump(dump), m_inputName(std::move(inputName)), m_onProgress(onProgress) {}

    ImportResult run(const std::string& outputName, IWdbWriter& writer);

private:
    void readDeclarations();
    TimeUnit timeUnit();
    std::string placed(std::uint64_t offset, const std::string& reason) {
        return fmt::format("line {}: {}", lineOfOffset(m_dump, offset), reason);
    }
    VcdProgress progress(double from, double share) const;
    void record(RecordingSession& recording, Recorder& recorder);
    void warnOfSkipped(const VcdSkipped& skipped);
    void warnOfLosses(const Recorder& recorder);
    void warn(std::uint64_t count, const char* what);

    VcdSource& m_dump;
    std::string m_inputName;
    const std::function<void(double)>& m_onProgress;
    VcdDeclarations m_declarations;
    std::uint64_t m_end = 0;  // offset up to which the dump is good
    ImportResult m_result;
};

void Import::readDeclarations() {
    try {
        VcdTokenizer tokens(m_dump);
        m_declarations = readVcdDeclarations(tokens);
    } catch (const VcdError& error) {
        throw ToolError(m_inputName, placed(error.offset(), error.what()));
    }
    m_result.scopes = m_declarations.scopes.size();
    m_result.objects = m_declarations.variables.size();
    m_result.warnings = m_declarations.warnings;
    m_result.timeUnit = timeUnit();
}

TimeUnit Import::timeUnit() {
    const std::optional<TimeUnit> unit = parseTimeUnit(m_declarations.timescale);
    if (unit) return *unit;
    m_result.warnings.push_back(m_declarations.timescale.empty()
                                    ? "no $timescale, 1 ns is assumed"
                                    : "the $timescale \"" + m_declarations.timescale +
                                          "\" is not known, 1 ns is assumed");
    return TimeUnit{};
}

VcdProgress Import::progress(double from, double share) const {
    const double size = std::max<double>(1, static_cast<double>(m_dump.size()));
    return [this, from, share, size](std::uint64_t offset) {
        m_onProgress(from + share * static_cast<double>(offset) / size);
        return !Interrupt::isRequested();
    };
}

ImportResult Import::run(const std::string& outputName, IWdbWriter& writer) {
    readDeclarations();
    Survey survey(m_declarations.signals.size(), progress(0, SurveyShare));
    VcdTokenizer tokens(m_dump, m_declarations.endOffset);
    VcdReader reader(tokens, m_declarations.ids, survey);
    const VcdOutcome outcome = reader.read();
    m_end = outcome.offset;
    m_result.isInterrupted = outcome.kind == VcdOutcome::Stopped;
    if (m_result.isInterrupted) return m_result;
    if (outcome.kind == VcdOutcome::Damaged) m_result.damage = placed(m_end, outcome.reason);
    warnOfSkipped(reader.skipped());

    std::optional<RecordingLayout> layout;
    std::optional<TemporarySnapshot> snapshot;
    try {
        layout.emplace(m_declarations.signals, survey.seen());
        snapshot.emplace(
            describeImport(m_declarations, *layout, m_result.timeUnit, survey.blackouts()));
    } catch (const std::logic_error& error) {
        throw ToolError(m_inputName, fmt::format("cannot be recorded: {}", error.what()));
    }
    Recorder recorder(writer, *layout, progress(SurveyShare, 1 - SurveyShare));
    RecordingSession recording(writer, outputName, snapshot->designPath());
    snapshot.reset();
    record(recording, recorder);
    warnOfLosses(recorder);
    return m_result;
}

void Import::record(RecordingSession& recording, Recorder& recorder) {
    recorder.begin();
    VcdTokenizer tokens(m_dump, m_declarations.endOffset, m_end);
    const VcdOutcome outcome = VcdReader(tokens, m_declarations.ids, recorder).read();
    recorder.end();
    recording.close();
    m_result.isRecorded = true;
    m_result.isInterrupted = outcome.kind == VcdOutcome::Stopped;
    // What the first pass found may show again, where the dump ends within a command.
    if (outcome.kind == VcdOutcome::Damaged && m_result.damage.empty()) {
        m_result.damage = placed(outcome.offset, "the dump was changed while it was read");
    }
    m_result.changes = recorder.changes();
    m_result.endTime = recorder.time();
}

void Import::warnOfSkipped(const VcdSkipped& skipped) {
    if (skipped.undeclared != 0) {
        m_result.warnings.push_back(
            fmt::format("{} value changes of identifier codes that are not declared, first \"{}\"",
                        skipped.undeclared, skipped.firstUndeclared));
    }
    warn(skipped.ports, "value changes of extended ports (p...) left out");
    warn(skipped.commands, "unknown commands skipped");
}

void Import::warnOfLosses(const Recorder& recorder) {
    const Recorder::Losses& losses = recorder.losses();
    warn(losses.misfits, "value changes left out whose kind does not suit their variable");
    warn(losses.tooLong, "vectors with more digits than their variable has, cut on the left");
    warn(losses.badNumbers, "real values left out that are no numbers");
    warn(losses.lostTexts, "texts left out that the recording cannot hold");
    warn(recorder.texts().textsWithZero(), "texts with a zero byte");
}

void Import::warn(std::uint64_t count, const char* what) {
    if (count != 0) m_result.warnings.push_back(fmt::format("{} {}", count, what));
}

}  // namespace

ImportResult importVcd(VcdSource& dump, const std::string& inputName, const std::string& outputName,
                       IWdbWriter& writer, const std::function<void(double)>& onProgress) {
    return Import(dump, inputName, onProgress).run(outputName, writer);
}

}  // namespace Korvel
