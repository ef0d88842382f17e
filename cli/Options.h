// The command line of isodata: what a person can ask for, its defaults, and
// the parser that turns argv into it without touching any file.
#pragma once

#include <string>
#include <vector>

namespace isodata_cli {

// Defaults chosen for an 8-bit multispectral scene such as a Landsat subset:
// a handful of land-cover classes, spreads and distances in digital numbers.
// The run starts from half the classes wanted because its iterations stop as
// soon as the cluster count equals the target after an odd-numbered round:
// starting at the target would leave a single round, while starting below it
// lets the rounds split the spread-out clusters first.
struct Defaults {
    static constexpr int kClasses = 8;
    static constexpr int kInitialClasses = 4;
    static constexpr int kMinClassPixels = 20;
    static constexpr int kMaxMergePairs = 2;
    static constexpr int kMaxIterations = 10;
    static constexpr double kStdDevThreshold = 10.0;
    static constexpr double kMergeDistance = 20.0;
};

// How progress is shown: drawn bars on a terminal, a line per stage in a log,
// or "progress <overall %> <stage>" lines for a program that drives isodata.
enum class ProgressFormat { Auto, Bar, Lines, Machine };

struct Options {
    std::string input;
    std::string output;
    std::vector<int> bands;  // 1-based as typed; empty means every band
    int classes = Defaults::kClasses;
    int initialClasses = Defaults::kInitialClasses;
    int minClassPixels = Defaults::kMinClassPixels;
    int maxMergePairs = Defaults::kMaxMergePairs;
    int maxIterations = Defaults::kMaxIterations;
    double stdDevThreshold = Defaults::kStdDevThreshold;
    double mergeDistance = Defaults::kMergeDistance;
    std::string previewPath;  // empty: no preview
    std::string pluginPath;   // empty: the plug-in beside the executable
    std::string tmpDir;       // empty: the run folder goes beside the output
    std::string format = "ENVI";               // GDAL driver of the output
    std::vector<std::string> creationOptions;  // NAME=VALUE, for that driver
    ProgressFormat progress = ProgressFormat::Auto;
    bool quiet = false;
    bool overwrite = false;
    bool debug = false;       // show GDAL's own messages as they come
    bool json = false;        // the summary as one JSON object on stdout
};

enum class ParseStatus {
    Run,      // options complete; go on to the checks
    Help,     // --help was asked for
    Version,  // --version was asked for
    Error,    // a usage error; message says what
};

struct ParseResult {
    ParseStatus status = ParseStatus::Error;
    Options options;
    std::string message;
};

ParseResult ParseArguments(const std::vector<std::string>& args);

// The short synopsis printed with a usage error, and the full --help text.
std::string UsageText();
std::string HelpText();
std::string VersionText();

} // namespace isodata_cli
