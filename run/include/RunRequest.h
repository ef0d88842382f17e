// One run as Prepare built it from what a host was asked: the files, the
// values the plug-in's record takes, the output's format.
//
// Settings are grouped by who reads them: the classification values reach
// the plug-in only through BuildRecord (PluginRun.cpp), the output settings
// only the conversion, the preview and the publish step. A new setting for
// the plug-in is a member of its own here, filled by its check in Prepare
// and read in BuildRecord; no layer in between changes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace isodata_run {

// The plug-in's parameters as checked. No defaults here: the host that
// offers the values owns them.
struct ClassificationValues {
    int classes = 0;              // classes wanted, 1..255
    int initialClasses = 0;       // cluster centres to start from, 1..255
    int minClassPixels = 0;       // smaller clusters are dropped
    int maxMergePairs = 0;        // most cluster pairs merged in one step
    int maxIterations = 0;        // rounds, at least 1
    double stdDevThreshold = 0;   // split above this largest band standard deviation
    double mergeDistance = 0;     // merge centres closer than this
    std::vector<int> bandIndices; // 0-based input bands, in order
};

// Where the result goes and in what shape.
struct OutputSettings {
    std::string path;                          // the class raster to publish
    std::string format;                        // GDAL's short name of the driver
    std::vector<std::string> creationOptions;  // NAME=VALUE for that driver
    std::string previewPath;                   // a PNG quick-look; empty for none
    std::string reportPath;                    // an HTML report of the run; empty for none
    bool overwrite = false;                    // replace existing files once the new ones are complete
};

// Which pixels take part. Off: every pixel, as the plug-in's plain run.
// On: a pixel is left out where a chosen band's mask band (its nodata value,
// a per-dataset mask or an alpha band, as GDAL reports it) is 0, where a
// chosen band is NaN or infinite, or where the mask raster is 0.
struct MaskSettings {
    enum class Nodata { Declared, Ignored, Given };
    bool on = false;
    Nodata nodata = Nodata::Declared;
    std::vector<double> nodataValues;  // Given: one for every band, or one a band
    bool datasetMasks = true;          // per-dataset masks and alpha bands count
    bool nonFinite = true;             // NaN and infinities are left out
    std::string maskRaster;            // band 1, the input's size; empty: none
    std::vector<std::string> maskFiles;  // every file GDAL reads for the mask raster
};

// How a class shows in the class raster.
struct ClassLook {
    std::string name;  // empty: the plug-in's own
    bool hasColour = false;
    int red = 0, green = 0, blue = 0;
};

// The classes as a model file: written after a run, or applied instead of
// clustering.
struct ModelSettings {
    std::string outPath;                            // the model file to publish; empty: none
    std::string parametersJson;                     // the host's parameters, as the model records them
    std::vector<std::vector<double>> applyCentres;  // non-empty: label with these, class k + 1 in row k
    std::vector<ClassLook> applyLooks;              // with them, the name and colour of class k + 1 in entry k
};

// The input as Prepare found it.
struct InputSettings {
    std::string path;                      // as the person named it: a file, a GDAL virtual path or subdataset name
    std::vector<std::string> files;        // every file GDAL reads for it
    std::vector<std::string> openOptions;  // NAME=VALUE for its driver, wherever it is opened
    std::string driver;                    // GDAL's short name of the driver that opens it
    int width = 0, height = 0, bands = 0;
    bool declaresNodata = false;           // a band declares a nodata value
};

struct RunRequest {
    InputSettings input;
    OutputSettings output;
    ClassificationValues classification;
    MaskSettings mask;
    ModelSettings model;
    // The plug-in's plain rules: pixels whose band values sum to zero are
    // background, no centre further than the labelling's reach counts, and
    // the working copy is read from overviews where GDAL would. Off: every
    // valid pixel is labelled, from the full-resolution pixels.
    bool plainRules = false;
    int threads = 1;               // threads the plug-in's passes share out to
    std::int64_t memoryBytes = 0;  // the working copy may stay in memory up to this; 0: on disk
    std::string runFolderPlace;  // the folder the run folder goes in
    std::string pluginPath;      // the plug-in to load
    bool gdalDebug = false;  // echo GDAL's messages as they come, as CPL_DEBUG=ON
};

} // namespace isodata_run
