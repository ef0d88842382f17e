// Runs the isodata binary exactly as a person's shell would, to see its exit
// status and what it printed where, optionally interrupting it mid-run.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace clitest {

// exitCode is -1 when the program did not exit normally; interrupted says
// whether the interruption's marker showed up and its signal was sent;
// peakKilobytes is the child's peak resident memory as the kernel counted it
// (what `time -v` calls its maximum resident set size).
struct ProcessResult {
    int exitCode = -1;
    std::string out, err;
    bool interrupted = false;
    long peakKilobytes = 0;
};

// A signal sent once stdout shows marker: to the whole process group, as a
// terminal sends Ctrl-C, or to the process alone, as kill(1) does. With
// SIGSTOP, whileStopped runs before the process is continued.
struct Interruption {
    std::string marker;
    int signal = 0;
    bool toGroup = false;
    std::function<void()> whileStopped = {};
};

// Runs args[0] in workDir with env ("NAME=value") added. Standard input is
// empty and stdout a file, not a terminal, as in a script.
ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env,
                         const std::string& workDir, const Interruption& interruption = {});

#ifdef ISODATA_BINARY
// The isodata binary with args, run in folder.
inline ProcessResult Isodata(const std::string& folder, std::vector<std::string> args,
                             const Interruption& interruption = {}) {
    args.insert(args.begin(), ISODATA_BINARY);
    return RunProcess(args, {}, folder, interruption);
}
#endif

} // namespace clitest
