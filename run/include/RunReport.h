// What one run returns to its host: how it ended, why when it failed, the
// classes of the published raster with their figures, the pixels left out
// or unclassified and why, GDAL's errors and the files put in place. The
// run prints nothing; the host decides what to show.
#pragma once

#include "RunApi.h"
#include "RunAsk.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace isodata_run {

enum class RunOutcome {
    Ok,                    // the result (and preview) are in place
    PreviewFailed,         // the result is in place, the preview could not be made
    PluginNotLoaded,       // the library did not open or is no classification plug-in
    SetupFailed,           // the run folder could not be made or the input not placed in it
    ForkFailed,            // no child process could be started; error holds errno
    Crashed,               // the child died of signal
    ExitedStrangely,       // the child exited with status of its own (a sanitizer's, say)
    NothingValid,          // the mask leaves no pixel to classify; nothing was run or changed
    ClassificationFailed,  // the plug-in, GDAL, the conversion or the read-back failed
    PublishFailed,         // the result could not be moved into place; nothing was changed
    Interrupted,           // SIGINT, SIGTERM or SIGHUP (signal) ended the run; nothing was changed
};

// One value of the class raster: its pixels, name and colour as written,
// and what the plug-in said of the class.
struct ClassReport {
    int value = 0;     // 1..255
    std::string name;  // the raster's category name; empty when unnamed
    bool hasColour = false;
    int red = 0, green = 0, blue = 0;
    std::int64_t pixels = 0;           // full-size pixels of the class
    std::vector<double> centre;        // per chosen band; empty when the plug-in said nothing
    std::vector<double> mean, stddev;  // per chosen band; NaN for a class without pixels
    std::vector<double> covariance;    // bands x bands, row-major, over n; empty when the plug-in said nothing
};

// What one round of the clustering did; clusters numbered from 1 as they
// were when the step was taken.
struct IterationReport {
    std::int64_t round = 0;  // 1, 2, ...; 0: small clusters dropped after the last round
    int removed = 0;         // small clusters dropped at the round's start
    int split = 0;           // the cluster split; 0 when none was
    std::vector<std::pair<int, int>> merged;  // the pairs merged, closest first
    int classes = 0;         // clusters after the round
    double meanDistance = 0.0;  // the overall mean distance of the round; NaN for round 0

    // "split", "merge", "removed" (small clusters only) or "none".
    const char* Step() const { return split ? "split" : !merged.empty() ? "merge" : removed ? "removed" : "none"; }
};

struct RunReport {
    RunOutcome outcome = RunOutcome::ClassificationFailed;
    // For every outcome but Ok, one sentence naming the file or value at
    // fault: the text a host shows after its own prefix, followed by the
    // settings that would change the outcome, as the host names them.
    std::string message;
    std::vector<Remedy> remedies;
    int signal = 0;  // Crashed, Interrupted
    int error = 0;   // ForkFailed: errno
    int status = 0;  // ExitedStrangely
    // Interrupted while the plug-in ran, so a progress line may be left open.
    bool interruptedInChild = false;

    // The result (Ok and PreviewFailed).
    int width = 0, height = 0;
    // Every value that has pixels or a category name, in ascending order.
    std::vector<ClassReport> classes;
    std::int64_t unclassified = 0;  // pixels of value 0, the excluded ones included
    // Figures the plug-in reported (false from a plug-in that says nothing).
    bool figuresKnown = false;
    std::int64_t excludedPixels = 0;                                // left out by nodata and masks
    std::vector<std::pair<std::string, std::int64_t>> excludedBy;   // rule -> pixels, rules that left some out
    std::int64_t background = 0;   // valid, unclassified: band values summing to zero
    std::int64_t nonFinite = 0;    // valid, unclassified: a NaN or infinite band value
    std::int64_t beyondReach = 0;  // valid, unclassified: no centre within the labelling's limit
    std::int64_t zeroPixels = 0;   // valid, classified, 0 in every chosen band (without the plain rules)
    double pixelArea = 0.0;        // map units per pixel; 0 when the geotransform is rotated or missing
    std::vector<IterationReport> iterations;  // the clustering's rounds; empty for a model applied
    // How well each pair of classes separates, rows and columns in the
    // order of the classes with a centre; empty when not measured.
    std::string separabilityMeasure;                 // its name, as people in the field know it
    std::vector<std::vector<double>> separability;   // symmetric, 0 on the diagonal
    double separabilityThreshold = 0.0;              // pairs below it are hard to separate
    double separabilityMaximum = 0.0;                // the measure's value for classes that never overlap
    std::string resultHeader;      // the header published beside the result, for formats that keep one
    std::vector<Notice> warnings;  // what a person should know of a published result

    double seconds = 0.0;                   // time spent in the plug-in
    int gdalFailures = 0;                   // GDAL errors of class Failure or worse during the run
    std::vector<std::string> gdalErrors;    // the first few of them
    std::vector<std::string> filesWritten;  // final paths, result files first

    int ClassesFound() const {  // classes with at least one pixel
        int found = 0;
        for (const ClassReport& c : classes) found += c.pixels > 0;
        return found;
    }
    std::int64_t ValidPixels() const { return static_cast<std::int64_t>(width) * height - excludedPixels; }
    std::int64_t UnclassifiedValid() const { return unclassified - excludedPixels; }
};

} // namespace isodata_run
