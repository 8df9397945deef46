#include "tests/tools/NaiveVcd.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace Korvel {
namespace {

std::string converted(std::string text, int (*convert)(int)) {
    for (char& c : text)
        c = static_cast<char>(convert(static_cast<unsigned char>(c)));
    return text;
}

// Octal numbers and quoted characters are all that the dumps under test have.
std::string unescape(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            plain += text[i];
        } else if (std::isdigit(static_cast<unsigned char>(text[++i])) != 0) {
            plain += static_cast<char>(std::stoi(text.substr(i, 3), nullptr, 8));
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::string widened(const std::string& digits, unsigned int width) {
    if (digits.size() >= width) return digits.substr(digits.size() - width);
    const char first = digits.front();
    return std::string(width - digits.size(), first == '1' ? '0' : first) + digits;
}

std::string realText(const std::string& digits) {
    const double number = std::strtod(digits.c_str(), nullptr);
    if (std::isnan(number)) return "nan";
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", number);
    return text;
}

}  // namespace

NaiveVcd::NaiveVcd(const std::string& dump) {
    std::istringstream in(dump);
    std::string token;
    std::string word;
    std::vector<std::string> scopes;
    bool isHeader = true;
    long long time = 0;
    while (in >> token) {
        const bool isValueBlock = token.rfind("$dump", 0) == 0 || token == "$end";
        if (token[0] == '$' && !isValueBlock) {
            std::vector<std::string> words;
            while (in >> word && word != "$end")
                words.push_back(word);
            if (token == "$scope") scopes.push_back(words.at(1));
            if (token == "$upscope") scopes.pop_back();
            if (token == "$enddefinitions") isHeader = false;
            if (token != "$var" || !isHeader) continue;
            Variable variable{"", words.at(0), words.at(2), 0};
            variable.width = static_cast<unsigned int>(std::max(1, std::stoi(words.at(1))));
            for (const std::string& scope : scopes)
                variable.path += scope + '.';
            std::string name;
            for (std::size_t i = 3; i < words.size(); ++i)
                name += words[i];
            variable.path += name[0] == '\\' ? name.substr(1) : name;
            variables.push_back(variable);
        } else if (token[0] == '#') {
            time = endTime = std::stoll(token.substr(1));
        } else if (token[0] != '$' && std::string("bBrRsS").find(token[0]) != std::string::npos) {
            in >> word;
            changes[word].emplace_back(time, token);
        } else if (token[0] != '$') {
            changes[token.substr(1)].emplace_back(time, token.substr(0, 1));
        }
    }
}

NaiveVcd::History NaiveVcd::historyOf(const Variable& variable) const {
    const auto found = changes.find(variable.code);
    if (found == changes.end()) return {};
    unsigned int width = 0;
    for (const Variable& it : variables) {
        if (it.code == variable.code) width = std::max(width, it.width);
    }
    const bool hasNineStates =
        std::any_of(found->second.begin(), found->second.end(), [](const auto& change) {
            return std::string("sr").find(change.second[0]) == std::string::npos &&
                   change.second.find_first_of("uUwWlLhH-") != std::string::npos;
        });
    History history;
    int triggers = 0;
    for (const auto& [time, text] : found->second) {
        const char kind = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
        if (variable.type == "event") {
            if (text == "1") history.emplace_back(time, std::to_string(++triggers % 256));
        } else if (kind == 's') {
            history.emplace_back(time, unescape(text.substr(1)));
        } else if (kind == 'r') {
            history.emplace_back(time, realText(text.substr(1)));
        } else {
            const std::string digits = widened(kind == 'b' ? text.substr(1) : text, width);
            const std::string mine = digits.substr(digits.size() - variable.width);
            history.emplace_back(time, converted(mine, hasNineStates ? ::toupper : ::tolower));
        }
    }
    return history;
}

}  // namespace Korvel
