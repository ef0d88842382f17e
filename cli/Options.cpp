// Parses isodata's command line with QCommandLineParser in single-dash word
// mode, so options read like GDAL's utilities (-classes 8, -b 1 -b 3) and the
// double-dash spellings work too. Only the form of each value is checked
// here; whether a value makes sense for the scene is Validate's business.
#include "Options.h"

#include <QCommandLineParser>
#include <QStringList>

#include <gdal.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <sstream>

namespace isodata_cli {
namespace {

bool ParseWhole(const std::string& text, int& value) {
    // strtol skips leading blanks; a value typed with them is still a typo.
    if (text.empty() || text.front() == ' ' || text.front() == '\t') return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || end == text.c_str()) return false;
    if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) return false;
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

// What to do with one value of an option; returns the complaint, or nothing.
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

ValueHandler Text(std::string Options::*field, const char* what) {
    return [field, what](const std::string& option, const std::string& value, Options& o) -> std::string {
        if (value.empty()) return option + " expects " + what;
        o.*field = value;
        return {};
    };
}

std::string Band(const std::string& option, const std::string& value, Options& o) {
    int band = 0;
    if (!ParseWhole(value, band)) return option + " expects a band number, got '" + value + "'";
    o.bands.push_back(band);
    return {};
}

std::string CreationOption(const std::string& option, const std::string& value, Options& o) {
    if (value.empty()) return option + " expects NAME=VALUE";
    o.creationOptions.push_back(value);
    return {};
}

std::string Progress(const std::string& option, const std::string& value, Options& o) {
    if (value == "bar") o.progress = ProgressFormat::Bar;
    else if (value == "lines") o.progress = ProgressFormat::Lines;
    else if (value == "machine") o.progress = ProgressFormat::Machine;
    else return option + " expects bar, lines or machine, got '" + value + "'";
    return {};
}

// An option with a value; `shown` is how messages spell it. Options that may
// be repeated get every value in order, the others only their last one.
struct ValueOption {
    const char* name;
    const char* shown;
    bool repeatable;
    ValueHandler apply;
};

const std::vector<ValueOption>& ValueOptions() {
    static const std::vector<ValueOption> table = {
        {"b", "-b", true, Band},
        {"classes", "-classes", false, Whole(&Options::classes)},
        {"initial", "-initial", false, Whole(&Options::initialClasses)},
        {"min-size", "-min-size", false, Whole(&Options::minClassPixels)},
        {"merge-pairs", "-merge-pairs", false, Whole(&Options::maxMergePairs)},
        {"iter", "-iter", false, Whole(&Options::maxIterations)},
        {"std", "-std", false, Real(&Options::stdDevThreshold)},
        {"merge-dist", "-merge-dist", false, Real(&Options::mergeDistance)},
        {"preview", "-preview", false, Text(&Options::previewPath, "a file name")},
        {"of", "-of", false, Text(&Options::format, "a GDAL format name")},
        {"co", "-co", true, CreationOption},
        {"progress-format", "-progress-format", false, Progress},
        {"tmpdir", "--tmpdir", false, Text(&Options::tmpDir, "a folder")},
        {"plugin", "--plugin", false, Text(&Options::pluginPath, "a file name")},
    };
    return table;
}

struct Flag {
    QStringList names;
    bool Options::*field;  // null for help and version
};

const std::vector<Flag>& Flags() {
    static const std::vector<Flag> table = {
        {{"q", "quiet"}, &Options::quiet},
        {{"overwrite"}, &Options::overwrite},
        {{"debug"}, &Options::debug},
        {{"json"}, &Options::json},
        {{"h", "help"}, nullptr},
        {{"version"}, nullptr},
    };
    return table;
}

std::string Stripped(const std::string& arg) {
    const size_t start = arg.find_first_not_of('-');
    const size_t equals = arg.find('=');
    return start == std::string::npos ? std::string() : arg.substr(start, equals - start);
}

ParseResult Fail(std::string message) {
    ParseResult r;
    r.message = std::move(message);
    return r;
}

// The parser takes the word after a value option as its value whatever it
// looks like, so the only value that can be missing is after the last word.
std::string MissingValue(const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--") break;
        if (arg.size() < 2 || arg[0] != '-' || arg.find('=') != std::string::npos) continue;
        for (const ValueOption& v : ValueOptions()) {
            if (Stripped(arg) != v.name) continue;
            if (i + 1 == args.size()) return "option " + arg + " needs a value";
            ++i;
        }
    }
    return {};
}

// The word as typed that named an option the parser did not know.
std::string TypedUnknown(const std::vector<std::string>& args, const QString& name) {
    for (const std::string& arg : args)
        if (arg.size() > 1 && arg[0] == '-' && QString::fromStdString(Stripped(arg)) == name) return arg;
    return "-" + name.toStdString();
}

std::string ApplyValues(const QCommandLineParser& parser, Options& o) {
    for (const ValueOption& v : ValueOptions()) {
        const QStringList values = parser.values(QString::fromLatin1(v.name));
        const int first = v.repeatable ? 0 : static_cast<int>(values.size()) - 1;
        for (int i = std::max(first, 0); i < values.size(); ++i)
            if (std::string complaint = v.apply(v.shown, values[i].toStdString(), o); !complaint.empty())
                return complaint;
    }
    return {};
}

} // namespace

ParseResult ParseArguments(const std::vector<std::string>& args) {
    if (std::string missing = MissingValue(args); !missing.empty()) return Fail(missing);
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const ValueOption& v : ValueOptions())
        parser.addOption(QCommandLineOption(QString::fromLatin1(v.name), QString(), QStringLiteral("value")));
    for (const Flag& f : Flags()) parser.addOption(QCommandLineOption(f.names));
    QStringList words{QStringLiteral("isodata")};
    for (const std::string& a : args) words << QString::fromStdString(a);
    if (!parser.parse(words)) {
        const QStringList unknown = parser.unknownOptionNames();
        if (!unknown.isEmpty()) return Fail("unknown option '" + TypedUnknown(args, unknown.first()) + "'");
        return Fail(parser.errorText().toStdString());
    }

    ParseResult result;
    if (parser.isSet(QStringLiteral("help"))) result.status = ParseStatus::Help;
    else if (parser.isSet(QStringLiteral("version"))) result.status = ParseStatus::Version;
    if (result.status != ParseStatus::Error) return result;

    Options& o = result.options;
    for (const Flag& f : Flags())
        if (f.field && parser.isSet(f.names.first())) o.*f.field = true;
    if (std::string complaint = ApplyValues(parser, o); !complaint.empty()) return Fail(complaint);

    const QStringList files = parser.positionalArguments();
    if (files.isEmpty()) return Fail("no input and output file given");
    if (files.size() == 1) return Fail("no output file given after '" + files[0].toStdString() + "'");
    if (files.size() > 2)
        return Fail("too many file names: '" + files[2].toStdString() + "' (expected <input> <output>)");
    o.input = files[0].toStdString();
    o.output = files[1].toStdString();
    result.status = ParseStatus::Run;
    return result;
}

std::string UsageText() {
    return "Usage: isodata [--help] [--version] [-q] [-overwrite] [-b <band>]...\n"
           "               [-classes <n>] [-initial <n>] [-min-size <pixels>] [-merge-pairs <n>]\n"
           "               [-iter <n>] [-std <value>] [-merge-dist <value>]\n"
           "               [-of <format>] [-co <NAME=VALUE>]... [-preview <png>] [-json]\n"
           "               [-progress-format bar|lines|machine] [--tmpdir <folder>]\n"
           "               [--debug] [--plugin <library>]\n"
           "               <input> <output>\n";
}

namespace {

// How a run treats the files around it, and what its exit status says.
std::string RunFolderHelp() {
    return "The run folder: isodata works in a private folder it creates beside the\n"
         "output (or under --tmpdir), holding links to the input's files, the\n"
         "classification's working copy (up to as large as the input: 32-bit values\n"
         "of every band at full, half or quarter size) and scratch files (4 bytes a\n"
         "working-copy pixel), and the new result. Only when everything succeeded is\n"
         "the result moved to <output>; otherwise, or when interrupted, the folder is\n"
         "removed and no file of yours is changed. A folder left by a killed run is\n"
         "removed by the next run in the same place. The input's folder is only read.\n\n"
         "Exit status:\n"
         "  0    the class raster (and preview) were written\n"
         "  1    bad command line or input; nothing was run\n"
         "  2    the classification failed (or the plug-in could not be loaded);\n"
         "       nothing was changed\n"
         "  3    the classification succeeded but the preview could not be written\n"
         "  129, 130, 143  ended by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was changed\n";
}

} // namespace

std::string HelpText() {
    std::ostringstream s;
    s << "isodata: unsupervised ISODATA classification of a multi-band raster.\n\n"
      << UsageText() << "\n"
      << "Writes <output> as a one-band Byte class raster georeferenced like <input>,\n"
         "by default in ENVI format (raw pixels in <output>, the header in\n"
         "<output base>.hdr). Pixel value 0 is unclassified, 1..n are the classes,\n"
         "each with a name and a colour.\n\n"
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
      << "  -of <format>         GDAL format of the output: ENVI (default), GTiff, COG or\n"
         "                       any GDAL raster driver that writes files. GTiff and COG\n"
         "                       are compressed losslessly (DEFLATE) unless -co says\n"
         "                       otherwise; class names go where the format keeps them\n"
         "                       (for GeoTIFF, the .aux.xml beside it).\n"
         "  -co <NAME=VALUE>     Creation option of that format; repeat for several.\n"
         "  -preview <png>       Also write a quick-look PNG of the classes in their\n"
         "                       colours, at most 1024 pixels on its longer side.\n"
         "  -overwrite           Replace an existing output (and preview) once the new\n"
         "                       one is complete.\n"
         "  -q, -quiet           Print neither progress nor the summary.\n"
         "  -json                Print the summary as one JSON object on stdout (also\n"
         "                       with -q); progress then goes to stderr.\n"
         "  -progress-format <f> bar (GDAL's 0...10...100 per stage; the default on a\n"
         "                       terminal), lines (a line per stage; the default\n"
         "                       otherwise) or machine (\"progress <overall %> <stage>\"\n"
         "                       lines on stderr, for programs that run isodata).\n"
         "  --tmpdir <folder>    Where the run folder goes. Default: beside the output.\n"
         "  --debug              Show GDAL's messages as they come (as CPL_DEBUG=ON does).\n"
         "  --plugin <library>   Classification plug-in to load. Default: libisodata.so\n"
         "                       beside this program.\n"
         "  --help               Show this text.\n"
         "  --version            Show the version.\n\n"
      << RunFolderHelp();
    return s.str();
}

std::string VersionText() {
    return std::string("isodata ") + ISODATA_VERSION + " (" + GDALVersionInfo("--version") + ")";
}

} // namespace isodata_cli
