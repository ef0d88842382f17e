// The input's checks: the name must stand for a raster GDAL reads with the
// open options given, a file, a virtual path or one dataset of a container.
//
//  1. The file the name stands for (itself, or the file inside a subdataset
//     name) must exist and be a regular file or a folder: GDAL would wait
//     forever on a FIFO, and a device is no raster.
//  2. GDAL opens it with the open options; a container of datasets is
//     refused with the names of its datasets, as gdalinfo lists them.
//  3. Every open option must be one the driver lists, or one GDAL takes for
//     every driver.
#include "Validate.h"

#include <GdalSession.h>
#include <InputNames.h>
#include <Paths.h>

#include <cpl_minixml.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <sys/stat.h>

namespace isodata_cli {

using isodata_run::Exists;
using isodata_run::IsVirtualPath;

namespace {

std::string Quote(const std::string& s) { return "'" + s + "'"; }

// The file a name stands for, itself or the file of a subdataset name, must
// be there and be a file: GDAL would wait forever on a FIFO.
std::string CheckInputFile(const std::string& path) {
    if (IsVirtualPath(path)) return {};
    std::string file = path;
    if (!Exists(path)) {
        const auto sub = isodata_run::SplitSubdatasetName(path);
        if (!sub) return "input " + Quote(path) + " does not exist";
        if (IsVirtualPath(sub->file)) return {};
        if (!Exists(sub->file)) return "input " + Quote(path) + ": " + Quote(sub->file) + " does not exist";
        file = sub->file;
    }
    struct stat st {};
    if (stat(file.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode))
        return "input " + Quote(file) + " is not a regular file";
    return {};
}

// A container's datasets as gdalinfo lists them: "NAME (DESC)", the first few.
std::string SubdatasetList(GDALDataset& ds) {
    constexpr int kShown = 8;
    const CPLStringList items(CSLDuplicate(ds.GetMetadata("SUBDATASETS")));
    std::string list;
    int count = 0;
    for (; items.FetchNameValue(("SUBDATASET_" + std::to_string(count + 1) + "_NAME").c_str()); ++count) {
        if (count >= kShown) continue;
        const std::string key = "SUBDATASET_" + std::to_string(count + 1);
        const char* desc = items.FetchNameValue((key + "_DESC").c_str());
        list += (count ? ", " : "") + std::string(items.FetchNameValue((key + "_NAME").c_str())) +
                (desc ? " (" + std::string(desc) + ")" : "");
    }
    if (count > kShown) list += ", and " + std::to_string(count - kShown) + " more (gdalinfo lists them)";
    return count == 0 ? std::string() : (count == 1 ? "a dataset; name it: " : "several datasets; name one: ") + list;
}

// Open options the driver lists, or that GDAL takes for every driver; a VRT
// input's sources carry their own.
std::string CheckOpenOptions(GDALDriver* driver, const CPLStringList& options, const std::string& driverName) {
    if (options.empty()) return {};
    if (driverName == "VRT")
        return "-oo: a VRT input opens its sources with the options of its own <OpenOptions> elements";
    const char* list = driver ? driver->GetMetadataItem(GDAL_DMD_OPENOPTIONLIST) : nullptr;
    const CPLXMLTreeCloser tree(list ? CPLParseXMLString(list) : nullptr);
    for (int i = 0; i < options.size(); ++i) {
        const std::string name = std::string(options[i]).substr(0, std::string(options[i]).find('='));
        bool known = EQUAL(name.c_str(), "OVERVIEW_LEVEL") || EQUAL(name.c_str(), "VALIDATE_OPEN_OPTIONS");
        for (const CPLXMLNode* n = tree ? tree->psChild : nullptr; n && !known; n = n->psNext)
            known = n->eType == CXT_Element && EQUAL(n->pszValue, "Option") &&
                    EQUAL(CPLGetXMLValue(n, "name", ""), name.c_str());
        if (!known) return "-oo " + std::string(options[i]) + ": driver " + driverName + " has no open option " + name;
    }
    return {};
}

} // namespace

std::string OpenInput(const std::string& path, const std::vector<std::string>& openOptions, InputInfo& info) {
    if (std::string problem = CheckInputFile(path); !problem.empty()) return problem;
    for (const std::string& option : openOptions)
        if (option.find('=') == std::string::npos || option.front() == '=')
            return "-oo " + option + ": an open option is NAME=VALUE";
    CPLStringList options;
    for (const std::string& option : openOptions) options.AddString(option.c_str());
    CPLErrorReset();
    GDALDatasetUniquePtr ds;
    {
        const isodata::QuietGdalErrors quiet;
        ds.reset(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, options.List()));
    }
    if (!ds) {
        std::string message = "input " + Quote(path) + " is not a raster GDAL can read";
        const std::string detail = CPLGetLastErrorMsg();
        if (!detail.empty()) message += " (" + detail + ")";
        return message;
    }
    info.bandCount = ds->GetRasterCount();
    info.width = ds->GetRasterXSize();
    info.height = ds->GetRasterYSize();
    for (int b = 1; b <= info.bandCount; ++b)
        info.bandTypes.emplace_back(GDALGetDataTypeName(ds->GetRasterBand(b)->GetRasterDataType()));
    const CPLStringList files(ds->GetFileList());
    for (int i = 0; i < files.size(); ++i) info.files.emplace_back(files[i]);
    info.driver = ds->GetDriver() ? ds->GetDriver()->GetDescription() : "";
    if (info.bandCount < 1) {
        const std::string inside = SubdatasetList(*ds);
        return "input " + Quote(path) + (inside.empty() ? " has no raster band" : " holds " + inside);
    }
    return CheckOpenOptions(ds->GetDriver(), options, info.driver);
}

} // namespace isodata_cli
