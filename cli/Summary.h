// What a finished run produced, counted from the class raster itself rather
// than taken from the plug-in, which reports no figures.
#pragma once

#include "Options.h"

#include <cstdint>
#include <string>
#include <vector>

class GDALDataset;

namespace isodata_cli {

struct ClassCount {
    int value = 0;  // pixel value of the class, 1..255
    std::string name;  // from the raster's category names; empty when unnamed
    std::int64_t pixels = 0;
    bool hasColour = false;
    int red = 0, green = 0, blue = 0;
};

struct ResultSummary {
    int width = 0;
    int height = 0;
    std::int64_t unclassified = 0;  // pixels of value 0
    // Every value that has pixels or a category name, in ascending order.
    std::vector<ClassCount> classes;

    int ClassesFound() const;  // classes with at least one pixel
};

// Counts band 1 of an open class raster. False with error set when it
// cannot be read.
bool SummariseResult(GDALDataset& result, ResultSummary& summary, std::string& error);

struct SummaryContext {
    const Options* options = nullptr;  // as given
    std::vector<int> bands;            // 1-based, as classified
    std::string format;                // GDAL's name of the output format
    std::string header;                // the ENVI header; empty for other formats
    std::string preview;               // empty when none was written
    double seconds = 0.0;
};

// The table for people, and the same figures as one JSON object for scripts.
std::string FormatSummary(const ResultSummary& summary, const SummaryContext& context);
std::string FormatJson(const ResultSummary& summary, const SummaryContext& context);

} // namespace isodata_cli
