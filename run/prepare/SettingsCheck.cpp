// The checks of the settings a run takes beside the output: the model to
// apply and the bands, the nodata and mask rule, threads and memory.
//
//  1. A model to apply is read and the input held to it: the bands it
//     names, in the types it was made on, its classes numbered 1..n. The
//     bands are the model's then, else the ones asked for, else all.
//  2. The mask rule starts as the model's (or the default: everything the
//     input declares) and the nodata and mask settings change their parts.
//  3. Threads and memory become a count and a byte budget.
#include "Checks.h"

#include "InputNames.h"
#include "Model.h"
#include "Paths.h"

#include <GdalSession.h>

#include <gdal_priv.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace isodata_run {
namespace {

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

// A nodata value: any number strtod reads, NaN and infinities included.
bool ParseNodata(const std::string& text, double& value) {
    errno = 0;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && errno == 0 && *end == '\0';
}

// Whether value lies within the values of the GDAL type named typeName.
bool InTypeRange(double value, const std::string& typeName) {
    int clamped = 0, rounded = 0;
    GDALAdjustValueToDataType(GDALGetDataTypeByName(typeName.c_str()), value, &clamped, &rounded);
    return !clamped;
}

// The model's bands in the input: present, of the type and, where both are
// described, of the description the classes were made on, in a raster of
// as many bands; and every centre a value of its band's type.
Check CheckModelBands(const Model& model, const std::string& path, const InputFacts& facts) {
    const int count = static_cast<int>(facts.bandTypes.size());
    for (const ModelBand& b : model.bands) {
        if (b.band < 1 || b.band > count)
            return Refuse(AskField::Apply, Quote(path) + " needs band " + std::to_string(b.band) + ", the input has " +
                                               std::to_string(count));
        const std::size_t index = static_cast<std::size_t>(b.band - 1);
        const std::string& type = facts.bandTypes[index];
        if (type != b.dataType)
            return Refuse(AskField::Apply, Quote(path) + ": band " + std::to_string(b.band) + " of the input is " +
                                               type + ", the model's classes were made on " + b.dataType);
        const std::string& description = facts.bandDescriptions[index];
        if (!description.empty() && !b.description.empty() && description != b.description)
            return Refuse(AskField::Apply, Quote(path) + ": band " + std::to_string(b.band) + " of the input is " +
                                               Quote(description) + ", the model's band " + std::to_string(b.band) +
                                               " was " + Quote(b.description) + " (bands in another order?)");
    }
    if (model.bandCount > 0 && model.bandCount != count)
        return Refuse(AskField::Apply, Quote(path) + " was made on a raster of " + std::to_string(model.bandCount) +
                                           " bands, the input has " + std::to_string(count));
    for (const ModelClass& c : model.classes)
        for (std::size_t i = 0; i < c.centre.size(); ++i)
            if (!InTypeRange(c.centre[i], model.bands[i].dataType))
                return Refuse(AskField::Apply, Quote(path) + ": the centre of class " + std::to_string(c.value) +
                                                   " lies outside the values of " + model.bands[i].dataType);
    for (std::size_t i = 0; i < model.classes.size(); ++i)
        if (model.classes[i].value != static_cast<int>(i) + 1)
            return Refuse(AskField::Apply, Quote(path) + ": the classes are not numbered 1.." +
                                               std::to_string(model.classes.size()) + " in order");
    return {};
}

Check CheckApply(const RunAsk& ask, const InputFacts& facts, RunRequest& request, std::vector<int>& bands) {
    if (!ask.bands.empty())
        return Refuse(AskField::Bands, "cannot go with a model to apply: the model names the bands its classes were made of");
    Model model;
    std::string error;
    if (!ReadModel(ask.apply, model, error)) return Refuse(AskField::Apply, error);
    if (Check problem = CheckModelBands(model, ask.apply, facts)) return problem;
    for (const ModelBand& b : model.bands) bands.push_back(b.band);
    for (const ModelClass& c : model.classes) {
        request.model.applyCentres.push_back(c.centre);
        request.model.applyLooks.push_back({c.name, c.hasColour, c.red, c.green, c.blue});
    }
    request.mask = model.mask;
    request.mask.maskRaster.clear();  // a mask raster belongs to the raster it was made for
    request.plainRules = model.plainRules;
    return {};
}

Check CheckNodata(const std::string& given, int bandCount, MaskSettings& mask) {
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
        if (!ParseNodata(word, v))
            return Refuse(AskField::SrcNodata, "expects a number, several in quotes, or None, got " + Quote(given));
        values.push_back(v);
    }
    if (values.size() != 1 && static_cast<int>(values.size()) != bandCount)
        return Refuse(AskField::SrcNodata, Quote(given) + " gives " + std::to_string(values.size()) +
                                               " values: give one, or one for each of the input's " +
                                               std::to_string(bandCount) + " bands");
    mask.nodata = MaskSettings::Nodata::Given;
    mask.nodataValues = values;
    return {};
}

Check CheckMaskRaster(const std::string& given, const InputSettings& input, MaskSettings& mask) {
    if (given.empty()) return {};
    if (given == "none") {
        mask.datasetMasks = false;
        mask.maskRaster.clear();
        return {};
    }
    if (Check problem = CheckDatasetName(AskField::Mask, given)) return problem;
    GDALDatasetUniquePtr ds;
    {
        const isodata::QuietGdalErrors quiet;
        ds.reset(GDALDataset::Open(given.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    }
    if (!ds || ds->GetRasterCount() < 1) return Refuse(AskField::Mask, Quote(given) + " is not a raster GDAL can read");
    if (ds->GetRasterXSize() != input.width || ds->GetRasterYSize() != input.height)
        return Refuse(AskField::Mask, Quote(given) + " is " + std::to_string(ds->GetRasterXSize()) + " x " +
                                          std::to_string(ds->GetRasterYSize()) + " pixels, the input " +
                                          std::to_string(input.width) + " x " + std::to_string(input.height) +
                                          ": a mask raster must match it");
    // The classification runs in the run folder: the mask is named from anywhere.
    mask.maskRaster = Anchored(given);
    const CPLStringList files(ds->GetFileList());
    for (int i = 0; i < files.size(); ++i) mask.maskFiles.emplace_back(files[i]);
    return {};
}

} // namespace

std::int64_t PhysicalMemory() {
    const long long bytes = static_cast<long long>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
    return bytes > 0 ? bytes : 0;
}

Check CheckModelAndBands(const RunAsk& ask, const InputFacts& facts, RunRequest& request) {
    request.mask = MaskSettings();
    std::vector<int> bands = ask.bands;
    if (!ask.apply.empty())
        if (Check problem = CheckApply(ask, facts, request, bands)) return problem;
    const int count = request.input.bands;
    // Every band by default but alpha bands, which are masks, not data.
    if (bands.empty())
        for (int b = 1; b <= count; ++b)
            if (!facts.alpha[static_cast<std::size_t>(b - 1)]) bands.push_back(b);
    if (bands.empty()) return Refuse(AskField::Bands, "none given, and every band of the input is an alpha band");
    for (int band : bands) {
        if (band < 1 || band > count)
            return Refuse(AskField::Bands, std::to_string(band) + ": input " + Quote(ask.input) + " has only " +
                                               std::to_string(count) + (count == 1 ? " band" : " bands"));
        request.classification.bandIndices.push_back(band - 1);
    }
    return {};
}

Check CheckMask(const RunAsk& ask, RunRequest& request) {
    MaskSettings& mask = request.mask;
    if (ask.plain) {
        // The plain run reads every pixel as data.
        if (!ask.srcNodata.empty()) return Refuse(AskField::SrcNodata, "cannot go with the plain run, which reads no nodata");
        if (!ask.mask.empty()) return Refuse(AskField::Mask, "cannot go with the plain run, which reads no mask");
        request.plainRules = true;
        mask = MaskSettings();
        mask.nodata = MaskSettings::Nodata::Ignored;
        mask.datasetMasks = mask.nonFinite = false;
        return {};
    }
    if (Check problem = CheckNodata(ask.srcNodata, request.input.bands, mask)) return problem;
    if (Check problem = CheckMaskRaster(ask.mask, request.input, mask)) return problem;
    // Nothing left to look at is the plain run.
    mask.on = mask.nodata != MaskSettings::Nodata::Ignored || mask.datasetMasks || mask.nonFinite ||
              !mask.maskRaster.empty();
    return {};
}

Check CheckResources(const RunAsk& ask, RunRequest& request) {
    if (ask.threads < 0) return Refuse(AskField::Threads, "cannot be negative (0 is one for every processor)");
    request.threads = ask.threads > 0 ? ask.threads : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    if (ask.memoryMB < -1) return Refuse(AskField::Memory, "cannot be negative (0 keeps the working copy on disk)");
    const std::int64_t physical = PhysicalMemory();
    if (ask.memoryMB < 0) {
        request.memoryBytes = physical > 0 ? physical / 4 : 0;
        return {};
    }
    request.memoryBytes = static_cast<std::int64_t>(ask.memoryMB) << 20;
    if (physical > 0 && request.memoryBytes > physical)
        return Refuse(AskField::Memory, std::to_string(ask.memoryMB) + " is more than this machine's " +
                                            std::to_string(physical >> 20) + " MB of memory");
    return {};
}

} // namespace isodata_run
