// The checks of the settings a run takes beside the plug-in's record: the
// model to apply, the nodata and mask rule, threads and memory. Each problem
// is one message naming the option and the value or file at fault.
//
//  1. -apply reads the model and holds the input to it: the bands it names,
//     in the types it was made on, its classes numbered 1..n.
//  2. The mask rule starts as the model's (or the default: everything the
//     input declares) and -srcnodata and -mask change their parts of it.
//  3. -threads and -mem become a count and a byte budget.
#include "Validate.h"

#include <GdalSession.h>
#include <Model.h>
#include <Paths.h>

#include <gdal_priv.h>

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

namespace isodata_cli {

using isodata_run::MaskSettings;
using isodata_run::Model;

namespace {

std::string Quote(const std::string& s) { return "'" + s + "'"; }

bool ParseNumber(const std::string& text, double& value) {
    errno = 0;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && errno == 0 && *end == '\0';
}

bool ParseCount(const std::string& text, long long& value) {
    errno = 0;
    char* end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return !text.empty() && errno == 0 && *end == '\0';
}

// Values apart by blanks or commas.
std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text + " ") {
        if (c == ' ' || c == ',' || c == '\t') {
            if (!word.empty()) words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    return words;
}

std::string CheckNodata(const std::string& given, const InputInfo& input, MaskSettings& mask) {
    if (given.empty()) return {};
    if (given == "None" || given == "none") {
        mask.nodata = MaskSettings::Nodata::Ignored;
        mask.nodataValues.clear();
        mask.nonFinite = false;
        return {};
    }
    std::vector<double> values;
    for (const std::string& word : Words(given)) {
        double v = 0;
        if (!ParseNumber(word, v))
            return "-srcnodata expects a number, several in quotes, or None, got " + Quote(given);
        values.push_back(v);
    }
    if (values.empty() || static_cast<int>(values.size()) > input.bandCount) {
        std::ostringstream s;
        s << "-srcnodata " << Quote(given) << " gives " << values.size() << " values: give one, or one for each of "
          << "the input's " << input.bandCount << " bands";
        return s.str();
    }
    mask.nodata = MaskSettings::Nodata::Given;
    mask.nodataValues = values;
    return {};
}

std::string CheckMaskRaster(const std::string& given, const InputInfo& input, MaskSettings& mask) {
    if (given.empty()) return {};
    if (given == "none") {
        mask.datasetMasks = false;
        mask.maskRaster.clear();
        return {};
    }
    if (!isodata_run::IsVirtualPath(given) && !isodata_run::Exists(given))
        return "-mask " + Quote(given) + " does not exist";
    GDALDatasetUniquePtr ds;
    {
        const isodata::QuietGdalErrors quiet;
        ds.reset(GDALDataset::Open(given.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    }
    if (!ds || ds->GetRasterCount() < 1) return "-mask " + Quote(given) + " is not a raster GDAL can read";
    if (ds->GetRasterXSize() != input.width || ds->GetRasterYSize() != input.height) {
        std::ostringstream s;
        s << "-mask " << Quote(given) << " is " << ds->GetRasterXSize() << " x " << ds->GetRasterYSize()
          << " pixels, the input " << input.width << " x " << input.height << ": a mask raster must match it";
        return s.str();
    }
    // The classification runs in the run folder: the mask is named from anywhere.
    mask.maskRaster = isodata_run::IsVirtualPath(given) ? given : std::filesystem::absolute(given).string();
    return {};
}

// The model's bands in the input: present, and of the type the classes were made on.
std::string CheckModelBands(const Model& model, const std::string& path, const InputInfo& input) {
    for (const isodata_run::ModelBand& b : model.bands) {
        std::ostringstream s;
        if (b.band < 1 || b.band > input.bandCount) {
            s << "-apply " << Quote(path) << " needs band " << b.band << ", the input has " << input.bandCount;
            return s.str();
        }
        const std::string& type = input.bandTypes[static_cast<std::size_t>(b.band - 1)];
        if (type != b.dataType) {
            s << "-apply " << Quote(path) << ": band " << b.band << " of the input is " << type
              << ", the model's classes were made on " << b.dataType;
            return s.str();
        }
    }
    for (std::size_t i = 0; i < model.classes.size(); ++i)
        if (model.classes[i].value != static_cast<int>(i) + 1)
            return "-apply " + Quote(path) + ": the classes are not numbered 1.." +
                   std::to_string(model.classes.size()) + " in order";
    return {};
}

} // namespace

std::string CheckApply(Options& o, const InputInfo& input, isodata_run::RunRequest& request) {
    request.mask = MaskSettings();
    request.mask.on = true;
    if (o.apply.empty()) return {};
    if (!o.bands.empty()) return "-b cannot go with -apply: the model names the bands its classes were made of";
    Model model;
    std::string error;
    if (!isodata_run::ReadModel(o.apply, model, error)) return "-apply: " + error;
    if (std::string problem = CheckModelBands(model, o.apply, input); !problem.empty()) return problem;
    for (const isodata_run::ModelBand& b : model.bands) o.bands.push_back(b.band);
    for (const isodata_run::ModelClass& c : model.classes) request.model.applyCentres.push_back(c.centre);
    request.mask = model.mask;
    request.mask.maskRaster.clear();  // a mask raster belongs to the raster it was made for
    return {};
}

std::string CheckMask(const Options& o, const InputInfo& input, MaskSettings& mask) {
    if (std::string problem = CheckNodata(o.srcNodata, input, mask); !problem.empty()) return problem;
    if (std::string problem = CheckMaskRaster(o.mask, input, mask); !problem.empty()) return problem;
    // Nothing left to look at is the plain run.
    mask.on = mask.nodata != MaskSettings::Nodata::Ignored || mask.datasetMasks || mask.nonFinite ||
              !mask.maskRaster.empty();
    return {};
}

std::string CheckResources(const Options& o, isodata_run::RunRequest& request) {
    long long count = 0;
    if (o.threads == "ALL_CPUS" || o.threads == "all_cpus") {
        request.threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    } else if (ParseCount(o.threads, count) && count >= 1 && count <= 1024) {
        request.threads = static_cast<int>(count);
    } else {
        return "-threads expects a count from 1 to 1024 or ALL_CPUS, got " + Quote(o.threads);
    }
    if (o.memory.empty()) {
        const long long physical = static_cast<long long>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
        request.memoryBytes = physical > 0 ? physical / 4 : 0;
    } else if (ParseCount(o.memory, count) && count >= 0 && count <= (1LL << 40)) {
        request.memoryBytes = count << 20;
    } else {
        return "-mem expects a number of megabytes (0 or more), got " + Quote(o.memory);
    }
    return {};
}

} // namespace isodata_cli
