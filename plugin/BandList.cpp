#include "BandList.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <cstdlib>

namespace isodata {

std::vector<std::int32_t> ParseBandList(const std::string& list) {
    std::vector<std::string> pieces;
    boost::algorithm::split(pieces, list, boost::algorithm::is_any_of("|"));
    std::vector<std::int32_t> indices;
    indices.reserve(pieces.size());
    for (const std::string& piece : pieces) indices.push_back(std::atoi(piece.c_str()));
    return indices;
}

} // namespace isodata
