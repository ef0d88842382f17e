// A run with options: the one addition beside the plug-in's own interface.
//
// GetAlgoObj hands out the algorithm object whose Execute takes a
// stInfoClassificationISO and nothing else; that stays exactly as it is.
// GetAlgoObjWithOptions (exported beside it, plain name) hands out a second
// object whose Execute takes a stIsodataRun: the same record, the options
// below, and a report the run writes back into the parameter slot. Execute
// refuses any other slot content with error 100 ("Type is Not stIsodataRun!").
//
// With every option at its default the run is the plain run, to the bit and
// report for report; each option switches on one power.
#pragma once

#include "ClassificationISO.h"

#include <QString>

#include <cstdint>
#include <vector>

// Which nodata values stand behind the mask bands.
enum class IsodataNodata : std::int32_t {
    Declared = 0,  // the input's own, as GDAL reports them
    Ignored = 1,   // none, whatever the input declares
    Given = 2,     // nodataValues: one for every band, or one per input band
};

struct ISODATA_RECORD_API stIsodataRunOptions {
    // The validity mask. When on, a pixel of the input is excluded when the
    // mask band (GDALRasterBand::GetMaskBand) of any chosen band is 0 there,
    // when any chosen band holds NaN or an infinity as a 32-bit float, or when
    // band 1 of maskRasterPath is 0 there. Excluded pixels give no sample,
    // join no cluster, add to no statistic and are labelled 0. The mask bands
    // are those of the input, or of a virtual copy of it with the nodata
    // values and dataset masks that nodata and datasetMasks ask for.
    bool validityMask = false;
    IsodataNodata nodata = IsodataNodata::Declared;
    std::vector<double> nodataValues;  // for IsodataNodata::Given
    bool datasetMasks = true;          // per-dataset masks (.msk, internal) and alpha bands count
    bool excludeNonFinite = true;      // NaN and infinities are excluded
    QString maskRasterPath;            // band 1, the input's size, 0 excludes; empty: none

    // Labelling with saved classes instead of clustering: one row of values
    // per class (class k + 1 in row k), one value per chosen band, as a run
    // reports them in its centres. The input is labelled in one pass by the
    // labelling a run ends with; no working copy is made.
    std::vector<std::vector<double>> applyCentres;

    // Per class, the mean and standard deviation of every chosen band over
    // its pixels at full size, gathered while labelling.
    bool classStatistics = false;
    // With classStatistics, per class also the covariance of the chosen
    // bands over its pixels at full size (divided by the pixel count).
    bool classCovariance = false;

    // The plain run's own rules: the labelling leaves a pixel whose chosen
    // band values sum to zero unclassified (background) and looks for a
    // centre no further than kLabellingReach, and the reduced working copy
    // is read from the input's overviews where GDAL's reduced read would
    // use them. Off: every pixel is labelled with its nearest centre (the
    // search starts from +infinity, as the classification passes' does),
    // and the working copy is read from the full-resolution pixels, as GDAL
    // reads a dataset opened with OVERVIEW_LEVEL=NONE. Arithmetic and ties
    // are the plain run's either way.
    bool plainRules = true;

    // Threads the passes share their pixels out to, the calling thread
    // included; the result and the progress reports are the same for every
    // count (reports come from the calling thread only).
    std::int32_t threads = 1;
    // Bytes the working copy may take in memory instead of a file beside the
    // input; 0 keeps it on disk. A copy that does not fit stays on disk.
    // Without the plain rules and with more than one thread, an input (a
    // GeoTIFF, not JPEG-compressed, bands of one type) that fits beside the
    // copy (up to 512 MB) is read into memory once,
    // in its own type: the copy is picked from it and the labelling reads it
    // from there, so the input is read a single time. The result is the
    // same either way.
    std::int64_t memoryBytes = 0;
};

struct ISODATA_RECORD_API stIsodataClassReport {
    std::vector<double> centre;        // per chosen band, in the engine's pixel type, widened exactly
    std::int64_t pixels = 0;           // full-size pixels labelled with the class
    std::vector<double> mean, stddev;  // per chosen band, with classStatistics; deviation over n
    std::vector<double> covariance;    // B x B, row-major, with classCovariance; over n
};

// What one round of the clustering did. Clusters are numbered from 1 as
// they were when the step was taken.
struct ISODATA_RECORD_API stIsodataIteration {
    std::int64_t round = 0;             // 1, 2, ...; 0: small clusters dropped after the last round
    std::int32_t removed = 0;           // small clusters dropped at the round's start
    std::int32_t split = 0;             // the cluster split; 0 when none was
    std::vector<std::int32_t> merged;   // the pairs merged, closest first: first, second, first, second, ...
    std::int32_t classes = 0;           // clusters after the round
    double meanDistance = 0.0;          // the overall mean distance the round was judged by; NaN for round 0
};

// How far, in single-precision city-block distance, the labelling looks
// for a centre: a pixel with none nearer stays unclassified.
inline constexpr float kLabellingReach = 1e7f;

// Pixels of the full-size input, counted by the result pass. A pixel that
// several rules exclude counts once in excludedPixels and under every rule.
// Of the pixels not excluded, those labelled 0 are counted by why.
struct ISODATA_RECORD_API stIsodataRunReport {
    std::int32_t resultCode = -1;            // the run driver's result code; 0 success
    std::int64_t excludedPixels = 0;
    std::int64_t excludedByMaskBands = 0;
    std::int64_t excludedByNonFinite = 0;
    std::int64_t excludedByMaskRaster = 0;
    std::int64_t workingValidPixels = -1;    // valid pixels of the working copy; -1 without a mask
    std::int64_t backgroundPixels = 0;       // band values summing to zero
    std::int64_t nonFinitePixels = 0;        // a band value NaN or infinite (with no mask to exclude it)
    std::int64_t beyondReachPixels = 0;      // no centre nearer than kLabellingReach
    std::int64_t zeroPixels = 0;             // classified, 0 in every chosen band (without the plain rules)
    std::int32_t pixelType = 0;              // pixel-type code the centres were held in (GDAL's numbers)
    std::vector<stIsodataClassReport> classes;  // class k + 1 in entry k
    std::vector<stIsodataIteration> iterations; // the clustering's rounds in order; empty when centres were applied
};

struct ISODATA_RECORD_API stIsodataRun {
    stInfoClassificationISO params;
    stIsodataRunOptions options;
    stIsodataRunReport report;               // written by Execute
};
