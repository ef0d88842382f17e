// Reading the whole input into memory once.
//
//  1. Only a GeoTIFF, not JPEG-compressed, with every band of one type is
//     held: its full-size reads convert each block's values to floats the
//     same way whichever buffer they land in, so holding the values in their
//     own type and converting later gives the same floats.
//  2. The rows are cut into strips of whole block rows, one a thread; each
//     strip is read, every band in one call, straight into the band-after-
//     band buffer, through the input itself on the calling thread and
//     through a handle of its own on every other.
//  3. The views are MEM datasets over the buffer, so GDAL's own conversion
//     turns the held values into floats as the result pass reads them.
#include "HeldInput.h"

#include <GdalSession.h>

#include <cpl_string.h>

#include <algorithm>
#include <new>
#include <vector>

namespace isodata {

namespace {

// The one type of every band of input, or GDT_Unknown.
GDALDataType OneType(GDALDataset* input) {
    const int bands = input->GetRasterCount();
    if (bands < 1) return GDT_Unknown;
    const GDALDataType type = input->GetRasterBand(1)->GetRasterDataType();
    for (int b = 2; b <= bands; ++b)
        if (input->GetRasterBand(b)->GetRasterDataType() != type) return GDT_Unknown;
    return type;
}

bool ReadsAsHeld(GDALDataset* input) {
    GDALDriver* driver = input->GetDriver();
    if (!driver || !EQUAL(driver->GetDescription(), "GTiff")) return false;
    const char* compression = input->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
    if (compression && CPLString(compression).ifind("JPEG") != std::string::npos) return false;
    return OneType(input) != GDT_Unknown;
}

} // namespace

std::int64_t HeldInput::Bytes(GDALDataset* input) {
    const GDALDataType type = OneType(input);
    if (type == GDT_Unknown) return 0;
    return static_cast<std::int64_t>(input->GetRasterXSize()) * input->GetRasterYSize() * input->GetRasterCount() *
           GDALGetDataTypeSizeBytes(type);
}

HeldInput::HeldInput(int width, int height, int bands, GDALDataType type)
    : width_(width), height_(height), bands_(bands), type_(type),
      bandBytes_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                 static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type))),
      // Left as it comes: the read writes every byte.
      values_(new unsigned char[bandBytes_ * static_cast<std::size_t>(bands)]) {}

std::unique_ptr<HeldInput> HeldInput::Read(GDALDataset* input, std::int64_t budget, WorkerPool* pool) {
    if (!input || budget <= 0 || !ReadsAsHeld(input) || Bytes(input) > budget) return nullptr;
    std::unique_ptr<HeldInput> held;
    try {
        held.reset(new HeldInput(input->GetRasterXSize(), input->GetRasterYSize(), input->GetRasterCount(),
                                 OneType(input)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    if (!held->ReadFrom(input, pool)) return nullptr;
    return held;
}

bool HeldInput::ReadFrom(GDALDataset* input, WorkerPool* pool) {
    int blockWidth = 0, blockHeight = 0;
    input->GetRasterBand(1)->GetBlockSize(&blockWidth, &blockHeight);
    const int blockRows = (height_ + std::max(blockHeight, 1) - 1) / std::max(blockHeight, 1);
    const Pieces strips(static_cast<std::size_t>(blockRows), pool ? static_cast<std::size_t>(pool->Threads()) : 1);
    std::vector<GDALDatasetUniquePtr> handles(strips.count);
    for (std::size_t s = 1; s < strips.count; ++s) {
        handles[s].reset(GDALDataset::Open(input->GetDescription(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        if (!handles[s]) return false;
    }
    const std::size_t size = static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type_));
    const GSpacing line = static_cast<GSpacing>(width_) * static_cast<GSpacing>(size);
    std::vector<std::vector<GdalErrorCapture::Error>> errors(strips.count);
    std::vector<char> ok(strips.count, 0);
    ForEachPiece(pool, strips.count, [&](std::size_t s) {
        GdalErrorCapture capture;
        GDALDataset* source = s == 0 ? input : handles[s].get();
        const int y0 = static_cast<int>(std::min<std::size_t>(strips.Begin(s) * std::max(blockHeight, 1), height_));
        const int y1 =
            static_cast<int>(std::min<std::size_t>(strips.Begin(s + 1) * std::max(blockHeight, 1), height_));
        ok[s] = y1 <= y0 || source->RasterIO(GF_Read, 0, y0, width_, y1 - y0,
                                             values_.get() + static_cast<std::size_t>(y0) * static_cast<std::size_t>(line),
                                             width_, y1 - y0, type_, bands_, nullptr, static_cast<GSpacing>(size),
                                             line, static_cast<GSpacing>(bandBytes_), nullptr) == CE_None;
        errors[s] = capture.Take();
    });
    if (std::find(ok.begin(), ok.end(), 0) != ok.end()) return false;
    for (const auto& e : errors) GdalErrorCapture::Replay(e);
    return true;
}

GDALDatasetUniquePtr HeldInput::View() const {
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr view(memory ? memory->Create("", width_, height_, 0, type_, nullptr) : nullptr);
    if (!view) return view;
    for (int b = 0; b < bands_; ++b) {
        char pointer[64] = {};
        CPLPrintPointer(pointer, const_cast<unsigned char*>(Band(b)), sizeof pointer - 1);
        CPLStringList options;
        options.SetNameValue("DATAPOINTER", pointer);
        if (view->AddBand(type_, options.List()) != CE_None) return nullptr;
    }
    return view;
}

const unsigned char* HeldInput::Band(int b) const {
    return values_.get() + static_cast<std::size_t>(b) * bandBytes_;
}

} // namespace isodata
