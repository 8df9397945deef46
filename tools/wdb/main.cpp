// The command-line tool "wdb". Every verb is a file of its own.

#include "ChangesVerb.h"
#include "DumpVerb.h"
#include "ExportVerb.h"
#include "FollowVerb.h"
#include "ImportVerb.h"
#include "InfoVerb.h"
#include "ListVerb.h"
#include "PlotVerb.h"
#include "ToolError.h"
#include "ValueVerb.h"
#include "VerifyVerb.h"
#include "korvel/WdbRunTime.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

namespace {

// Everything that a verb says, and the exit status that it comes to.
int run(CLI::App& tool, int argc, char** argv, bool& isTimed) {
    try {
        tool.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        isTimed = false;  // there is no verb that took any time
        return tool.exit(error) == 0 ? 0 : Korvel::ExitWrongUsage;
    } catch (const Korvel::ToolExit& exit) {
        return exit.status;
    } catch (const std::system_error& error) {
        // Whoever read what we print has seen enough. We leave in order all the same, without our
        // temporary file.
        if (error.code() == std::errc::broken_pipe) return Korvel::ExitBrokenPipe;
        fmt::print(stderr, "wdb: {}\n", error.what());
        return Korvel::ExitFailure;
    } catch (const std::exception& error) {
        fmt::print(stderr, "wdb: {}\n", error.what());
        return Korvel::ExitFailure;
    }
}

void printTiming(const Korvel::WdbRunTime& used) {
    fmt::print(stderr, "wdb: {:.2f} s user, {:.2f} s system, {:.2f} s wall\n", used.user,
               used.system, used.wall);
}

}  // namespace

int main(int argc, char** argv) {
    const Korvel::WdbRunTime begin = Korvel::getRunTime();
    // A file that may not grow further is an error like a full disk, not the end at once.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App tool{"Records, shows and checks wave databases of HDL simulations.", "wdb"};
    tool.require_subcommand(1);
    bool isTimed = false;
    tool.add_flag("--timing", isTimed, "Say on standard error what time the verb took");
    Korvel::addImportVerb(tool);
    Korvel::addFollowVerb(tool);
    Korvel::addInfoVerb(tool);
    Korvel::addListVerb(tool);
    Korvel::addValueVerb(tool);
    Korvel::addChangesVerb(tool);
    Korvel::addExportVerb(tool);
    Korvel::addDumpVerb(tool);
    Korvel::addPlotVerb(tool);
    Korvel::addVerifyVerb(tool);
    const int status = run(tool, argc, argv, isTimed);
    if (isTimed) printTiming(Korvel::getRunTime() - begin);
    return status;
}
