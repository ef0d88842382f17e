// Format conversion through GDALDriver::CreateCopy. GDAL keeps the colour
// table in the file where the format has room for it and puts the category
// names into its .aux.xml beside it where it has not; both are published.
// The copy is read back and compared with the plug-in's raster before
// anything else looks at it, so a format that changed a value never
// replaces a file.
#include "Convert.h"

#include "FormatJudgement.h"
#include "Paths.h"

#include <FileNames.h>
#include <KalDataSource.h>

#include <cpl_string.h>
#include <gdal_priv.h>

namespace isodata_run {
namespace {

struct FormatDefaults {
    const char* format;
    std::vector<std::string> options;
};

const std::vector<FormatDefaults>& Defaults() {
    static const std::vector<FormatDefaults> table = {
        {"GTiff", {"COMPRESS=DEFLATE"}},
        {"COG", {"COMPRESS=DEFLATE", "OVERVIEW_COMPRESS=DEFLATE", "RESAMPLING=NEAREST"}},
        // AUTO tiles are JPEG where a full tile has no colour table to keep.
        {"GPKG", {"TILE_FORMAT=PNG"}},
    };
    return table;
}

std::string Key(const std::string& option) { return option.substr(0, option.find('=')); }

} // namespace

bool NeedsConversion(const std::string& format, const std::vector<std::string>& creationOptions) {
    return !IsResultFormat(format) || !creationOptions.empty();
}

std::vector<std::string> CreationOptionsFor(const std::string& format, const std::vector<std::string>& given) {
    std::vector<std::string> options;
    for (const FormatDefaults& d : Defaults()) {
        if (!EQUAL(d.format, format.c_str())) continue;
        for (const std::string& option : d.options) {
            bool overridden = false;
            for (const std::string& g : given) overridden = overridden || EQUAL(Key(g).c_str(), Key(option).c_str());
            if (!overridden) options.push_back(option);
        }
    }
    options.insert(options.end(), given.begin(), given.end());
    return options;
}

bool ConvertResult(const std::string& envi, const std::string& target, const std::string& format,
                   const std::vector<std::string>& creationOptions, std::string& error) {
    GDALDatasetUniquePtr source(GDALDataset::Open(envi.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.c_str());
    CPLStringList options;
    for (const std::string& option : CreationOptionsFor(format, creationOptions)) options.AddString(option.c_str());
    GDALDatasetUniquePtr copy(source && driver ? driver->CreateCopy(target.c_str(), source.get(), FALSE,
                                                                    options.List(), nullptr, nullptr)
                                               : nullptr);
    if (!copy) {
        error = "cannot write the result as " + format + ": " + CPLGetLastErrorMsg();
        return false;
    }
    copy.reset();  // closing writes the file and its .aux.xml
    copy.reset(GDALDataset::Open(target.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    std::string difference = copy ? "" : std::string("it cannot be opened: ") + CPLGetLastErrorMsg();
    if (!copy || !SameClassRaster(*source, *copy, difference)) {
        error = "the result written as " + format + " is not the class raster: " + difference;
        return false;
    }
    copy.reset();
    const isodata::RpcSideFiles rpc = isodata::RpcSideFilePaths(envi);
    if (!Exists(rpc.text) && !Exists(rpc.rpb)) return true;
    if (KalDataSource::DatasetFactory::CopyRPCFile(QString::fromStdString(envi), QString::fromStdString(target)))
        return true;
    error = "cannot copy the RPC side file of the result to '" + FolderOf(target) + "'";
    return false;
}

} // namespace isodata_run
