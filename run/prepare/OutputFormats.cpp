// The judgement of output formats, and the comparison behind it.
//
//  1. Reference formats and formats without Byte are refused by name.
//  2. Creation options that compress with loss are refused by name, read
//     as GDAL reads them (the first of a name counts), defaults included.
//  3. Otherwise a 16 x 16 raster of all 256 values, with a colour table,
//     class names and a geotransform (tiled formats such as GPKG need one),
//     is written to GDAL's memory file system and compared with what comes
//     back. A format that writes only to real files (netCDF goes through its
//     own library, which cannot reach GDAL's memory files) is written to a
//     temporary folder instead, removed afterwards. A refusal quotes GDAL's
//     message with the probe's file named in words, never by its path.
#include "FormatJudgement.h"

#include "Checks.h"
#include "Convert.h"

#include <FileNames.h>

#include <GdalSession.h>

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace isodata_run {
namespace {

constexpr int kProbeSide = 16;  // 256 pixels: every value once

struct Reference {
    const char* format;
    const char* why;
};
const Reference kReferences[] = {
    {"VRT", "a VRT refers to other files instead of holding the classes"},
    {"MEM", "MEM keeps the raster in memory and writes no file"},
};

bool On(const char* value) { return value && CPLTestBool(value); }
bool Below100(const char* value) { return value && std::atof(value) < 100.0; }

// A setting of options that makes format round the class numbers.
std::string LossySetting(const std::string& format, const CPLStringList& options) {
    const auto Given = [&options](const char* name) { return options.FetchNameValue(name); };
    if (EQUAL(format.c_str(), "JPEG")) return "JPEG compression changes pixel values";
    if (EQUAL(format.c_str(), "WEBP") && !On(Given("LOSSLESS"))) return "WEBP loses detail without LOSSLESS=YES";
    if (EQUAL(format.c_str(), "JP2OpenJPEG") &&
        ((Given("REVERSIBLE") && !On(Given("REVERSIBLE"))) || Below100(Given("QUALITY"))))
        return "JPEG 2000 loses detail with REVERSIBLE=NO or a QUALITY below 100";
    if (EQUAL(format.c_str(), "JPEGXL") &&
        ((Given("LOSSLESS") && !On(Given("LOSSLESS"))) ||
         (!Given("LOSSLESS") && (Given("DISTANCE") || Given("QUALITY")))))
        return "JPEG XL loses detail without LOSSLESS=YES";
    if (EQUAL(format.c_str(), "GPKG") && Given("TILE_FORMAT")) {
        const std::string tiles = Given("TILE_FORMAT");
        if (EQUAL(tiles.c_str(), "JPEG")) return "TILE_FORMAT=JPEG changes pixel values";
        if (EQUAL(tiles.c_str(), "WEBP")) return "TILE_FORMAT=WEBP loses detail";
    }
    if (!EQUAL(format.c_str(), "GTiff") && !EQUAL(format.c_str(), "COG")) return {};
    const char* compress = Given("COMPRESS");
    if (!compress) return {};
    if (EQUAL(compress, "JPEG")) return "COMPRESS=JPEG changes pixel values";
    if (EQUAL(compress, "WEBP") && EQUAL(format.c_str(), "COG") && (!Given("QUALITY") || Below100(Given("QUALITY"))))
        return "COMPRESS=WEBP loses detail below QUALITY=100";
    if (EQUAL(compress, "WEBP") && EQUAL(format.c_str(), "GTiff") && !On(Given("WEBP_LOSSLESS")))
        return "COMPRESS=WEBP loses detail without WEBP_LOSSLESS=YES";
    if (EQUAL(compress, "JXL") && Given("JXL_LOSSLESS") && !On(Given("JXL_LOSSLESS")))
        return "COMPRESS=JXL loses detail with JXL_LOSSLESS=NO";
    if (STARTS_WITH_CI(compress, "LERC") && Given("MAX_Z_ERROR") && std::atof(Given("MAX_Z_ERROR")) > 0.0)
        return "COMPRESS=" + std::string(compress) + " rounds values with a MAX_Z_ERROR above 0";
    return {};
}

bool WritesByte(GDALDriver* driver) {
    const char* types = driver->GetMetadataItem(GDAL_DMD_CREATIONDATATYPES);
    return !types || CPLStringList(CSLTokenizeString(types)).FindString("Byte") >= 0;
}

// A class raster of every value in memory, with colours and names.
GDALDatasetUniquePtr ProbeRaster() {
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr ds(mem->Create("", kProbeSide, kProbeSide, 1, GDT_Byte, nullptr));
    std::vector<GByte> values(kProbeSide * kProbeSide);
    GDALColorTable colours;
    CPLStringList names;
    for (int v = 0; v < kProbeSide * kProbeSide; ++v) {
        values[v] = static_cast<GByte>(v);
        const GDALColorEntry entry{static_cast<short>(v), static_cast<short>(255 - v), static_cast<short>(v / 2), 255};
        colours.SetColorEntry(v, &entry);
        names.AddString(("class" + std::to_string(v)).c_str());
    }
    GDALRasterBand* band = ds->GetRasterBand(1);
    if (band->RasterIO(GF_Write, 0, 0, kProbeSide, kProbeSide, values.data(), kProbeSide, kProbeSide, GDT_Byte, 0, 0,
                       nullptr) != CE_None)
        return nullptr;
    band->SetColorTable(&colours);
    band->SetCategoryNames(names.List());
    double transform[6] = {0, 1, 0, kProbeSide, 0, -1};  // a pixel a unit, north up
    ds->SetGeoTransform(transform);
    return ds;
}

// GDAL's last message with the probe's files named in words, or a note
// that it gave none.
std::string LastMessage(const std::string& folder) {
    std::string message = CPLGetLastErrorMsg();
    for (size_t at; (at = message.find(folder)) != std::string::npos;) {
        size_t end = at + folder.size();
        while (end < message.size() && !std::isspace(static_cast<unsigned char>(message[end])) && message[end] != ',' &&
               message[end] != ':' && message[end] != '\'' && message[end] != '"')
            ++end;
        message.replace(at, end - at, "a test file");
    }
    return message.empty() ? "GDAL gives no reason" : message;
}

// Writes the probe raster to folder and compares what comes back; the
// reason it cannot, or empty. created tells whether GDAL made a dataset.
std::string ProbeIn(const std::string& folder, GDALDriver* driver, const CPLStringList& options, bool& created) {
    const char* extension = driver->GetMetadataItem(GDAL_DMD_EXTENSION);
    const std::string path = folder + "/classes" + (extension && *extension ? std::string(".") + extension : "");
    CPLErrorReset();
    const GDALDatasetUniquePtr original = ProbeRaster();
    GDALDatasetUniquePtr copy(original ? driver->CreateCopy(path.c_str(), original.get(), FALSE, options.List(),
                                                            nullptr, nullptr)
                                       : nullptr);
    created = copy != nullptr;
    if (!copy) return "GDAL cannot write it: " + LastMessage(folder);
    copy.reset();  // closing writes the file
    const std::string closing = CPLGetLastErrorType() >= CE_Failure ? LastMessage(folder) : "";
    CPLErrorReset();
    copy.reset(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!copy) return "GDAL cannot read back what it wrote: " + (closing.empty() ? LastMessage(folder) : closing);
    std::string why;
    if (!SameClassRaster(*original, *copy, why)) why = "it comes back changed: " + why;
    return why;
}

// A new empty folder in the system's temporary folder, or empty.
std::string TemporaryFolder() {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::temp_directory_path(error);
    if (error) return {};
    std::string pattern = (base / "isodata-format-probe-XXXXXX").string();
    return mkdtemp(pattern.data()) ? pattern : std::string();
}

std::string Probe(GDALDriver* driver, const std::vector<std::string>& creationOptions) {
    CPLStringList options;
    for (const std::string& option : creationOptions) options.AddString(option.c_str());
    const isodata::QuietGdalErrors quiet;
    bool created = false;
    if (On(driver->GetMetadataItem(GDAL_DCAP_VIRTUALIO))) {
        const std::string folder = "/vsimem/isodata-format-probe-" + std::to_string(getpid());
        std::string why = ProbeIn(folder, driver, options, created);
        VSIRmdirRecursive(folder.c_str());
        if (created) return why;
    }
    const std::string folder = TemporaryFolder();
    if (folder.empty()) return {};  // left to the run's own read-back
    std::string why = ProbeIn(folder, driver, options, created);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return why;
}

std::string Colour(const GDALColorEntry* e) {
    std::ostringstream s;
    s << e->c1 << " " << e->c2 << " " << e->c3;
    return s.str();
}

// The first pixel where the bands part, in rows read one at a time.
bool SamePixels(GDALRasterBand* a, GDALRasterBand* b, std::string& difference) {
    const int width = a->GetXSize();
    std::vector<GByte> rowA(static_cast<size_t>(width)), rowB(rowA.size());
    for (int y = 0; y < a->GetYSize(); ++y) {
        if (a->RasterIO(GF_Read, 0, y, width, 1, rowA.data(), width, 1, GDT_Byte, 0, 0, nullptr) != CE_None ||
            b->RasterIO(GF_Read, 0, y, width, 1, rowB.data(), width, 1, GDT_Byte, 0, 0, nullptr) != CE_None) {
            difference = "row " + std::to_string(y) + " cannot be read: " + CPLGetLastErrorMsg();
            return false;
        }
        for (int x = 0; x < width; ++x)
            if (rowA[x] != rowB[x]) {
                std::ostringstream s;
                s << "pixel " << x << ", " << y << " is " << int{rowB[x]} << ", not " << int{rowA[x]};
                difference = s.str();
                return false;
            }
    }
    return true;
}

// Colours and names of original's values, where copy carries any.
bool SameLegend(GDALRasterBand* a, GDALRasterBand* b, std::string& difference) {
    const GDALColorTable *colours = a->GetColorTable(), *copied = b->GetColorTable();
    for (int v = 0; colours && copied && v < colours->GetColorEntryCount(); ++v) {
        const GDALColorEntry *e = colours->GetColorEntry(v), *c = copied->GetColorEntry(v);
        if (!c || c->c1 != e->c1 || c->c2 != e->c2 || c->c3 != e->c3) {
            difference = "the colour of " + std::to_string(v) + " is " + (c ? Colour(c) : "missing") + ", not " +
                         Colour(e);
            return false;
        }
    }
    const CPLStringList names(CSLDuplicate(a->GetCategoryNames())), copiedNames(CSLDuplicate(b->GetCategoryNames()));
    for (int v = 0; !copiedNames.empty() && v < names.size(); ++v)
        if (v >= copiedNames.size() || std::string(names[v]) != copiedNames[v]) {
            difference = "the name of " + std::to_string(v) + " is '" +
                         (v < copiedNames.size() ? copiedNames[v] : "") + "', not '" + names[v] + "'";
            return false;
        }
    return true;
}

} // namespace

bool SameClassRaster(GDALDataset& original, GDALDataset& copy, std::string& difference) {
    if (copy.GetRasterXSize() != original.GetRasterXSize() || copy.GetRasterYSize() != original.GetRasterYSize() ||
        copy.GetRasterCount() != 1) {
        std::ostringstream s;
        s << "it is " << copy.GetRasterXSize() << " x " << copy.GetRasterYSize() << " pixels in "
          << copy.GetRasterCount() << " bands, not " << original.GetRasterXSize() << " x "
          << original.GetRasterYSize() << " in 1";
        difference = s.str();
        return false;
    }
    GDALRasterBand *a = original.GetRasterBand(1), *b = copy.GetRasterBand(1);
    return SamePixels(a, b, difference) && SameLegend(a, b, difference);
}

std::string WhyNotExact(const std::string& format, const std::vector<std::string>& creationOptions) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.c_str());
    if (!driver) return "GDAL has no such format";
    for (const Reference& r : kReferences)
        if (EQUAL(r.format, driver->GetDescription())) return r.why;
    if (!WritesByte(driver)) return std::string(driver->GetDescription()) + " cannot write Byte pixels";
    const std::vector<std::string> options = CreationOptionsFor(driver->GetDescription(), creationOptions);
    CPLStringList list;
    for (const std::string& option : options) list.AddString(option.c_str());
    if (std::string lossy = LossySetting(driver->GetDescription(), list); !lossy.empty()) return lossy;
    return Probe(driver, options);
}

std::string ExactFormatNames() { return std::string("GTiff, COG or ") + isodata::kResultFormat; }

std::string DefaultFormat() { return isodata::kResultFormat; }

std::vector<ExactFormat> ExactFormats() {
    StartGdal();
    std::vector<ExactFormat> formats;
    GDALDriverManager* manager = GetGDALDriverManager();
    for (int i = 0; i < manager->GetDriverCount(); ++i) {
        GDALDriver* driver = manager->GetDriver(i);
        const char* extensions = driver->GetMetadataItem(GDAL_DMD_EXTENSIONS);
        if (!driver->GetMetadataItem(GDAL_DCAP_RASTER) || !extensions || !*extensions ||
            (!driver->GetMetadataItem(GDAL_DCAP_CREATE) && !driver->GetMetadataItem(GDAL_DCAP_CREATECOPY)) ||
            !WhyNotExact(driver->GetDescription(), {}).empty())
            continue;
        ExactFormat format{driver->GetDescription(), {}};
        const CPLStringList words(CSLTokenizeString(extensions));
        for (int w = 0; w < words.size(); ++w) format.extensions.emplace_back(words[w]);
        formats.push_back(format);
    }
    return formats;
}

} // namespace isodata_run
