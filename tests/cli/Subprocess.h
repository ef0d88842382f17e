// Runs the isodata binary exactly as a person's shell would, to see its exit
// status and what it printed where.
#pragma once

#include <string>
#include <vector>

namespace clitest {

// exitCode is -1 when the program did not exit normally.
struct ProcessResult { int exitCode = -1; std::string out, err; };

// Runs args[0] in workDir with env ("NAME=value") added. Standard input is
// empty and stdout a file, not a terminal, as in a script.
ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env,
                         const std::string& workDir);

} // namespace clitest
