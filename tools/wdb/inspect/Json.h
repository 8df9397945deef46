#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Korvel {

/// A JSON value whose members stay in the order in which they were added.
using Json = nlohmann::ordered_json;

/// Names in a recording may be any bytes; what is no UTF-8 is replaced.
/// @param indent  -1 puts everything in one line.
inline std::string toText(const Json& json, int indent = -1) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Korvel
