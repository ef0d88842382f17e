// The output's checks, in the order a person would fix things: the format
// and its creation options (it must hold the classes exactly), the output,
// the preview and the model file (new files, not the input's, in writable
// folders, with names the system takes once the run folder's part is
// added), then the run folder's place.
//
// The plug-in's working files live in the run folder, so the input's folder
// is only read.
#include "Checks.h"
#include "Run.h"

#include "FormatJudgement.h"
#include "Paths.h"

#include <FileNames.h>
#include <GdalSession.h>

#include <cpl_error.h>
#include <gdal_priv.h>

#include <climits>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_run {

std::string Quote(const std::string& s) { return "'" + s + "'"; }

Check CheckNameValue(AskField field, const std::string& option) {
    if (option.find('=') != std::string::npos && option.front() != '=') return {};
    const char* what = field == AskField::OpenOptions ? "an open option" : "a creation option";
    return Refuse(field, option + ": " + what + " is NAME=VALUE");
}

CPLStringList StringList(const std::vector<std::string>& items) {
    CPLStringList list;
    for (const std::string& item : items) list.AddString(item.c_str());
    return list;
}

namespace {

// The kernel refuses longer paths and names; the run folder adds a few
// dozen characters to the output's folder.
constexpr size_t kRunFolderMargin = 64;

Check CheckLength(AskField field, const std::string& path) {
    if (path.size() + kRunFolderMargin < PATH_MAX && FileNameOf(path).size() <= NAME_MAX) return {};
    return Refuse(field, "path of " + std::to_string(path.size()) + " characters is too long for this system (at most " +
                             std::to_string(PATH_MAX - kRunFolderMargin) + ", and " + std::to_string(NAME_MAX) +
                             " for the file name)");
}

Check CheckFolder(AskField field, const std::string& path) {
    if (Check problem = CheckLength(field, path)) return problem;
    const std::string folder = FolderOf(path);
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) return Refuse(field, "folder " + Quote(folder) + " does not exist");
    if (!FolderIsWritable(folder)) return Refuse(field, "folder " + Quote(folder) + " is not writable");
    return {};
}

// A file the run will write: none the run reads (the input, the mask
// raster, the model to apply), and not an existing file unless overwriting
// is allowed.
Check CheckNewFile(AskField field, const std::string& file, const std::string& named, const RunAsk& ask,
                   const RunRequest& request) {
    const std::pair<const std::vector<std::string>*, const char*> read[] = {
        {&request.input.files, "the input"}, {&request.mask.maskFiles, "the mask raster"}};
    for (const auto& [files, what] : read)
        for (const std::string& readFile : *files) {
            if (!SamePath(file, readFile)) continue;
            if (file == named) return Refuse(field, Quote(named) + " is " + what + " itself");
            return Refuse(field, Quote(named) + " would overwrite " + Quote(file) + ", part of " + what);
        }
    if (!ask.apply.empty() && SamePath(file, ask.apply))
        return Refuse(field, Quote(named) + " is the model to apply");
    std::error_code ec;
    if (fs::is_directory(file, ec)) return Refuse(field, Quote(file) + " is a folder");
    if (Exists(file) && !ask.overwrite)
        return Refuse(field, (file == named ? Quote(named) : Quote(named) + ": " + Quote(file)) + " already exists",
                      {{AskField::Overwrite, "to replace it"}});
    return {};
}

// A side file the run writes beside the output: none of the output's files.
Check CheckSideFile(AskField field, const std::string& path, const RunRequest& request, const RunAsk& ask) {
    if (path.empty()) return {};
    if (Check problem = CheckFolder(field, path)) return problem;
    for (const std::string& file : ResultFilesFor(request.output.path, request.output.format).All())
        if (SamePath(path, file))
            return Refuse(field, Quote(path) + " would overwrite " + Quote(file) + ", part of the output");
    return CheckNewFile(field, path, path, ask, request);
}

Check CheckOutput(const RunAsk& ask, const RunRequest& request) {
    if (Check problem = CheckFolder(AskField::Output, ask.output)) return problem;
    const ResultFiles result = ResultFilesFor(ask.output, request.output.format);
    if (!result.header.empty() && SamePath(result.raw, result.header))
        return Refuse(AskField::Output, Quote(ask.output) + " would be its own header; choose a name not ending in .hdr");
    for (const std::string& file : result.All())
        if (Check problem = CheckNewFile(AskField::Output, file, ask.output, ask, request)) return problem;
    return {};
}

// A new HTML file of its own, and the chart library the page embeds in reach.
Check CheckReport(const RunAsk& ask, const RunRequest& request) {
    if (ask.reportPath.empty()) return {};
    if (Check problem = CheckSideFile(AskField::Report, ask.reportPath, request, ask)) return problem;
    for (const std::string* other : {&ask.modelOut, &ask.previewPath})
        if (!other->empty() && SamePath(ask.reportPath, *other))
            return Refuse(AskField::Report, Quote(ask.reportPath) + " is the name of another file of the run too");
    if (ChartLibraryPath().empty())
        return Refuse(AskField::Report, "needs the chart library the page embeds, which is not installed (Debian's "
                                        "libjs-chart.js; or name its chart.min.js in ISODATA_CHART_JS)");
    return {};
}

Check CheckRunFolderPlace(const RunAsk& ask, RunRequest& request) {
    request.runFolderPlace = ask.tmpDir.empty() ? FolderOf(ask.output) : ask.tmpDir;
    if (ask.tmpDir.empty()) return {};
    std::error_code ec;
    if (!fs::is_directory(ask.tmpDir, ec)) return Refuse(AskField::TmpDir, Quote(ask.tmpDir) + " is not a folder");
    if (!FolderIsWritable(ask.tmpDir)) return Refuse(AskField::TmpDir, Quote(ask.tmpDir) + " is not writable");
    return {};
}

} // namespace

// The GDAL driver's short name as GDAL spells it: the driver must write
// rasters, accept every creation option and hold the classes exactly.
Check CheckFormat(const RunAsk& ask, OutputSettings& output) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(ask.format.c_str());
    const bool writes = driver && driver->GetMetadataItem(GDAL_DCAP_RASTER) &&
                        (driver->GetMetadataItem(GDAL_DCAP_CREATECOPY) || driver->GetMetadataItem(GDAL_DCAP_CREATE));
    if (!writes) return Refuse(AskField::Format, ask.format + ": GDAL has no raster driver of that name that writes files");
    output.format = driver->GetDescription();
    output.creationOptions = ask.creationOptions;
    for (const std::string& option : ask.creationOptions)
        if (Check problem = CheckNameValue(AskField::CreationOptions, option)) return problem;
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    if (!GDALValidateCreationOptions(driver, StringList(ask.creationOptions).List()))
        return Refuse(AskField::CreationOptions, std::string("refused: ") + CPLGetLastErrorMsg());
    const std::string why = WhyNotExact(output.format, ask.creationOptions);
    if (why.empty()) return {};
    std::string named = output.format;
    for (size_t i = 0; i < ask.creationOptions.size(); ++i)
        named += (i ? ", " : " with ") + ask.creationOptions[i];
    return Refuse(AskField::Format,
                  named + " cannot hold the class raster exactly (" + why + "); use " + ExactFormatNames());
}

Check CheckOutputs(const RunAsk& ask, RunRequest& request) {
    request.output.path = ask.output;
    request.output.previewPath = ask.previewPath;
    request.output.reportPath = ask.reportPath;
    request.output.overwrite = ask.overwrite;
    request.model.outPath = ask.modelOut;
    if (Check problem = CheckOutput(ask, request)) return problem;
    if (Check problem = CheckSideFile(AskField::Preview, ask.previewPath, request, ask)) return problem;
    if (Check problem = CheckSideFile(AskField::ModelOut, ask.modelOut, request, ask)) return problem;
    if (!ask.modelOut.empty() && !ask.previewPath.empty() && SamePath(ask.modelOut, ask.previewPath))
        return Refuse(AskField::ModelOut, Quote(ask.modelOut) + " is the preview's name too");
    if (Check problem = CheckReport(ask, request)) return problem;
    return CheckRunFolderPlace(ask, request);
}

} // namespace isodata_run
