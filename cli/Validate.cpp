// Checks a request before the plug-in sees it, in the order a person would
// fix things: the numbers, the input, the output, the preview, then where
// the run folder goes. The first problem ends the checks.
//
// The plug-in passes bad values on unchecked and reports a failure without a
// reason, so values are checked here. Its working files live in the run
// folder, so the input's folder is only read.
#include "Validate.h"

#include "Convert.h"
#include "Paths.h"

#include <GdalSession.h>

#include <climits>

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <filesystem>
#include <limits>
#include <sstream>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_cli {
namespace {

// Class numbers are pixel values of a Byte raster, 0 meaning unclassified.
constexpr int kMaxClasses = 255;

std::string Quote(const std::string& s) { return "'" + s + "'"; }

std::string CheckRange(const char* option, int value, int low, int high, const char* why) {
    if (value >= low && value <= high) return {};
    std::ostringstream s;
    s << option << " " << value << " is out of range: " << why;
    return s.str();
}

std::string CheckNonNegative(const char* option, double value, const char* why) {
    if (value >= 0.0) return {};
    std::ostringstream s;
    s << option << " " << value << " is out of range: " << why;
    return s.str();
}

struct InputInfo {
    int bandCount = 0;
    std::vector<std::string> files;  // every file GDAL reads for the input
};

std::string OpenInput(const std::string& path, InputInfo& info) {
    if (!IsVirtualPath(path) && !Exists(path)) return "input " + Quote(path) + " does not exist";
    CPLErrorReset();
    GDALDatasetUniquePtr ds;
    {
        const isodata::QuietGdalErrors quiet;
        ds.reset(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    }
    if (!ds) {
        std::string message = "input " + Quote(path) + " is not a raster GDAL can read";
        const std::string detail = CPLGetLastErrorMsg();
        if (!detail.empty()) message += " (" + detail + ")";
        return message;
    }
    info.bandCount = ds->GetRasterCount();
    const CPLStringList files(ds->GetFileList());
    for (int i = 0; i < files.size(); ++i) info.files.emplace_back(files[i]);
    if (info.bandCount < 1) return "input " + Quote(path) + " has no raster band";
    return {};
}

std::string CheckBands(const Options& o, const InputInfo& info, std::vector<int>& indices) {
    indices.clear();
    if (o.bands.empty()) {
        for (int b = 0; b < info.bandCount; ++b) indices.push_back(b);
        return {};
    }
    for (int band : o.bands) {
        if (band > info.bandCount) {
            std::ostringstream s;
            s << "-b " << band << ": input " << Quote(o.input) << " has only " << info.bandCount
              << (info.bandCount == 1 ? " band" : " bands");
            return s.str();
        }
        indices.push_back(band - 1);
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
        if (file == named) return std::string(what) + " " + Quote(named) + " already exists (use -overwrite to replace it)";
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

std::string CheckTmpDir(const Options& o) {
    if (o.tmpDir.empty()) return {};
    std::error_code ec;
    if (!fs::is_directory(o.tmpDir, ec)) return "--tmpdir " + Quote(o.tmpDir) + " is not a folder";
    if (!FolderIsWritable(o.tmpDir)) return "--tmpdir " + Quote(o.tmpDir) + " is not writable";
    return {};
}

} // namespace

std::string CheckParameters(const Options& o) {
    for (int band : o.bands)
        if (band < 1) return "-b " + std::to_string(band) + " is not a band: bands are numbered from 1";
    constexpr int kNoLimit = std::numeric_limits<int>::max();
    const std::string problems[] = {
        CheckRange("-classes", o.classes, 1, kMaxClasses, "between 1 and 255 classes fit a Byte class raster"),
        CheckRange("-initial", o.initialClasses, 1, kMaxClasses, "between 1 and 255 starting centres"),
        CheckRange("-min-size", o.minClassPixels, 0, kNoLimit, "a cluster cannot have fewer than 0 pixels"),
        CheckRange("-merge-pairs", o.maxMergePairs, 0, kNoLimit, "at least 0 pairs (0 merges nothing)"),
        CheckRange("-iter", o.maxIterations, 1, kNoLimit,
                   "at least 1 iteration (0 would run until the class count reaches -classes, "
                   "which may never happen)"),
        CheckNonNegative("-std", o.stdDevThreshold, "a standard deviation is never negative"),
        CheckNonNegative("-merge-dist", o.mergeDistance, "a distance is never negative"),
    };
    for (const std::string& problem : problems)
        if (!problem.empty()) return problem;
    return {};
}

Validation ValidateRequest(const Options& o) {
    Validation v;
    InputInfo input;
    std::string& format = v.request.format;
    std::string problem = CheckParameters(o);
    if (problem.empty()) problem = CheckFormat(o.format, o.creationOptions, format);
    if (problem.empty()) problem = OpenInput(o.input, input);
    if (problem.empty()) problem = CheckBands(o, input, v.request.bandIndices);
    if (problem.empty()) problem = CheckOutput(o, input, format);
    if (problem.empty()) problem = CheckPreview(o, input, format);
    if (problem.empty()) problem = CheckTmpDir(o);
    v.message = problem;
    v.ok = problem.empty();
    v.request.inputFiles = input.files;
    return v;
}

} // namespace isodata_cli
