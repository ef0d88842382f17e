// Format conversion through GDALDriver::CreateCopy. GDAL keeps the colour
// table in the file where the format has room for it and puts the category
// names into its .aux.xml beside it where it has not; both are published.
#include "Convert.h"

#include "Paths.h"

#include <GdalSession.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <filesystem>
#include <system_error>

namespace isodata_cli {
namespace {

constexpr const char* kPluginFormat = "ENVI";

struct FormatDefaults {
    const char* format;
    std::vector<std::string> options;
};

const std::vector<FormatDefaults>& Defaults() {
    static const std::vector<FormatDefaults> table = {
        {"GTiff", {"COMPRESS=DEFLATE"}},
        {"COG", {"COMPRESS=DEFLATE", "OVERVIEW_COMPRESS=DEFLATE", "RESAMPLING=NEAREST"}},
    };
    return table;
}

std::string Key(const std::string& option) { return option.substr(0, option.find('=')); }

} // namespace

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
    if (!GDALValidateCreationOptions(driver, list.List()))
        return std::string("-co: ") + CPLGetLastErrorMsg();
    return {};
}

bool NeedsConversion(const std::string& format, const std::vector<std::string>& creationOptions) {
    return !EQUAL(format.c_str(), kPluginFormat) || !creationOptions.empty();
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
    const ResultFiles from = ResultFilesFor(envi), to = ResultFilesFor(target);
    for (const auto& [side, copied] : {std::pair(from.rpcText, to.rpcText), std::pair(from.rpb, to.rpb)}) {
        std::error_code ec;
        if (Exists(side) && !std::filesystem::copy_file(side, copied, ec)) {
            error = "cannot copy the RPC side file: " + ec.message();
            return false;
        }
    }
    return true;
}

} // namespace isodata_cli
