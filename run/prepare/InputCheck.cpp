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
#include "Checks.h"

#include "InputNames.h"
#include "Paths.h"

#include <GdalSession.h>

#include <cpl_minixml.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <sys/stat.h>

namespace isodata_run {
namespace {

} // namespace

Check CheckDatasetName(AskField field, const std::string& path) {
    if (IsVirtualPath(path)) return {};
    std::string file = path;
    if (!Exists(path)) {
        const auto sub = SplitSubdatasetName(path);
        if (!sub) return Refuse(field, Quote(path) + " does not exist");
        if (IsVirtualPath(sub->file)) return {};
        if (!Exists(sub->file)) return Refuse(field, Quote(path) + ": " + Quote(sub->file) + " does not exist");
        file = sub->file;
    }
    struct stat st {};
    if (stat(file.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode))
        return Refuse(field, Quote(file) + " is not a regular file");
    return {};
}

namespace {

// A raw file GDAL reads by offsets (ENVI, EHdr and the like) must hold every
// pixel its header promises: GDAL would read the missing ones as 0.
Check CheckRawLength(GDALDataset& ds, const std::string& name) {
    GDALDataset::RawBinaryLayout layout;
    if (!ds.GetRawBinaryLayout(layout) || ds.GetRasterCount() < 1) return {};
    const std::int64_t w = ds.GetRasterXSize(), h = ds.GetRasterYSize(), b = ds.GetRasterCount();
    const std::int64_t last = static_cast<std::int64_t>(layout.nImageOffset) + (h - 1) * layout.nLineOffset +
                              (w - 1) * layout.nPixelOffset + (b - 1) * layout.nBandOffset +
                              GDALGetDataTypeSizeBytes(layout.eDataType);
    VSIStatBufL st;
    if (VSIStatL(layout.osRawFilename.c_str(), &st) != 0 || static_cast<std::int64_t>(st.st_size) >= last) return {};
    return Refuse(AskField::Input, Quote(name) + " is shorter than its header says: " + Quote(layout.osRawFilename) +
                                       " lacks " + std::to_string(last - static_cast<std::int64_t>(st.st_size)) +
                                       " of its " + std::to_string(last) + " bytes");
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
Check CheckOpenOptions(GDALDriver* driver, const CPLStringList& options, const std::string& driverName) {
    if (options.empty()) return {};
    if (driverName == "VRT")
        return Refuse(AskField::OpenOptions,
                      "cannot go with a VRT input, which opens its sources with the options of its own "
                      "<OpenOptions> elements");
    const char* list = driver ? driver->GetMetadataItem(GDAL_DMD_OPENOPTIONLIST) : nullptr;
    const CPLXMLTreeCloser tree(list ? CPLParseXMLString(list) : nullptr);
    for (int i = 0; i < options.size(); ++i) {
        const std::string name = std::string(options[i]).substr(0, std::string(options[i]).find('='));
        bool known = EQUAL(name.c_str(), "OVERVIEW_LEVEL") || EQUAL(name.c_str(), "VALIDATE_OPEN_OPTIONS");
        for (const CPLXMLNode* n = tree ? tree->psChild : nullptr; n && !known; n = n->psNext)
            known = n->eType == CXT_Element && EQUAL(n->pszValue, "Option") &&
                    EQUAL(CPLGetXMLValue(n, "name", ""), name.c_str());
        if (!known)
            return Refuse(AskField::OpenOptions, std::string(options[i]) + ": driver " + driverName +
                                                     " has no open option " + name);
    }
    return {};
}

// Which bands are alpha, as GDAL tells: their colour interpretation says
// so, or another band's mask is an alpha band and is this one.
std::vector<bool> AlphaBands(GDALDataset& ds) {
    const int count = ds.GetRasterCount();
    std::vector<bool> alpha(static_cast<std::size_t>(count));
    for (int b = 1; b <= count; ++b) {
        GDALRasterBand* band = ds.GetRasterBand(b);
        if (band->GetColorInterpretation() == GCI_AlphaBand) alpha[static_cast<std::size_t>(b - 1)] = true;
        if (!(band->GetMaskFlags() & GMF_ALPHA)) continue;
        for (int other = 1; other <= count; ++other)
            if (band->GetMaskBand() == ds.GetRasterBand(other)) alpha[static_cast<std::size_t>(other - 1)] = true;
    }
    return alpha;
}

} // namespace

Check CheckInput(const RunAsk& ask, InputSettings& input, InputFacts& facts) {
    if (Check problem = CheckDatasetName(AskField::Input, ask.input)) return problem;
    for (const std::string& option : ask.openOptions)
        if (Check problem = CheckNameValue(AskField::OpenOptions, option)) return problem;
    const CPLStringList options = StringList(ask.openOptions);
    CPLErrorReset();
    GDALDatasetUniquePtr ds;
    {
        const isodata::QuietGdalErrors quiet;
        ds.reset(GDALDataset::Open(ask.input.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, options.List()));
    }
    if (!ds) {
        std::string message = Quote(ask.input) + " is not a raster GDAL can read";
        const std::string detail = CPLGetLastErrorMsg();
        if (!detail.empty()) message += " (" + detail + ")";
        return Refuse(AskField::Input, message);
    }
    input.path = ask.input;
    input.openOptions = ask.openOptions;
    input.bands = ds->GetRasterCount();
    input.width = ds->GetRasterXSize();
    input.height = ds->GetRasterYSize();
    for (int b = 1; b <= input.bands; ++b) {
        GDALRasterBand* band = ds->GetRasterBand(b);
        facts.bandTypes.emplace_back(GDALGetDataTypeName(band->GetRasterDataType()));
        facts.bandDescriptions.emplace_back(band->GetDescription());
        int hasNodata = 0;
        (void)band->GetNoDataValue(&hasNodata);
        input.declaresNodata = input.declaresNodata || hasNodata;
    }
    facts.alpha = AlphaBands(*ds);
    const CPLStringList files(ds->GetFileList());
    for (int i = 0; i < files.size(); ++i) input.files.emplace_back(files[i]);
    input.driver = ds->GetDriver() ? ds->GetDriver()->GetDescription() : "";
    if (input.bands < 1) {
        const std::string inside = SubdatasetList(*ds);
        return Refuse(AskField::Input, Quote(ask.input) + (inside.empty() ? " has no raster band" : " holds " + inside));
    }
    if (Check problem = CheckOpenOptions(ds->GetDriver(), options, input.driver)) return problem;
    return CheckRawLength(*ds, ask.input);
}

} // namespace isodata_run
