// The run folder's room, part by part, as the run will use it.
//
//  1. The plug-in's working copy: the input reduced (WorkingCopySize.h),
//     every band as floats, on disk unless the memory budget holds it; its
//     validity mask beside it while a mask is in force; the member index
//     files of one pass, 4 bytes a reduced pixel, and a block of slack for
//     each file. An input not read by the GeoTIFF path is read band by band
//     through a scratch band of the reduced size.
//  2. The class raster at full size, and its copy when another format (or
//     other creation options) are asked for: lossless, so at most as large.
//  3. What the file system has: statvfs of the folder, for an unprivileged
//     writer.
// Applying a model labels the input directly: no working copy, no scratch.
#include "Checks.h"

#include "Convert.h"
#include "Model.h"
#include "Paths.h"
#include "Run.h"
#include "RunFolder.h"

#include <WorkingCopySize.h>

#include <sys/statvfs.h>

#include <cstdio>
#include <sstream>

namespace isodata_run {
namespace {

// Every cluster's index file ends in a partly filled block; the clusters of
// a run stay under 512 and blocks under 4 KiB on the usual file systems.
constexpr std::int64_t kScratchSlack = std::int64_t{512} * 4096;
// A PNG quick-look of one-byte pixels, at most kPreviewMaxSide on a side,
// and the headers and side files beside the rasters.
constexpr std::int64_t kPreviewBytes = std::int64_t{kPreviewMaxSide} * kPreviewMaxSide;
constexpr std::int64_t kSideFiles = 64 * 1024;
// A model file's class: its name, colour and counts, and per band its centre
// twice (decimal and hexadecimal), mean and deviation as JSON text.
constexpr std::int64_t kModelClassBytes = 512;
constexpr std::int64_t kModelBandBytes = 160;

std::int64_t FreeBytes(const std::string& folder) {
    struct statvfs fs {};
    if (statvfs(folder.c_str(), &fs) != 0) return -1;
    return static_cast<std::int64_t>(fs.f_bavail) * static_cast<std::int64_t>(fs.f_frsize);
}

} // namespace

SpaceEstimate EstimateSpace(const RunRequest& request) {
    SpaceEstimate s;
    const InputSettings& in = request.input;
    s.folder = request.runFolderPlace;
    if (request.model.applyCentres.empty()) {
        const double factor = isodata::ReductionFactor(in.width, in.height);
        const int w = isodata::ReducedSize(in.width, factor), h = isodata::ReducedSize(in.height, factor);
        const std::int64_t pixels = static_cast<std::int64_t>(w) * h;
        const std::int64_t copy = isodata::WorkingCopyBytes(w, h, in.bands);
        s.workingCopy = isodata::WorkingCopyInMemory(copy, request.memoryBytes) ? 0 : copy;
        s.workingMask = request.mask.on ? pixels : 0;
        s.scratch = 4 * pixels + kScratchSlack;
        const bool gtiffPath = in.driver == "GTiff" && RunFolder::PlacesAsLink(in);
        s.readScratch = gtiffPath ? 0 : isodata::WorkingCopyBytes(w, h, 1);
    }
    s.result = static_cast<std::int64_t>(in.width) * in.height + kSideFiles;
    if (NeedsConversion(request.output.format, request.output.creationOptions)) s.conversion = s.result;
    if (!request.output.previewPath.empty()) s.preview = kPreviewBytes;
    if (!request.model.outPath.empty())
        s.model = kSideFiles + kMaxModelClasses * (kModelClassBytes + kModelBandBytes *
                                                   static_cast<std::int64_t>(request.classification.bandIndices.size()));
    s.needed =
        s.workingCopy + s.workingMask + s.scratch + s.readScratch + s.result + s.conversion + s.preview + s.model;
    s.free = FreeBytes(s.folder);
    return s;
}

std::string ByteCount(std::int64_t bytes) {
    const char* const units[] = {"bytes", "kB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes);
    int unit = 0;
    for (; value >= 1000.0 && unit < 6; ++unit) value /= 1000.0;
    char text[32];
    if (unit == 0) std::snprintf(text, sizeof text, "%lld bytes", static_cast<long long>(bytes));
    else std::snprintf(text, sizeof text, value < 10.0 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return text;
}

Refusal SpaceRefusal(const SpaceEstimate& s, bool inTmpDir) {
    Refusal refusal = Refuse(AskField::None, "the run needs " + ByteCount(s.needed) + " in " + Quote(s.folder) + ", " +
                                                 ByteCount(s.free) + " free there",
                             {{AskField::TmpDir, inTmpDir ? "with a folder on a file system that has the room"
                                                          : "to work on another file system"}});
    // Held in memory, the working copy needs no room on disk, where the
    // machine can hold it beside the run.
    const std::int64_t physical = PhysicalMemory();
    if (s.workingCopy > 0 && s.needed - s.workingCopy <= s.free && (physical == 0 || s.workingCopy <= physical / 2))
        refusal.remedies.push_back({AskField::Memory, "of " + std::to_string((s.workingCopy >> 20) + 1) +
                                                          " MB or more, to keep the working copy in memory"});
    return refusal;
}

std::string SpaceDetails(const SpaceEstimate& s) {
    std::ostringstream text;
    text << "space: " << s.needed << " bytes needed in '" << s.folder << "' (working copy " << s.workingCopy
         << ", mask " << s.workingMask << ", scratch " << s.scratch << ", band-read scratch " << s.readScratch
         << ", result " << s.result << ", conversion " << s.conversion << ", preview " << s.preview << ", model "
         << s.model << "), "
         << s.free << " free";
    return text.str();
}

} // namespace isodata_run
