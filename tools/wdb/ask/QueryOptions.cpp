#include "ask/QueryOptions.h"

#include "ToolError.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace Korvel {

void QueryOptions::addTo(CLI::App& verb) {
    verb.add_option("FILE", file, "The recording")->required();
    addFormatTo(verb);
}

void QueryOptions::addFormatTo(CLI::App& verb) {
    verb.add_option_function<std::string>(
            "-r,--radix", [this](const std::string& name) { radix = radixNames().at(name); },
            "How vectors are shown; x, z, X and Z stand for digits that are not known")
        ->check(CLI::IsMember(radixNames()))
        ->option_text("bin|oct|dec|sdec|hex|ascii|real");
    verb.add_flag("--json", isJson, "Print one JSON object a line");
}

CLI::Option* QueryOptions::addObjectsTo(CLI::App& verb) {
    return verb.add_option("OBJECT", objects, ObjectArgumentsHelp);
}

std::size_t nameColumn(const std::vector<ViewedObject>& objects) {
    constexpr std::size_t Widest = 48;
    std::size_t width = 0;
    for (const ViewedObject& viewed : objects)
        width = std::max(width, viewed.name.size());
    return std::min(width, Widest);
}

void finishOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        if (errno == EPIPE) throw ToolExit{ExitBrokenPipe};
        throw ToolError::fromErrno("standard output", "cannot write");
    }
}

}  // namespace Korvel
