// The command line of isodata: what a person can ask for, and the parser
// that turns argv into it without touching any file. Each option's names,
// default, range and help live in the option table (OptionTable.h).
#pragma once

#include <string>
#include <vector>

namespace isodata_cli {

// How progress is shown: drawn bars on a terminal, a line per stage in a log,
// or "progress <overall %> <stage>" lines for a program that drives isodata.
enum class ProgressFormat { Auto, Bar, Lines, Machine };

// Every field an option fills starts at that option's default
// (DefaultOptions); the checks replace bands and format by what they found.
struct Options {
    std::string input;
    std::string output;
    std::vector<int> bands;  // 1-based; empty means every band
    int classes = 0;
    int initialClasses = 0;
    int minClassPixels = 0;
    int maxMergePairs = 0;
    int maxIterations = 0;
    double stdDevThreshold = 0.0;
    double mergeDistance = 0.0;
    std::vector<std::string> openOptions;  // NAME=VALUE, for the input's driver
    std::string srcNodata;  // "": the input's own; "None"; or values
    std::string mask;       // "": the input's masks; "none"; or a mask raster
    std::string modelOut;   // the model file to write; empty: none
    std::string apply;      // a model file to label with instead of clustering
    std::string threads;    // a count or ALL_CPUS
    std::string memory;     // megabytes the working copy may take in memory; empty: the default
    std::string previewPath;  // empty: no preview
    std::string pluginPath;   // empty: the plug-in beside the executable
    std::string tmpDir;       // empty: the run folder goes beside the output
    std::string format;                        // GDAL driver of the output
    std::vector<std::string> creationOptions;  // NAME=VALUE, for that driver
    ProgressFormat progress = ProgressFormat::Auto;
    bool quiet = false;
    bool overwrite = false;
    bool debug = false;  // show GDAL's own messages as they come
    bool json = false;   // the summary as one JSON object on stdout
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
