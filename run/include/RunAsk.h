// What a host was asked for a run, as the person typed it, and how the run
// library points back at one of those settings when it refuses a run or
// suggests a change. The library spells no option: each host names the
// settings its own way (an option, a parameter, a keyword).
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace isodata_run {

struct RunRequest;

// Every setting a host may be asked for, as typed. No defaults here: the
// host that offers the settings owns them (the command's option table).
struct RunAsk {
    std::string input;                         // a file, a GDAL virtual path or subdataset name
    std::vector<std::string> openOptions;      // NAME=VALUE for the input's driver
    std::string output;                        // the class raster to publish
    std::string format;                        // GDAL's name of the output's driver, in any case
    std::vector<std::string> creationOptions;  // NAME=VALUE for that driver
    std::string previewPath;                   // a PNG quick-look; empty: none
    std::string reportPath;                    // an HTML report of the run; empty: none
    bool overwrite = false;                    // replace existing files once the new ones are complete
    std::vector<int> bands;                    // 1-based; empty: every band (or the model's)
    int classes = 0;
    int initialClasses = 0;
    int minClassPixels = 0;
    int maxMergePairs = 0;
    int maxIterations = 0;
    double stdDevThreshold = 0.0;
    double mergeDistance = 0.0;
    std::string srcNodata;  // "": the bands' own; "None"; or values apart by blanks or commas
    std::string mask;       // "": the input's masks; "none"; or a mask raster
    std::string modelOut;   // a model file to write; empty: none
    std::string apply;      // a model file to label with instead of clustering; empty: none
    bool plain = false;     // the plug-in's plain run: its background and reach rules, overviews, no masks
    int threads = 0;        // 0: one for every processor
    int memoryMB = -1;      // megabytes the working copy may take in memory; -1: the machine's share
    std::string tmpDir;     // where the run folder goes; empty: beside the output
    std::string pluginPath;      // empty: DefaultPluginPath()
    bool gdalDebug = false;      // echo GDAL's messages as they come
    // The host's own record of its parameters, kept in the model file: given
    // the checked request (every band listed, the format as GDAL spells
    // it), a JSON object. None: the model records none.
    std::function<std::string(const RunRequest&)> describeParameters;
};

// The settings of RunAsk, for a refusal to point at.
enum class AskField {
    None,  // the run as a whole
    Input, OpenOptions, Output, Format, CreationOptions, Preview, Overwrite, Bands,
    Classes, InitialClasses, MinClassPixels, MaxMergePairs, MaxIterations, StdDevThreshold, MergeDistance,
    SrcNodata, Mask, ModelOut, Apply, Plain, Threads, Memory, TmpDir, Plugin, Report,
};

// A setting that would change an outcome, and what it would do: the host
// says "use <its name of field> <how>".
struct Remedy {
    AskField field = AskField::None;
    std::string how;  // may be empty
};

// Something a host should tell the person, and the settings that bear on it.
struct Notice {
    std::string message;
    std::vector<Remedy> remedies;
};

struct Refusal {
    AskField field = AskField::None;  // the setting at fault
    // What is wrong, in words meant to follow the host's name of field
    // ("'scene.tif' does not exist"); the whole sentence for AskField::None.
    std::string problem;
    std::vector<Remedy> remedies;
};

} // namespace isodata_run
