// Parses isodata's command line in the manner of GDAL's utilities: single-dash
// options that take their value from the next argument, -b repeatable, then
// exactly two file names. Only the form of each value is checked here; whether
// a value makes sense for the scene is Validate's business.
#include "Options.h"

#include <gdal.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <sstream>

namespace isodata_cli {
namespace {

bool ParseWhole(const std::string& text, int& value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || end == text.c_str()) return false;
    if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) return false;
    // strtol skips leading blanks; a value typed with them is still a typo.
    if (text.front() == ' ' || text.front() == '\t') return false;
    value = static_cast<int>(v);
    return true;
}

bool ParseReal(const std::string& text, double& value) {
    if (text.empty() || text.front() == ' ' || text.front() == '\t') return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || end == text.c_str() || !std::isfinite(v)) return false;
    value = v;
    return true;
}

ParseResult Fail(std::string message) {
    ParseResult r;
    r.status = ParseStatus::Error;
    r.message = std::move(message);
    return r;
}

// An option that takes a value: what to do with the text that follows it.
// Returns an empty string on success, else the complaint.
using ValueHandler = std::function<std::string(const std::string& option, const std::string& value, Options&)>;

ValueHandler Whole(int Options::*field) {
    return [field](const std::string& option, const std::string& value, Options& o) -> std::string {
        if (!ParseWhole(value, o.*field)) return option + " expects a whole number, got '" + value + "'";
        return {};
    };
}

ValueHandler Real(double Options::*field) {
    return [field](const std::string& option, const std::string& value, Options& o) -> std::string {
        if (!ParseReal(value, o.*field)) return option + " expects a number, got '" + value + "'";
        return {};
    };
}

ValueHandler Text(std::string Options::*field) {
    return [field](const std::string& option, const std::string& value, Options& o) -> std::string {
        if (value.empty()) return option + " expects a file name";
        o.*field = value;
        return {};
    };
}

const std::map<std::string, ValueHandler>& ValueOptions() {
    static const std::map<std::string, ValueHandler> table = {
        {"-b",
         [](const std::string& option, const std::string& value, Options& o) -> std::string {
             int band = 0;
             if (!ParseWhole(value, band)) return option + " expects a band number, got '" + value + "'";
             o.bands.push_back(band);
             return {};
         }},
        {"-classes", Whole(&Options::classes)},
        {"-initial", Whole(&Options::initialClasses)},
        {"-min-size", Whole(&Options::minClassPixels)},
        {"-merge-pairs", Whole(&Options::maxMergePairs)},
        {"-iter", Whole(&Options::maxIterations)},
        {"-std", Real(&Options::stdDevThreshold)},
        {"-merge-dist", Real(&Options::mergeDistance)},
        {"-preview", Text(&Options::previewPath)},
        {"--plugin", Text(&Options::pluginPath)},
        {"-plugin", Text(&Options::pluginPath)},
    };
    return table;
}

} // namespace

ParseResult ParseArguments(const std::vector<std::string>& args) {
    ParseResult result;
    Options& o = result.options;
    std::vector<std::string> files;
    bool optionsEnded = false;

    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            files.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
        } else if (arg == "--help" || arg == "-help" || arg == "-h") {
            result.status = ParseStatus::Help;
            return result;
        } else if (arg == "--version") {
            result.status = ParseStatus::Version;
            return result;
        } else if (arg == "-q" || arg == "-quiet") {
            o.quiet = true;
        } else if (arg == "-overwrite") {
            o.overwrite = true;
        } else if (auto it = ValueOptions().find(arg); it != ValueOptions().end()) {
            if (i + 1 >= args.size()) return Fail("option " + arg + " needs a value");
            const std::string complaint = it->second(arg, args[++i], o);
            if (!complaint.empty()) return Fail(complaint);
        } else {
            return Fail("unknown option '" + arg + "'");
        }
    }

    if (files.empty()) return Fail("no input and output file given");
    if (files.size() == 1) return Fail("no output file given after '" + files[0] + "'");
    if (files.size() > 2) return Fail("too many file names: '" + files[2] + "' (expected <input> <output>)");
    o.input = files[0];
    o.output = files[1];
    result.status = ParseStatus::Run;
    return result;
}

std::string UsageText() {
    return "Usage: isodata [--help] [--version] [-q] [-overwrite] [-b <band>]...\n"
           "               [-classes <n>] [-initial <n>] [-min-size <pixels>] [-merge-pairs <n>]\n"
           "               [-iter <n>] [-std <value>] [-merge-dist <value>]\n"
           "               [-preview <png>] [--plugin <library>]\n"
           "               <input> <output>\n";
}

std::string HelpText() {
    std::ostringstream s;
    s << "isodata: unsupervised ISODATA classification of a multi-band raster.\n\n"
      << UsageText() << "\n"
      << "Writes <output> as a one-band ENVI Byte class raster (raw pixels in <output>,\n"
         "the header in <output base>.hdr) georeferenced like <input>. Pixel value 0 is\n"
         "unclassified, 1..n are the classes, each with a name and a colour.\n\n"
         "Options:\n"
         "  -b <band>            Input band to classify, 1-based; repeat for several.\n"
         "                       Default: every band.\n"
         "  -classes <n>         Number of classes wanted, 1..255. Default: "
      << Defaults::kClasses << ".\n"
      << "  -initial <n>         Cluster centres to start from, 1..255. The iterations\n"
         "                       end early once the cluster count equals -classes\n"
         "                       after an odd-numbered one, so starting below\n"
         "                       -classes leaves room to split. Default: "
      << Defaults::kInitialClasses << ".\n"
      << "  -min-size <pixels>   Clusters with fewer pixels are dropped, 0 keeps all.\n"
         "                       Counted on the working copy, which is the input at\n"
         "                       full size when its shorter side is at most 100 pixels,\n"
         "                       at half size up to 5000 and at quarter size beyond.\n"
         "                       Default: "
      << Defaults::kMinClassPixels << ".\n"
      << "  -merge-pairs <n>     Most cluster pairs merged in one merge step, 0 or more.\n"
         "                       Default: "
      << Defaults::kMaxMergePairs << ".\n"
      << "  -iter <n>            Iterations to run, at least 1. Default: " << Defaults::kMaxIterations << ".\n"
      << "  -std <value>         A cluster whose largest band standard deviation exceeds\n"
         "                       this may be split, 0 or more. Default: "
      << Defaults::kStdDevThreshold << ".\n"
      << "  -merge-dist <value>  Cluster centres closer than this (Euclidean, in pixel\n"
         "                       values) may be merged, 0 or more. Default: "
      << Defaults::kMergeDistance << ".\n"
      << "  -preview <png>       Also write a quick-look PNG of the classes in their\n"
         "                       colours, at most 1024 pixels on its longer side.\n"
         "  -overwrite           Replace an existing output (and preview).\n"
         "  -q, -quiet           Print neither progress nor the summary.\n"
         "  --plugin <library>   Classification plug-in to load. Default: libisodata.so\n"
         "                       beside this program.\n"
         "  --help               Show this text.\n"
         "  --version            Show the version.\n\n"
         "Working files: while it runs, the classification writes <input>tem.tif and\n"
         "<input up to its last '.'><k>.km (k = 0, 1, ...) beside the input and\n"
         "removes them at the end, so the input's folder must be writable. isodata\n"
         "refuses to start if any of those names exists already.\n\n"
         "Exit status:\n"
         "  0  the class raster (and preview) were written\n"
         "  1  bad command line or input; nothing was run\n"
         "  2  the classification failed (or the plug-in could not be loaded);\n"
         "     a partial result is removed\n"
         "  3  the classification succeeded but the preview could not be written\n";
    return s.str();
}

std::string VersionText() {
    return std::string("isodata ") + ISODATA_VERSION + " (" + GDALVersionInfo("--version") + ")";
}

} // namespace isodata_cli
