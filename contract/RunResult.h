// Result codes of one classification run. The run driver returns them and
// Execute turns them into its boolean; each pixel type's traits name the code
// its engine fails with; a host that drives the run driver itself (the tests)
// reads them directly.
#pragma once

namespace isodata {

enum class RunResult : int {
    Success = 0,
    InputNotOpened = 1,      // the input is not a raster dataset
    WorkingCopyFailed = 2,   // the reduced working raster could not be created
    ResultNotCreated = 3,    // the class raster could not be created
    // The engine of one pixel type failed (or refused the record): 3 + the
    // type's code.
    EngineFailedByte = 4, EngineFailedUInt16 = 5, EngineFailedInt16 = 6, EngineFailedUInt32 = 7,
    EngineFailedInt32 = 8, EngineFailedFloat32 = 9, EngineFailedFloat64 = 10,
    UnknownPixelType = 11,   // the working raster's pixel type is none of the seven
    // Only a run with options (IsodataRun.h) ends with these.
    NoValidPixel = 12,       // the validity mask leaves no pixel of the working copy; no engine ran
    MaskUnusable = 13,       // the mask raster cannot be read or is not the input's size
};

} // namespace isodata
