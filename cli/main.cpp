// isodata's entry point: parse, answer --help, --version and
// --options-json, or run; the exit status is the run's.
#include "Command.h"
#include "OptionTable.h"

#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    using namespace isodata_cli;
    const ParseResult parsed = ParseArguments(std::vector<std::string>(argv + 1, argv + argc));
    switch (parsed.status) {
    case ParseStatus::Help: std::cout << HelpText(); return static_cast<int>(ExitCode::Ok);
    case ParseStatus::Version: std::cout << VersionText() << "\n"; return static_cast<int>(ExitCode::Ok);
    case ParseStatus::OptionsJson: std::cout << OptionsJson(); return static_cast<int>(ExitCode::Ok);
    case ParseStatus::Error:
        std::cerr << "isodata: " << parsed.message << "\n\n" << UsageText();
        return static_cast<int>(ExitCode::BadRequest);
    case ParseStatus::Run: break;
    }
    // Progress goes where the summary does not: stderr when stdout carries JSON.
    const int progressFd = parsed.options.json ? STDERR_FILENO : STDOUT_FILENO;
    return RunCommand(parsed.options, std::cout, std::cerr, isatty(progressFd) != 0);
}
