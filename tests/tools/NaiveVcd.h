#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {

// A second reading of value-change dumps, as simple as can be: whole dump in memory, one token
// after the other, every value as text. It shares nothing with the tool's reader, which must agree
// with it. Knows undamaged dumps only.
struct NaiveVcd {
    using History = std::vector<std::pair<long long, std::string>>;  // time, value

    struct Variable {
        std::string path;  // with range: "top.cpu.pc[31:0]"
        std::string type;
        std::string code;
        unsigned int width = 1;
    };

    std::vector<Variable> variables;         // in the order of declaration
    std::map<std::string, History> changes;  // by code, values as they stand: "b01", "1", "sx"
    long long endTime = 0;

    explicit NaiveVcd(const std::string& dump);

    // What a variable goes through, spelled as ValueText.h does; reals in one way.
    History historyOf(const Variable& variable) const;
};

}  // namespace Korvel
