// Puts the files of a finished run in place: all of them, or, when anything
// goes wrong on the way, none (what was already moved is moved back).
#pragma once

#include "RunAsk.h"

#include <string>
#include <vector>

namespace isodata_run {

struct Move {
    std::string from;  // a file of the run folder
    std::string to;    // its final name
};

// Without overwrite, a file that exists at a final name stops the whole
// publication (it may have appeared while the run went on). With overwrite,
// existing files are swapped out atomically and, once every move has
// succeeded, the files of staleFiles that still exist (pieces of an older
// result the new one lacks) are deleted. A file whose folder lies on another
// file system is first copied there under a temporary name. False with
// failure set when the files could not all be put in place.
bool Publish(const std::vector<Move>& moves, const std::vector<std::string>& staleFiles, bool overwrite,
             Notice& failure);

} // namespace isodata_run
