#include "Command.h"
#include "GdalCache.h"
#include "Options.h"

#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    using namespace isodata_cli;
    BoundGdalBlockCache();
    const ParseResult parsed = ParseArguments(std::vector<std::string>(argv + 1, argv + argc));
    switch (parsed.status) {
    case ParseStatus::Help:
        std::cout << HelpText();
        return static_cast<int>(ExitCode::Ok);
    case ParseStatus::Version:
        std::cout << VersionText() << "\n";
        return static_cast<int>(ExitCode::Ok);
    case ParseStatus::Error:
        std::cerr << "isodata: " << parsed.message << "\n\n" << UsageText();
        return static_cast<int>(ExitCode::BadRequest);
    case ParseStatus::Run:
        break;
    }
    return static_cast<int>(RunCommand(parsed.options, std::cout, std::cerr, isatty(STDOUT_FILENO) != 0));
}
