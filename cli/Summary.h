// What a finished run produced, counted from the class raster itself rather
// than taken from the plug-in, which reports no figures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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

// Reads band 1 of the class raster at path. False with error set when it
// cannot be read.
bool SummariseResult(const std::string& path, ResultSummary& summary, std::string& error);

// A plain English name for a colour, to make a table of RGB triples readable.
std::string RoughColourName(int red, int green, int blue);

struct SummaryContext {
    std::string output;
    std::string header;
    std::string preview;  // empty when none was asked for
    int requestedClasses = 0;
    double seconds = 0.0;
};

std::string FormatSummary(const ResultSummary& summary, const SummaryContext& context);

} // namespace isodata_cli
