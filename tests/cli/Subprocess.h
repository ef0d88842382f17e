// Runs a program to completion and captures what it printed, for the tests
// that exercise the isodata binary exactly as a person's shell would.
#pragma once

#include <string>
#include <vector>

namespace clitest {

struct ProcessResult {
    int exitCode = -1;  // -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// args[0] is the program's path. env entries ("NAME=value") are added to the
// test's own environment. workDir, when not empty, is the child's current
// folder. Standard input is /dev/null, and stdout is a file, not a terminal.
ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                         const std::string& workDir = "");

} // namespace clitest
