// The class model file: the classes a run ended with, written as JSON so
// that they can be applied to other rasters (docs/model.md gives the format).
#pragma once

#include "RunApi.h"
#include "RunRequest.h"

#include <cstdint>
#include <string>
#include <vector>

namespace isodata_run {

constexpr const char* kModelFormat = "isodata-model";
constexpr int kModelVersion = 1;
constexpr int kMaxModelClasses = 255;  // class values 1..255 of a Byte class raster

struct ModelBand {
    int band = 0;  // 1-based
    std::string description;
    std::string dataType;  // GDAL's name of the type
};

struct ModelClass {
    int value = 0;
    std::string name;
    bool hasColour = false;
    int red = 0, green = 0, blue = 0;
    std::vector<double> centre;        // per band of Model::bands, exact
    std::int64_t pixels = 0;
    std::vector<double> mean, stddev;  // per band; NaN for a class without pixels
};

struct Model {
    std::string tool;
    std::string inputPath;
    int width = 0, height = 0, bandCount = 0;
    std::vector<ModelBand> bands;
    std::string enginePixelType;
    MaskSettings mask;
    bool plainRules = true;      // the labelling's rules (files from before the choice were plain)
    std::string parametersJson;  // an object, as the host wrote it; may be empty
    double pixelArea = 0.0;      // 0: none
    std::vector<ModelClass> classes;
    // How well the classes separate (rows and columns in the order of
    // classes); empty when not measured. Written, not read: applying a model
    // does not need it.
    std::string separabilityMeasure;
    std::vector<std::vector<double>> separability;
};

// False with error set when the file cannot be written.
ISODATA_RUN_API bool WriteModel(const std::string& path, const Model& model, std::string& error);

// False with error set, naming the file, when it cannot be read, is no model,
// is of a version this program does not know, or holds what no class raster
// can: more than 255 classes, a centre that is not finite or not written as
// JSON numbers (whose hexadecimal form, when given, must be the same
// number), a colour outside 0..255.
ISODATA_RUN_API bool ReadModel(const std::string& path, Model& model, std::string& error);

} // namespace isodata_run
