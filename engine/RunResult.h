// Result codes of one classification run, as the run driver returns them.
#pragma once

namespace isodata {

enum class RunResult : int {
    Success = 0,
    InputNotOpened = 1,      // the input is not a raster dataset
    WorkingCopyFailed = 2,   // the reduced working raster could not be created
    ResultNotCreated = 3,    // the class raster could not be created
    EngineFailedByte = 4,    // engine failures, one per pixel type ...
    EngineFailedUInt16 = 5,
    EngineFailedInt16 = 6,
    EngineFailedUInt32 = 7,
    EngineFailedInt32 = 8,
    EngineFailedFloat32 = 9,
    EngineFailedFloat64 = 10,
    UnknownPixelType = 11,   // the working raster's pixel type is none of the seven
};

} // namespace isodata
