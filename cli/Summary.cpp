// Counts the pixels of each class in strips of rows, so that a large result
// needs little memory, and lays the figures out as a small table.
#include "Summary.h"

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

struct NamedColour {
    const char* name;
    int red, green, blue;
};

// The reference points of RoughColourName: greys, the six primary and
// secondary hues each with a dark and a light variant, and the hues between
// them that class colour tables commonly use.
constexpr NamedColour kColours[] = {
    {"black", 0, 0, 0},           {"dark grey", 64, 64, 64},       {"grey", 128, 128, 128},
    {"light grey", 192, 192, 192}, {"white", 255, 255, 255},
    {"red", 255, 0, 0},           {"dark red", 128, 0, 0},         {"salmon", 255, 128, 128},
    {"green", 0, 255, 0},         {"dark green", 0, 128, 0},       {"light green", 128, 255, 128},
    {"blue", 0, 0, 255},          {"navy", 0, 0, 128},             {"light blue", 128, 128, 255},
    {"yellow", 255, 255, 0},      {"olive", 128, 128, 0},          {"light yellow", 255, 255, 128},
    {"cyan", 0, 255, 255},        {"teal", 0, 128, 128},           {"light cyan", 128, 255, 255},
    {"magenta", 255, 0, 255},     {"purple", 128, 0, 128},         {"light magenta", 255, 128, 255},
    {"orange", 255, 140, 0},      {"azure", 0, 128, 255},          {"rose", 255, 0, 128},
    {"spring green", 0, 255, 128}, {"chartreuse", 128, 255, 0},    {"violet", 128, 0, 255},
    {"brown", 150, 75, 0},        {"pink", 255, 192, 203},         {"sky blue", 135, 206, 235},
};

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

bool SummariseResult(const std::string& path, ResultSummary& summary, std::string& error) {
    summary = ResultSummary();
    GDALAllRegister();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    if (!ds || ds->GetRasterCount() < 1) {
        error = "cannot read the class raster '" + path + "'";
        return false;
    }
    GDALRasterBand* band = ds->GetRasterBand(1);
    std::array<std::int64_t, kValues> counts{};
    if (!CountValues(band, counts)) {
        error = "cannot read the pixels of the class raster '" + path + "': " + CPLGetLastErrorMsg();
        return false;
    }
    summary.width = ds->GetRasterXSize();
    summary.height = ds->GetRasterYSize();
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

std::string RoughColourName(int red, int green, int blue) {
    const NamedColour* best = &kColours[0];
    long bestDistance = std::numeric_limits<long>::max();
    for (const NamedColour& c : kColours) {
        const long dr = red - c.red, dg = green - c.green, db = blue - c.blue;
        const long d = dr * dr + dg * dg + db * db;
        if (d < bestDistance) {
            bestDistance = d;
            best = &c;
        }
    }
    return best->name;
}

std::string FormatSummary(const ResultSummary& s, const SummaryContext& context) {
    const std::int64_t total = static_cast<std::int64_t>(s.width) * s.height;
    auto share = [total](std::int64_t n) { return total ? 100.0 * static_cast<double>(n) / total : 0.0; };
    std::ostringstream out;
    char line[256];
    const int found = s.ClassesFound();
    std::snprintf(line, sizeof line, "%d %s found (%d requested) in %.1f s.\n", found,
                  found == 1 ? "class" : "classes", context.requestedClasses, context.seconds);
    out << line;
    out << "  class      pixels   share  colour (RGB)              name\n";
    for (const ClassCount& c : s.classes) {
        char colour[64];
        if (c.hasColour)
            std::snprintf(colour, sizeof colour, "%3d %3d %3d %-13s", c.red, c.green, c.blue,
                          RoughColourName(c.red, c.green, c.blue).c_str());
        else
            std::snprintf(colour, sizeof colour, "%-25s", "-");
        std::snprintf(line, sizeof line, "  %5d %11lld  %5.1f%%  %s %s\n", c.value, static_cast<long long>(c.pixels),
                      share(c.pixels), colour, c.name.c_str());
        out << line;
    }
    std::snprintf(line, sizeof line, "Unclassified: %lld pixels (%.1f%%)\n", static_cast<long long>(s.unclassified),
                  share(s.unclassified));
    out << line;
    out << "Result:  " << context.output << " (ENVI, " << s.width << " x " << s.height << ", header "
        << context.header << ")\n";
    if (!context.preview.empty()) out << "Preview: " << context.preview << "\n";
    return out.str();
}

} // namespace isodata_cli
