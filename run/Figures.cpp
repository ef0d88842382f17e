// The plug-in's report turned into the run's figures and model.
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

#include <GdalSession.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gdal_priv.h>

#include <cmath>

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
    return "nodata";
}

// The area of one pixel, or 0 for a rotated geotransform or none.
double PixelArea(GDALDataset* ds) {
    double gt[6];
    if (!ds || ds->GetGeoTransform(gt) != CE_None || gt[2] != 0.0 || gt[4] != 0.0) return 0.0;
    return std::fabs(gt[1] * gt[5]);
}

QJsonArray Numbers(const std::vector<double>& values) {
    QJsonArray a;
    for (double v : values) a.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
    return a;
}

std::vector<double> FromNumbers(const QJsonValue& value) {
    std::vector<double> out;
    for (const QJsonValue& v : value.toArray()) out.push_back(v.isDouble() ? v.toDouble() : std::nan(""));
    return out;
}

} // namespace

RunFigures FiguresOf(const stIsodataRunReport& report, const RunRequest& request, const std::string& input) {
    RunFigures f;
    if (report.resultCode < 0) return f;  // a plug-in that reports nothing
    const GDALDatasetUniquePtr ds = OpenQuietly(input);
    f.known = true;
    f.excludedPixels = report.excludedPixels;
    const std::pair<std::string, std::int64_t> by[] = {{MaskBandKind(ds.get(), request), report.excludedByMaskBands},
                                                       {"NaN or infinite", report.excludedByNonFinite},
                                                       {"mask raster", report.excludedByMaskRaster}};
    for (const auto& rule : by)
        if (rule.second > 0) f.excludedBy.push_back(rule);
    f.background = report.backgroundPixels;
    f.nonFinite = report.nonFinitePixels;
    f.beyondReach = report.beyondReachPixels;
    for (std::size_t c = 0; c < report.classes.size(); ++c) {
        const stIsodataClassReport& k = report.classes[c];
        f.classes.push_back({static_cast<int>(c) + 1, k.centre, k.pixels, k.mean, k.stddev});
    }
    f.pixelArea = PixelArea(ds.get());
    return f;
}

std::string EmptyResult(const ResultSummary& summary, const RunFigures& figures) {
    // Pixels with a class are pixels of a class value, so no class found
    // means no valid pixel labelled.
    if (summary.ClassesFound() > 0) return {};
    std::string why = "classification failed: no valid pixel was given a class";
    if (figures.nonFinite > 0)
        return why + " (the input holds NaN or infinite values: let the masks leave them out, without "
                     "-srcnodata None)";
    if (figures.beyondReach > 0)
        return why + " (every centre lies 1e7 or more from the pixels: values too large for the labelling; "
                     "rescale the input)";
    if (figures.background > 0) return why + " (the band values of every pixel sum to zero)";
    return why;
}

std::string NothingValidMessage(const RunRequest& request) {
    return "every pixel of '" + request.input.path +
           "' is left out by its nodata values, masks or NaN; nothing was run (see -srcnodata and -mask)";
}

Model ModelOf(const RunRequest& request, const std::string& input, const stIsodataRunReport& report,
              const ResultSummary& summary, const RunFigures& figures) {
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
    m.enginePixelType = report.pixelType > 0 ? GDALGetDataTypeName(static_cast<GDALDataType>(report.pixelType)) : "";
    m.mask = request.mask;
    m.parametersJson = request.model.parametersJson;
    m.pixelArea = figures.pixelArea;
    for (const ClassFigures& k : figures.classes) {
        ModelClass c{k.value, "", false, 0, 0, 0, k.centre, k.pixels, k.mean, k.stddev};
        for (const ClassCount& counted : summary.classes) {
            if (counted.value != k.value) continue;
            c.name = counted.name;
            c.hasColour = counted.hasColour;
            c.red = counted.red, c.green = counted.green, c.blue = counted.blue;
        }
        m.classes.push_back(c);
    }
    return m;
}

std::string FiguresJson(const RunFigures& f) {
    QJsonArray by, classes;
    for (const auto& [rule, pixels] : f.excludedBy)
        by.append(QJsonArray{QString::fromStdString(rule), static_cast<double>(pixels)});
    for (const ClassFigures& c : f.classes)
        classes.append(QJsonObject{{"value", c.value}, {"centre", Numbers(c.centre)},
                                   {"pixels", static_cast<double>(c.pixels)}, {"mean", Numbers(c.mean)},
                                   {"stddev", Numbers(c.stddev)}});
    const QJsonObject o{{"known", f.known},
                        {"excluded", static_cast<double>(f.excludedPixels)},
                        {"by", by},
                        {"background", static_cast<double>(f.background)},
                        {"non_finite", static_cast<double>(f.nonFinite)},
                        {"beyond_reach", static_cast<double>(f.beyondReach)},
                        {"classes", classes},
                        {"pixel_area", f.pixelArea}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString();
}

RunFigures FiguresFromJson(const std::string& json) {
    const QJsonObject o = QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
    RunFigures f;
    f.known = o["known"].toBool();
    f.excludedPixels = static_cast<std::int64_t>(o["excluded"].toDouble());
    for (const QJsonValue& rule : o["by"].toArray())
        f.excludedBy.emplace_back(rule[0].toString().toStdString(), static_cast<std::int64_t>(rule[1].toDouble()));
    f.background = static_cast<std::int64_t>(o["background"].toDouble());
    f.nonFinite = static_cast<std::int64_t>(o["non_finite"].toDouble());
    f.beyondReach = static_cast<std::int64_t>(o["beyond_reach"].toDouble());
    for (const QJsonValue& v : o["classes"].toArray())
        f.classes.push_back({v["value"].toInt(), FromNumbers(v["centre"]), static_cast<std::int64_t>(v["pixels"].toDouble()),
                             FromNumbers(v["mean"]), FromNumbers(v["stddev"])});
    f.pixelArea = o["pixel_area"].toDouble();
    return f;
}

} // namespace isodata_run
