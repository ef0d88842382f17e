// The rows of the option table, and the defaults read from them.
//
// Defaults are chosen for an 8-bit multispectral scene such as a Landsat
// subset: a handful of land-cover classes, spreads and distances in digital
// numbers. The run starts from half the classes wanted because its
// iterations stop as soon as the cluster count equals the target after an
// odd-numbered round: starting at the target would leave a single round,
// while starting below it lets the rounds split the spread-out clusters first.
#include "OptionTable.h"

#include <OutputFormats.h>
#include <Run.h>

#include <sstream>

namespace isodata_cli {
namespace {

// The run library's default format, kept where the option's row can say it.
const char* DefaultFormatName() {
    static const std::string name = isodata_run::DefaultFormat();
    return name.c_str();
}

// One row, written as a chain of what the option has.
class Row {
public:
    Row(std::initializer_list<const char*> names, Field field, const char* value = "") {
        for (const char* n : names) row_.names.emplace_back(n);
        row_.field = field;
        row_.value = value;
    }
    Row& Asks(ParseStatus status) { row_.asks = status; return *this; }
    Row& Default(double number) { row_.number = number; return *this; }
    Row& Default(const char* text) { row_.text = text; return *this; }
    Row& ByDefault(const char* words) { row_.byDefault = words; return *this; }
    Row& Range(double min, double max, const char* why) {
        row_.max = max;
        return AtLeast(min, why);
    }
    Row& AtLeast(double min, const char* why) {
        row_.min = min;
        row_.why = why;
        return *this;
    }
    Row& OutOfRange(const char* phrase) { row_.outOfRange = phrase; return *this; }
    Row& Expects(const char* what) { row_.expects = what; return *this; }
    Row& Choice(const char* word, ProgressFormat value) { row_.choices.emplace_back(word, value); return *this; }
    Row& Word(const char* word, double value) { row_.words.emplace_back(word, value); return *this; }
    Row& Automatic() { row_.automatic = true; return *this; }
    Row& Ask(isodata_run::AskField field) { row_.ask = field; return *this; }
    Row& FindsClasses() { row_.findsClasses = true; return *this; }
    Row& Help(const std::string& text) { row_.help = text; return *this; }
    Row& Json(const char* key) { row_.jsonKey = key; return *this; }
    Row& Qgis(const char* name, const char* label, const char* kind = "") {
        row_.qgisName = name;
        row_.qgisLabel = label;
        row_.qgisKind = kind;
        return *this;
    }
    Row& Python(const char* keyword) { row_.pythonName = keyword; return *this; }
    Row& NewUsageLine() { row_.newUsageLine = true; return *this; }
    operator OptionRow() const { return row_; }

private:
    OptionRow row_;
};

std::vector<OptionRow> Rows() {
    using O = Options;
    using F = isodata_run::AskField;
    return {
        Row({"--help", "-h"}, {}).Asks(ParseStatus::Help).Help("Show this text."),
        Row({"--version"}, {}).Asks(ParseStatus::Version).Help("Show the version."),
        Row({"--options-json"}, {}).Asks(ParseStatus::OptionsJson)
            .Help("Print these options as JSON (names, types, defaults, ranges, help), for programs that "
                  "offer them, such as the QGIS plug-in."),
        Row({"-q", "-quiet"}, &O::quiet).Help("Print neither progress nor the summary."),
        Row({"-overwrite"}, &O::overwrite).Python("overwrite").Json("overwrite").Ask(F::Overwrite)
            .Help("Replace an existing output (and preview) once the new one is complete."),
        Row({"-b"}, &O::bands, "<band>").Python("bands").Expects("a band number")
            .AtLeast(1, "bands are numbered from 1").OutOfRange("is not a band")
            .Help("Input bands to classify, 1-based, in the order given.").ByDefault("every band")
            .Json("b").Qgis("BANDS", "Bands to classify").Ask(F::Bands),
        Row({"-classes"}, &O::classes, "<n>").Python("n_classes").NewUsageLine().Default(8)
            .Range(1, 255, "between 1 and 255 classes fit a Byte class raster")
            .Help("Number of classes wanted.").Json("classes").Qgis("CLASSES", "Number of classes").Ask(F::Classes).FindsClasses(),
        Row({"-initial"}, &O::initialClasses, "<n>").Python("initial").Default(4)
            .Range(1, 255, "between 1 and 255 starting centres")
            .Help("Cluster centres to start from. The iterations end early once the cluster count equals "
                  "the classes wanted after an odd-numbered iteration, so starting below that number "
                  "leaves room to split.")
            .Json("initial").Qgis("INITIAL", "Initial cluster centres").Ask(F::InitialClasses).FindsClasses(),
        Row({"-min-size"}, &O::minClassPixels, "<pixels>").Python("min_size").Default(20)
            .AtLeast(0, "a cluster cannot have fewer than 0 pixels")
            .Help("Clusters with fewer pixels are dropped (0 keeps all). Counted on the working copy: " +
                  isodata_run::WorkingCopyRule() + ".")
            .Json("min-size").Qgis("MIN_SIZE", "Minimum cluster size (pixels)").Ask(F::MinClassPixels).FindsClasses(),
        Row({"-merge-pairs"}, &O::maxMergePairs, "<n>").Python("merge_pairs").Default(2)
            .AtLeast(0, "at least 0 pairs (0 merges nothing)")
            .Help("Most cluster pairs merged in one merge step.")
            .Json("merge-pairs").Qgis("MERGE_PAIRS", "Cluster pairs merged per step").Ask(F::MaxMergePairs).FindsClasses(),
        Row({"-iter"}, &O::maxIterations, "<n>").Python("max_iter").NewUsageLine().Default(10)
            .AtLeast(1, "at least 1 iteration (0 would run until the class count reaches -classes, "
                        "which may never happen)")
            .Help("Iterations to run.").Json("iter").Qgis("ITERATIONS", "Iterations").Ask(F::MaxIterations).FindsClasses(),
        Row({"-std"}, &O::stdDevThreshold, "<value>").Python("std").Default(10)
            .AtLeast(0, "a standard deviation is never negative")
            .Help("A cluster whose largest band standard deviation exceeds this may be split.")
            .Json("std").Qgis("STD", "Split threshold (standard deviation)").Ask(F::StdDevThreshold).FindsClasses(),
        Row({"-merge-dist"}, &O::mergeDistance, "<value>").Python("merge_dist").Default(20)
            .AtLeast(0, "a distance is never negative")
            .Help("Cluster centres closer than this (Euclidean distance, in pixel values) may be merged.")
            .Json("merge-dist").Qgis("MERGE_DIST", "Merge distance").Ask(F::MergeDistance).FindsClasses(),
        Row({"-oo"}, &O::openOptions, "<NAME=VALUE>").Python("open_options").NewUsageLine().Expects("NAME=VALUE")
            .Help("Open option of the input's GDAL driver (OVERVIEW_LEVEL=NONE, say); repeat for several. The "
                  "input is opened with them wherever it is read.")
            .Json("oo").Ask(F::OpenOptions),
        Row({"-srcnodata"}, &O::srcNodata, "<value>|None").Python("nodata")
            .Expects("a number, several in quotes, or None")
            .Help("Nodata value of the input's bands, replacing the one they declare: one value, or one a "
                  "band (\"0 0 255\"). None ignores declared nodata values, NaN and infinities too. Pixels "
                  "left out join no class and stay 0.")
            .ByDefault("the values the bands declare; NaN and infinities are left out as well")
            .Json("srcnodata").Qgis("SRCNODATA", "Nodata value(s), or None", "text").Ask(F::SrcNodata),
        Row({"-mask"}, &O::mask, "<raster>|none").Python("mask").Expects("a raster or none")
            .Help("A mask raster of the input's size, non-zero where pixels are valid; or none, which "
                  "ignores the input's own mask and alpha bands.")
            .ByDefault("the input's mask or alpha band, if it has one")
            .Json("mask").Qgis("MASK", "Mask raster (non-zero = valid)", "raster_or_none").Ask(F::Mask),
        Row({"-model-out"}, &O::modelOut, "<file.json>").Python("model_out").NewUsageLine().Expects("a file name")
            .Help("Also write the classes found as a model file (JSON: centres, colours, statistics), to "
                  "label other rasters with -apply.")
            .Json("model-out").Qgis("MODEL_OUT", "Class model file", "file_out").Ask(F::ModelOut),
        Row({"-apply"}, &O::apply, "<model.json>").Python("model").Expects("a model file")
            .Help("Label the input with the classes of a model file instead of finding classes: the same "
                  "labelling as the run that wrote it, in one pass. The bands and the nodata and mask rule "
                  "come from the model (-srcnodata and -mask still override the rule).")
            .Json("apply").Ask(F::Apply),
        Row({"-plain"}, &O::plain).Python("plain").Json("plain").Ask(F::Plain).Qgis("PLAIN", "Plain run (zero sums are background, overviews used)")
            .Help("The plug-in's plain run, exactly: pixels whose band values sum to zero stay unclassified "
                  "(background), so do pixels " + isodata_run::LabellingReachText() +
                  " or further from every centre, the working copy is read from "
                  "overviews where GDAL would, and nodata, NaN and masks are not looked at (as -srcnodata None "
                  "-mask none). By default every valid pixel is classified and the working copy comes from the "
                  "full-resolution pixels, so overviews never change the classes."),
        Row({"-threads"}, &O::threads, "<n>|ALL_CPUS").Python("threads").NewUsageLine().Default(0.0).Word("ALL_CPUS", 0)
            .ByDefault("ALL_CPUS").Expects("a count or ALL_CPUS")
            .Range(1, 1024, "from 1 thread to 1024, or ALL_CPUS")
            .Help("Threads the passes over the pixels share out to; the result is the same for every count.")
            .Json("threads").Ask(F::Threads),
        Row({"-mem"}, &O::memoryMB, "<MB>").Python("mem").Default(-1).Automatic().Expects("a number of megabytes")
            .AtLeast(0, "0 keeps the working copy on disk").Ask(F::Memory)
            .Help("Megabytes the working copy may take in memory instead of a file in the run folder "
                  "(0 keeps it on disk); with more than one thread, a GeoTIFF input that fits beside it "
                  "is then read only once, into memory, unless -plain. The run needs about 60 MB beside them.")
            .ByDefault("a quarter of the physical memory")
            .Json("mem"),
        Row({"-of"}, &O::format, "<format>").Python("format").NewUsageLine().Default(DefaultFormatName()).Ask(F::Format)
            .Expects("a GDAL format name")
            .Help("GDAL format of the output: " + isodata_run::DefaultFormat() +
                  ", GTiff, COG or any GDAL raster driver that writes files and "
                  "holds the classes exactly (no JPEG or other lossy compression, no VRT). GTiff and COG are "
                  "compressed losslessly (DEFLATE) unless -co says otherwise; class names go where the format "
                  "keeps them (for GeoTIFF, the .aux.xml beside it). The written file is read back and compared "
                  "with the classes before it is put in place.")
            .Json("of"),
        Row({"-co"}, &O::creationOptions, "<NAME=VALUE>").Python("creation_options").Expects("NAME=VALUE")
            .Help("Creation option of that format; repeat for several.").Json("co").Ask(F::CreationOptions),
        Row({"-preview"}, &O::previewPath, "<png>").Python("preview").Expects("a file name")
            .Help("Also write a quick-look PNG of the classes in their colours, at most " +
                  std::to_string(isodata_run::kPreviewMaxSide) + " pixels on its longer side.")
            .Json("preview").Ask(F::Preview),
        Row({"-report"}, &O::reportPath, "<file.html>").Python("report").NewUsageLine().Expects("a file name")
            .Help("Also write a report of the run as one HTML page that opens offline: the run, the class map "
                  "with its legend, the classes' spectral signatures, their areas, the convergence over the "
                  "iterations and how well the classes separate.")
            .Json("report").Ask(F::Report),
        Row({"-json"}, &O::json)
            .Help("Print the summary as one JSON object on stdout (also with -q); progress then goes to "
                  "stderr."),
        Row({"-progress-format"}, &O::progress, "bar|lines|machine").NewUsageLine()
            .Choice("bar", ProgressFormat::Bar).Choice("lines", ProgressFormat::Lines)
            .Choice("machine", ProgressFormat::Machine)
            .Help("bar (GDAL's 0...10...100 per stage; the default on a terminal), lines (a line per stage; "
                  "the default otherwise) or machine (\"progress <overall %> <stage>\" lines on stderr, for "
                  "programs that run isodata)."),
        Row({"--tmpdir"}, &O::tmpDir, "<folder>").Python("tmpdir").Expects("a folder").Ask(F::TmpDir)
            .Help("Where the run folder goes.").ByDefault("beside the output"),
        Row({"--debug"}, &O::gdalDebug).Python("debug").NewUsageLine()
            .Help("Show GDAL's messages as they come (as CPL_DEBUG=ON does)."),
        Row({"--plugin"}, &O::pluginPath, "<library>").Expects("a file name").Ask(F::Plugin)
            .Help("Classification plug-in to load.").ByDefault("libisodata.so beside this program"),
    };
}

} // namespace

const std::vector<OptionRow>& OptionTable() {
    static const std::vector<OptionRow> table = Rows();
    return table;
}

namespace {

template <class T>
bool Holds(const Field& field) {
    return std::holds_alternative<T Options::*>(field);
}

} // namespace

bool OptionRow::TakesValue() const { return !std::holds_alternative<std::monostate>(field) && !Holds<bool>(field); }

bool OptionRow::Repeatable() const { return Holds<std::vector<int>>(field) || Holds<std::vector<std::string>>(field); }

std::string OptionRow::TypeName() const {
    if (Holds<int>(field) || Holds<std::vector<int>>(field)) return "int";
    if (Holds<double>(field)) return "real";
    if (Holds<std::string>(field) || Holds<std::vector<std::string>>(field)) return "text";
    if (Holds<ProgressFormat>(field)) return "choice";
    return "flag";
}

Options DefaultOptions() {
    Options o;
    for (const OptionRow& row : OptionTable()) {
        if (auto f = std::get_if<int Options::*>(&row.field)) o.**f = static_cast<int>(row.number);
        if (auto f = std::get_if<double Options::*>(&row.field)) o.**f = row.number;
        if (auto f = std::get_if<std::string Options::*>(&row.field)) o.**f = row.text;
    }
    return o;
}

} // namespace isodata_cli

namespace isodata_cli {
namespace {

// The complaint about value of row, or nothing when it is within range or
// one of the row's words.
template <class T>
std::string CheckRange(const OptionRow& row, T value) {
    for (const auto& word : row.words)
        if (static_cast<double>(value) == word.second) return {};
    if ((!row.min || value >= *row.min) && (!row.max || value <= *row.max)) return {};
    std::ostringstream s;
    s << row.Shown() << " " << value << " " << row.outOfRange << ": " << row.why;
    return s.str();
}

} // namespace

std::string CheckWords(const Options& o) {
    for (const OptionRow& row : OptionTable()) {
        if (!o.given.count(row.Shown())) continue;
        if (row.findsClasses && !o.apply.empty())
            return row.Shown() + " cannot go with -apply: the model's classes are applied as they are";
        std::string problem;
        if (auto f = std::get_if<int Options::*>(&row.field)) problem = CheckRange(row, o.**f);
        if (auto f = std::get_if<double Options::*>(&row.field)) problem = CheckRange(row, o.**f);
        if (auto f = std::get_if<std::vector<int> Options::*>(&row.field))
            for (size_t i = 0; i < (o.**f).size() && problem.empty(); ++i) problem = CheckRange(row, (o.**f)[i]);
        if (!problem.empty()) return problem;
    }
    return {};
}

std::string Spelling(isodata_run::AskField field) {
    using F = isodata_run::AskField;
    if (field == F::Input) return "input";
    if (field == F::Output) return "output";
    for (const OptionRow& row : OptionTable())
        if (row.ask == field && field != F::None) return row.Shown();
    return {};
}

std::string WithRemedies(const std::string& message, const std::vector<isodata_run::Remedy>& remedies) {
    if (remedies.empty()) return message;
    std::string text = message + " (use ";
    for (size_t i = 0; i < remedies.size(); ++i)
        text += (i ? ", or " : "") + Spelling(remedies[i].field) + (remedies[i].how.empty() ? "" : " " + remedies[i].how);
    return text + ")";
}

std::string RefusalText(const isodata_run::Refusal& refusal) {
    const std::string name = Spelling(refusal.field);
    return WithRemedies(name.empty() ? refusal.problem : name + " " + refusal.problem, refusal.remedies);
}

} // namespace isodata_cli
