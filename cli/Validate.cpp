// Checks a request before the plug-in sees it, in the order a person would
// fix things: the numbers (against the option table's ranges), the format
// and its creation options (it must hold the classes exactly), the input
// (a file or subdataset, opened with its open options), the output, the
// preview, then where the run folder goes and whether it has room there.
// The first problem ends the checks; what passes becomes the run's request.
//
// The plug-in passes bad values on unchecked and reports a failure without a
// reason, so values are checked here. Its working files live in the run
// folder, so the input's folder is only read.
#include "Validate.h"

#include "OptionTable.h"

#include <GdalSession.h>
#include <OutputFormats.h>
#include <Paths.h>

#include <climits>

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <QJsonDocument>

#include <filesystem>
#include <sstream>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_cli {

using isodata_run::Exists;
using isodata_run::FileNameOf;
using isodata_run::FolderIsWritable;
using isodata_run::FolderOf;
using isodata_run::ResultFiles;
using isodata_run::ResultFilesFor;
using isodata_run::RunRequest;
using isodata_run::SamePath;

namespace {

std::string Quote(const std::string& s) { return "'" + s + "'"; }

// The complaint about value of row, or nothing when it is within range.
template <class T>
std::string CheckRange(const OptionRow& row, T value) {
    if ((!row.min || value >= *row.min) && (!row.max || value <= *row.max)) return {};
    std::ostringstream s;
    s << row.Shown() << " " << value << " " << row.outOfRange << ": " << row.why;
    return s.str();
}

// The GDAL driver's short name as GDAL spells it, or a complaint naming the
// format or creation option at fault: the driver must write rasters and
// accept every -co.
std::string CheckFormat(const std::string& format, const std::vector<std::string>& creationOptions,
                        std::string& shortName) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.c_str());
    const bool writes = driver && driver->GetMetadataItem(GDAL_DCAP_RASTER) &&
                        (driver->GetMetadataItem(GDAL_DCAP_CREATECOPY) || driver->GetMetadataItem(GDAL_DCAP_CREATE));
    if (!writes) return "-of " + format + ": GDAL has no raster driver of that name that writes files";
    shortName = driver->GetDescription();
    for (const std::string& option : creationOptions)
        if (option.find('=') == std::string::npos || option.front() == '=')
            return "-co " + option + ": a creation option is NAME=VALUE";
    CPLStringList list;
    for (const std::string& option : creationOptions) list.AddString(option.c_str());
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    if (!GDALValidateCreationOptions(driver, list.List())) return std::string("-co: ") + CPLGetLastErrorMsg();
    const std::string why = isodata_run::WhyNotExact(shortName, creationOptions);
    if (why.empty()) return {};
    std::string named = "-of " + shortName;
    for (const std::string& option : creationOptions) named += " -co " + option;
    return named + " cannot hold the class raster exactly (" + why + "); use " + isodata_run::kExactFormats;
}

// Fills in every band when none was named.
std::string CheckBands(Options& o, const InputInfo& info) {
    if (o.bands.empty())
        for (int b = 1; b <= info.bandCount; ++b) o.bands.push_back(b);
    for (int band : o.bands) {
        if (band > info.bandCount) {
            std::ostringstream s;
            s << "-b " << band << ": input " << Quote(o.input) << " has only " << info.bandCount
              << (info.bandCount == 1 ? " band" : " bands");
            return s.str();
        }
    }
    return {};
}

// A file the run will write: not the input, and not an existing file unless
// -overwrite allows it.
std::string CheckNewFile(const char* what, const std::string& file, const std::string& named, const Options& o,
                         const InputInfo& input) {
    for (const std::string& inputFile : input.files) {
        if (SamePath(file, inputFile)) {
            if (file == named) return std::string(what) + " " + Quote(named) + " is the input itself";
            return std::string(what) + " " + Quote(named) + " would overwrite " + Quote(file) + ", part of the input";
        }
    }
    std::error_code ec;
    if (fs::is_directory(file, ec)) return std::string(what) + " " + Quote(file) + " is a folder";
    if (Exists(file) && !o.overwrite) {
        if (file == named)
            return std::string(what) + " " + Quote(named) + " already exists (use -overwrite to replace it)";
        return std::string(what) + " " + Quote(named) + ": " + Quote(file) +
               " already exists (use -overwrite to replace it)";
    }
    return {};
}

// The kernel refuses longer paths and names; the run folder adds a few
// dozen characters to the output's folder.
constexpr size_t kRunFolderMargin = 64;

std::string CheckLength(const char* what, const std::string& path) {
    if (path.size() + kRunFolderMargin < PATH_MAX && FileNameOf(path).size() <= NAME_MAX) return {};
    std::ostringstream s;
    s << what << " path of " << path.size() << " characters is too long for this system (at most "
      << PATH_MAX - kRunFolderMargin << ", and " << NAME_MAX << " for the file name)";
    return s.str();
}

std::string CheckFolder(const char* what, const std::string& path) {
    if (std::string problem = CheckLength(what, path); !problem.empty()) return problem;
    const std::string folder = FolderOf(path);
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) return std::string(what) + " folder " + Quote(folder) + " does not exist";
    if (!FolderIsWritable(folder)) return std::string(what) + " folder " + Quote(folder) + " is not writable";
    return {};
}

std::string CheckOutput(const Options& o, const InputInfo& input, const std::string& format) {
    if (std::string problem = CheckFolder("output", o.output); !problem.empty()) return problem;
    const ResultFiles result = ResultFilesFor(o.output, format == "ENVI");
    if (!result.header.empty() && SamePath(result.raw, result.header))
        return "output " + Quote(o.output) + " would be its own ENVI header; choose a name not ending in .hdr";
    for (const std::string& file : result.All())
        if (std::string problem = CheckNewFile("output", file, o.output, o, input); !problem.empty())
            return problem;
    return {};
}

std::string CheckPreview(const Options& o, const InputInfo& input, const std::string& format) {
    if (o.previewPath.empty()) return {};
    if (std::string problem = CheckFolder("preview", o.previewPath); !problem.empty()) return problem;
    for (const std::string& file : ResultFilesFor(o.output, format == "ENVI").All())
        if (SamePath(o.previewPath, file))
            return "preview " + Quote(o.previewPath) + " would overwrite " + Quote(file) + ", part of the output";
    return CheckNewFile("preview", o.previewPath, o.previewPath, o, input);
}

std::string CheckModelOut(const Options& o, const InputInfo& input, const std::string& format) {
    if (o.modelOut.empty()) return {};
    if (std::string problem = CheckFolder("model", o.modelOut); !problem.empty()) return problem;
    for (const std::string& file : ResultFilesFor(o.output, format == "ENVI").All())
        if (SamePath(o.modelOut, file))
            return "model " + Quote(o.modelOut) + " would overwrite " + Quote(file) + ", part of the output";
    if (!o.previewPath.empty() && SamePath(o.modelOut, o.previewPath))
        return "model " + Quote(o.modelOut) + " is the preview's name too";
    return CheckNewFile("model", o.modelOut, o.modelOut, o, input);
}

std::string CheckTmpDir(const Options& o) {
    if (o.tmpDir.empty()) return {};
    std::error_code ec;
    if (!fs::is_directory(o.tmpDir, ec)) return "--tmpdir " + Quote(o.tmpDir) + " is not a folder";
    if (!FolderIsWritable(o.tmpDir)) return "--tmpdir " + Quote(o.tmpDir) + " is not writable";
    return {};
}

} // namespace

std::string CheckRanges(const Options& o) {
    for (const OptionRow& row : OptionTable()) {
        std::string problem;
        if (auto f = std::get_if<int Options::*>(&row.field)) problem = CheckRange(row, o.**f);
        if (auto f = std::get_if<double Options::*>(&row.field)) problem = CheckRange(row, o.**f);
        if (auto f = std::get_if<std::vector<int> Options::*>(&row.field))
            for (size_t i = 0; i < (o.**f).size() && problem.empty(); ++i) problem = CheckRange(row, (o.**f)[i]);
        if (!problem.empty()) return problem;
    }
    return {};
}

Validation ValidateRequest(const Options& options) {
    Validation v;
    v.checked = options;
    Options& o = v.checked;
    InputInfo input;
    std::string problem = CheckRanges(o);
    if (problem.empty()) problem = CheckFormat(options.format, o.creationOptions, o.format);
    if (problem.empty()) problem = OpenInput(o.input, o.openOptions, input);
    RunRequest& request = v.request;
    if (problem.empty()) problem = CheckApply(o, input, request);
    if (problem.empty()) problem = CheckBands(o, input);
    if (problem.empty()) problem = CheckMask(o, input, request.mask);
    if (problem.empty()) problem = CheckOutput(o, input, o.format);
    if (problem.empty()) problem = CheckPreview(o, input, o.format);
    if (problem.empty()) problem = CheckModelOut(o, input, o.format);
    if (problem.empty()) problem = CheckTmpDir(o);
    if (problem.empty()) problem = CheckResources(o, request);
    v.problem = problem;
    if (!problem.empty()) return v;
    const RunRequest settings = request;  // what the checks above filled in
    request = RequestFor(o, input);
    request.mask = settings.mask;
    request.model.applyCentres = settings.model.applyCentres;
    request.threads = settings.threads;
    request.memoryBytes = settings.memoryBytes;
    v.space = isodata_run::EstimateSpace(request);
    if (!v.space.Enough()) v.problem = isodata_run::SpaceRefusal(v.space);
    return v;
}

RunRequest RequestFor(const Options& o, const InputInfo& input) {
    RunRequest r;
    r.input = {o.input, input.files, o.openOptions, input.driver, input.width, input.height, input.bandCount};
    r.output = {o.output, o.format, o.creationOptions, o.previewPath, o.overwrite};
    r.classification = {o.classes,        o.initialClasses,  o.minClassPixels, o.maxMergePairs,
                        o.maxIterations,  o.stdDevThreshold, o.mergeDistance,  {}};
    for (int band : o.bands) r.classification.bandIndices.push_back(band - 1);
    r.model.outPath = o.modelOut;
    r.model.parametersJson = QJsonDocument(ParametersJson(o)).toJson(QJsonDocument::Compact).toStdString();
    r.tmpDir = o.tmpDir;
    r.pluginPath = o.pluginPath;
    r.gdalDebug = o.debug;
    return r;
}

} // namespace isodata_cli
