// The plug-in's report added to the run's report, and turned into the model.
//
//  1. Pixels left out are put down to the kind of mask band the chosen
//     bands have (nodata, alpha, a mask band), to non-finite values and to
//     the mask raster, each by its own count.
//  2. A result is empty when no class has a pixel or no valid pixel got a
//     class; the likeliest cause is named from what stayed unclassified.
//  3. The model takes the bands and their types from the input, the classes'
//     names and colours from the written raster, the rest from the report.
#include "Figures.h"

#include "Paths.h"
#include "Separability.h"
#include "Run.h"

#include <GdalSession.h>

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace isodata_run {
namespace {

GDALDatasetUniquePtr OpenQuietly(const std::string& path) {
    const isodata::QuietGdalErrors quiet;
    return GDALDatasetUniquePtr(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
}

// What the chosen bands' mask bands stand for, in a person's words.
std::string MaskBandKind(GDALDataset* ds, const RunRequest& request) {
    if (request.mask.nodata == MaskSettings::Nodata::Given) return "nodata";
    for (int index : request.classification.bandIndices) {
        if (!ds || index >= ds->GetRasterCount()) continue;
        const int flags = ds->GetRasterBand(index + 1)->GetMaskFlags();
        if (flags & GMF_NODATA) return "nodata";
        if (flags & GMF_ALPHA) return "alpha band";
        if (flags & GMF_PER_DATASET) return "mask band";
    }
    // An alpha band no chosen band has as its mask is read as one too.
    for (int b = 1; ds && request.mask.datasetMasks && b <= ds->GetRasterCount(); ++b)
        if (ds->GetRasterBand(b)->GetColorInterpretation() == GCI_AlphaBand) return "alpha band";
    return "nodata";
}

// The area of one pixel, or 0 for a rotated geotransform or none.
double PixelArea(GDALDataset* ds) {
    double gt[6];
    if (!ds || ds->GetGeoTransform(gt) != CE_None || gt[2] != 0.0 || gt[4] != 0.0) return 0.0;
    return std::fabs(gt[1] * gt[5]);
}

} // namespace

std::string LabellingReachText() {
    char text[16];
    std::snprintf(text, sizeof text, "%.0e", static_cast<double>(kLabellingReach));
    std::string t = text;
    const size_t e = t.find("e+");
    if (e != std::string::npos) t = t.substr(0, e + 1) + std::to_string(std::stoi(t.substr(e + 2)));
    return t;
}

namespace {

// Between every two classes with a centre, from their means and covariances.
void AddSeparability(RunReport& report) {
    std::vector<std::vector<double>> means, covariances;
    for (const ClassReport& c : report.classes) {
        if (c.centre.empty()) continue;
        if (c.covariance.empty()) return;  // a plug-in that gathers none
        means.push_back(c.mean);
        covariances.push_back(c.covariance);
    }
    if (means.empty()) return;
    report.separabilityMeasure = kSeparabilityMeasure;
    report.separability = SeparabilityMatrix(means, covariances);
    report.separabilityThreshold = kSeparabilityThreshold;
    report.separabilityMaximum = kSeparabilityMaximum;
}

} // namespace

void AddFigures(const stIsodataRunReport& plugin, const RunRequest& request, const std::string& input,
                RunReport& report) {
    if (plugin.resultCode < 0) return;  // a plug-in that reports nothing
    const GDALDatasetUniquePtr ds = OpenQuietly(input);
    report.figuresKnown = true;
    report.excludedPixels = plugin.excludedPixels;
    const std::pair<std::string, std::int64_t> by[] = {{MaskBandKind(ds.get(), request), plugin.excludedByMaskBands},
                                                       {"NaN or infinite", plugin.excludedByNonFinite},
                                                       {"mask raster", plugin.excludedByMaskRaster}};
    for (const auto& rule : by)
        if (rule.second > 0) report.excludedBy.push_back(rule);
    report.background = plugin.backgroundPixels;
    report.nonFinite = plugin.nonFinitePixels;
    report.beyondReach = plugin.beyondReachPixels;
    report.zeroPixels = plugin.zeroPixels;
    report.pixelArea = PixelArea(ds.get());
    for (const stIsodataIteration& round : plugin.iterations) {
        IterationReport step{round.round, round.removed, round.split, {}, round.classes, round.meanDistance};
        for (std::size_t i = 0; i + 1 < round.merged.size(); i += 2)
            step.merged.emplace_back(round.merged[i], round.merged[i + 1]);
        report.iterations.push_back(std::move(step));
    }
    for (std::size_t k = 0; k < plugin.classes.size(); ++k) {
        const stIsodataClassReport& figures = plugin.classes[k];
        const int value = static_cast<int>(k) + 1;
        auto counted = std::find_if(report.classes.begin(), report.classes.end(),
                                    [value](const ClassReport& c) { return c.value >= value; });
        if (counted == report.classes.end() || counted->value != value) {
            ClassReport unnamed;
            unnamed.value = value;
            counted = report.classes.insert(counted, unnamed);
        }
        counted->centre = figures.centre;
        counted->mean = figures.mean;
        counted->stddev = figures.stddev;
        counted->covariance = figures.covariance;
    }
    AddSeparability(report);
}

Notice EmptyResult(const RunReport& report) {
    // Pixels with a class are pixels of a class value, so no class found
    // means no valid pixel labelled.
    if (report.ClassesFound() > 0) return {};
    const std::string why = "classification failed: no valid pixel was given a class";
    const bool anyCentre =
        std::any_of(report.classes.begin(), report.classes.end(), [](const ClassReport& c) { return !c.centre.empty(); });
    if (report.figuresKnown && !anyCentre)
        return {why + " (every cluster had fewer pixels than the minimum size and was dropped)",
                {{AskField::MinClassPixels, "with a smaller size"}}};
    if (report.nonFinite > 0)
        return {why + " (the input holds NaN or infinite values, which nodata left ignored lets in)",
                {{AskField::SrcNodata, "other than None, to leave them out"}}};
    if (report.beyondReach > 0)
        return {why + " (every centre lies " + LabellingReachText() +
                " or more from the pixels: values too large for the labelling; rescale the input)", {}};
    if (report.background > 0) return {why + " (the band values of every pixel sum to zero)", {}};
    return {why, {}};
}

Notice NothingValid(const RunRequest& request) {
    return {"every pixel of '" + request.input.path +
                "' is left out by its nodata values, masks or NaN; nothing was run",
            {{AskField::SrcNodata, ""}, {AskField::Mask, ""}}};
}

std::vector<Notice> Warnings(const RunReport& report, const RunRequest& request) {
    std::vector<Notice> warnings;
    // Pixels 0 in every band, a share of them or more with no nodata value
    // anywhere, are likely a fill rather than data.
    constexpr std::int64_t kFillShare = 100;  // one pixel in a hundred
    const bool noNodata = request.mask.nodata == MaskSettings::Nodata::Declared && !request.input.declaresNodata;
    if (noNodata && report.zeroPixels > 0 && report.zeroPixels * kFillShare >= report.ValidPixels())
        warnings.push_back({std::to_string(report.zeroPixels) +
                                " pixels are 0 in every band and were classified; if 0 is no data here",
                            {{AskField::SrcNodata, "0"}}});
    if (report.beyondReach > 0)
        warnings.push_back({std::to_string(report.beyondReach) +
                            " valid pixels are left unclassified because every class centre lies " +
                            LabellingReachText() + " or more from them: values too large for the labelling; "
                            "rescale the input",
                            {}});
    if (report.nonFinite > 0)
        warnings.push_back({std::to_string(report.nonFinite) +
                                " pixels holding NaN or infinite values are left unclassified, and took part in "
                                "the clustering",
                            {{AskField::SrcNodata, "other than None, to leave them out"}}});
    return warnings;
}

Model ModelOf(const RunRequest& request, const std::string& input, const stIsodataRunReport& plugin,
              const RunReport& report) {
    Model m;
    m.tool = std::string("isodata ") + ISODATA_VERSION;
    m.inputPath = request.input.path;
    const GDALDatasetUniquePtr ds = OpenQuietly(input);
    if (ds) m.width = ds->GetRasterXSize(), m.height = ds->GetRasterYSize(), m.bandCount = ds->GetRasterCount();
    for (int index : request.classification.bandIndices) {
        GDALRasterBand* band = ds && index < ds->GetRasterCount() ? ds->GetRasterBand(index + 1) : nullptr;
        m.bands.push_back({index + 1, band ? band->GetDescription() : "",
                           band ? GDALGetDataTypeName(band->GetRasterDataType()) : "Unknown"});
    }
    m.enginePixelType = plugin.pixelType > 0 ? GDALGetDataTypeName(static_cast<GDALDataType>(plugin.pixelType)) : "";
    m.mask = request.mask;
    m.plainRules = request.plainRules;
    m.parametersJson = request.model.parametersJson;
    m.pixelArea = report.pixelArea;
    m.separabilityMeasure = report.separabilityMeasure;
    m.separability = report.separability;
    for (const ClassReport& k : report.classes)
        if (!k.centre.empty())
            m.classes.push_back({k.value, k.name, k.hasColour, k.red, k.green, k.blue, k.centre, k.pixels, k.mean,
                                 k.stddev});
    return m;
}

} // namespace isodata_run
