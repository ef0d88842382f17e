// The command line of isodata: what a person can ask for, and the parser
// that turns argv into it without touching any file. Each option's names,
// default, range and help live in the option table (OptionTable.h).
#pragma once

#include <RunAsk.h>

#include <set>
#include <string>
#include <vector>

namespace isodata_cli {

// How progress is shown: drawn bars on a terminal, a line per stage in a log,
// or "progress <overall %> <stage>" lines for a program that drives isodata.
enum class ProgressFormat { Auto, Bar, Lines, Machine };

// What the run library is asked, and how the command shows the run. Every
// field an option fills starts at that option's default (DefaultOptions).
struct Options : isodata_run::RunAsk {
    ProgressFormat progress = ProgressFormat::Auto;
    bool quiet = false;
    bool json = false;           // the summary as one JSON object on stdout
    std::set<std::string> given;  // the main names of the options typed
};

// Every option at the default the option table gives it.
Options DefaultOptions();

enum class ParseStatus {
    Run,          // options complete; go on to the checks
    Help,         // --help was asked for
    Version,      // --version was asked for
    OptionsJson,  // --options-json was asked for
    Error,        // a usage error; message says what
};

struct ParseResult {
    ParseStatus status = ParseStatus::Error;
    Options options;
    std::string message;
};

ParseResult ParseArguments(const std::vector<std::string>& args);

} // namespace isodata_cli
