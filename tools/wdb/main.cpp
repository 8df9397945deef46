// The command-line tool "wdb". Every verb is a file of its own.

#include "DumpVerb.h"
#include "ImportVerb.h"
#include "InfoVerb.h"
#include "ListVerb.h"
#include "ToolError.h"
#include "VerifyVerb.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    // A file that may not grow further is an error like a full disk, not the end at once.
    std::signal(SIGXFSZ, SIG_IGN);
    CLI::App tool{"Records, shows and checks wave databases of HDL simulations.", "wdb"};
    tool.require_subcommand(1);
    Korvel::addImportVerb(tool);
    Korvel::addInfoVerb(tool);
    Korvel::addListVerb(tool);
    Korvel::addDumpVerb(tool);
    Korvel::addVerifyVerb(tool);
    try {
        tool.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return tool.exit(error) == 0 ? 0 : Korvel::ExitWrongUsage;
    } catch (const Korvel::ToolExit& exit) {
        return exit.status;
    } catch (const std::exception& error) {
        fmt::print(stderr, "wdb: {}\n", error.what());
        return Korvel::ExitFailure;
    }
}
