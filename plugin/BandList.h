// The band list of the command-style entry: "|"-separated 0-based indices.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace isodata {

// Every piece between separators becomes one entry, empty pieces included;
// a piece that is not a number gives 0. So "1||3" is {1, 0, 3} and "" is {0}.
std::vector<std::int32_t> ParseBandList(const std::string& list);

} // namespace isodata
