// Counts the pixels of each class in strips of rows, so that a large result
// needs little memory, and lays the figures out as a small table.
#include "Summary.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <sstream>

namespace isodata_cli {
namespace {

constexpr int kValues = 256;
constexpr std::int64_t kStripBytes = 8 << 20;

bool CountValues(GDALRasterBand* band, std::array<std::int64_t, kValues>& counts) {
    const int width = band->GetXSize(), height = band->GetYSize();
    const int rowsPerStrip = static_cast<int>(std::clamp<std::int64_t>(kStripBytes / std::max(width, 1), 1, height));
    std::vector<GByte> strip(static_cast<size_t>(width) * rowsPerStrip);
    for (int y = 0; y < height; y += rowsPerStrip) {
        const int rows = std::min(rowsPerStrip, height - y);
        if (band->RasterIO(GF_Read, 0, y, width, rows, strip.data(), width, rows, GDT_Byte, 0, 0, nullptr) !=
            CE_None)
            return false;
        const size_t n = static_cast<size_t>(width) * rows;
        for (size_t i = 0; i < n; ++i) ++counts[strip[i]];
    }
    return true;
}

} // namespace

int ResultSummary::ClassesFound() const {
    return static_cast<int>(std::count_if(classes.begin(), classes.end(), [](const ClassCount& c) { return c.pixels > 0; }));
}

bool SummariseResult(GDALDataset& ds, ResultSummary& summary, std::string& error) {
    summary = ResultSummary();
    if (ds.GetRasterCount() < 1) {
        error = "the class raster has no band";
        return false;
    }
    // GDAL's GeoTIFF driver reads its .aux.xml, where the category names are,
    // only once something asks for the georeferencing.
    double transform[6];
    (void)ds.GetGeoTransform(transform);
    GDALRasterBand* band = ds.GetRasterBand(1);
    std::array<std::int64_t, kValues> counts{};
    if (!CountValues(band, counts)) {
        error = std::string("cannot read the pixels of the class raster: ") + CPLGetLastErrorMsg();
        return false;
    }
    summary.width = ds.GetRasterXSize();
    summary.height = ds.GetRasterYSize();
    summary.unclassified = counts[0];

    const CPLStringList names(band->GetCategoryNames(), false);
    const GDALColorTable* colours = band->GetColorTable();
    for (int value = 1; value < kValues; ++value) {
        const bool named = value < names.size();
        if (counts[value] == 0 && !named) continue;
        ClassCount c;
        c.value = value;
        c.pixels = counts[value];
        if (named) c.name = names[value];
        if (colours && value < colours->GetColorEntryCount()) {
            const GDALColorEntry* e = colours->GetColorEntry(value);
            c.hasColour = true;
            c.red = e->c1;
            c.green = e->c2;
            c.blue = e->c3;
        }
        summary.classes.push_back(c);
    }
    return true;
}

namespace {

QJsonArray Numbers(const std::vector<int>& values) {
    QJsonArray array;
    for (int v : values) array.append(v);
    return array;
}

QJsonObject Parameters(const SummaryContext& context) {
    const Options& o = *context.options;
    QJsonArray creationOptions;
    for (const std::string& option : o.creationOptions) creationOptions.append(QString::fromStdString(option));
    return QJsonObject{{"b", Numbers(context.bands)},
                       {"classes", o.classes},
                       {"initial", o.initialClasses},
                       {"min-size", o.minClassPixels},
                       {"merge-pairs", o.maxMergePairs},
                       {"iter", o.maxIterations},
                       {"std", o.stdDevThreshold},
                       {"merge-dist", o.mergeDistance},
                       {"of", QString::fromStdString(context.format)},
                       {"co", creationOptions},
                       {"preview", o.previewPath.empty() ? QJsonValue() : QString::fromStdString(o.previewPath)},
                       {"overwrite", o.overwrite}};
}

} // namespace

std::string FormatJson(const ResultSummary& s, const SummaryContext& context) {
    const double total = static_cast<double>(s.width) * s.height;
    QJsonArray classes;
    for (const ClassCount& c : s.classes) {
        QJsonObject entry{{"value", c.value},
                          {"name", QString::fromStdString(c.name)},
                          {"pixels", static_cast<double>(c.pixels)},
                          {"share", total > 0 ? static_cast<double>(c.pixels) / total : 0.0}};
        entry["colour"] = c.hasColour ? QJsonValue(Numbers({c.red, c.green, c.blue})) : QJsonValue();
        classes.append(entry);
    }
    const QJsonObject summary{{"input", QString::fromStdString(context.options->input)},
                              {"output", QString::fromStdString(context.options->output)},
                              {"format", QString::fromStdString(context.format)},
                              {"size", Numbers({s.width, s.height})},
                              {"parameters", Parameters(context)},
                              {"classes", classes},
                              {"unclassified", static_cast<double>(s.unclassified)},
                              {"seconds", context.seconds}};
    return QJsonDocument(summary).toJson(QJsonDocument::Indented).toStdString();
}

std::string FormatSummary(const ResultSummary& s, const SummaryContext& context) {
    const std::int64_t total = static_cast<std::int64_t>(s.width) * s.height;
    auto share = [total](std::int64_t n) { return total ? 100.0 * static_cast<double>(n) / total : 0.0; };
    std::ostringstream out;
    char line[256];
    const int found = s.ClassesFound();
    std::snprintf(line, sizeof line, "%d %s found (%d requested) in %.1f s.\n", found,
                  found == 1 ? "class" : "classes", context.options->classes, context.seconds);
    out << line;
    out << "  class      pixels   share  colour (RGB)  name\n";
    for (const ClassCount& c : s.classes) {
        char colour[64];
        if (c.hasColour)
            std::snprintf(colour, sizeof colour, "%3d %3d %3d  ", c.red, c.green, c.blue);
        else
            std::snprintf(colour, sizeof colour, "%-13s", "-");
        std::snprintf(line, sizeof line, "  %5d %11lld  %5.1f%%  %s %s\n", c.value, static_cast<long long>(c.pixels),
                      share(c.pixels), colour, c.name.c_str());
        out << line;
    }
    std::snprintf(line, sizeof line, "Unclassified: %lld pixels (%.1f%%)\n", static_cast<long long>(s.unclassified),
                  share(s.unclassified));
    out << line;
    out << "Result:  " << context.options->output << " (" << context.format << ", " << s.width << " x " << s.height;
    if (!context.header.empty()) out << ", header " << context.header;
    out << ")\n";
    if (!context.preview.empty()) out << "Preview: " << context.preview << "\n";
    return out.str();
}

} // namespace isodata_cli
