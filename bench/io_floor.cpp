// The I/O floor of a classification: read every band of the input once, as
// 32-bit floats, all bands of a strip in one call as the result pass does,
// and write one Byte band of the same size as an ENVI file. No
// classification can be faster than this, so a run's time over this one
// tells how much of it is computation.
//
//   isodata_io_floor <input> <output>
//
// Each output pixel is the 1-based number of the pixel's brightest band, so
// the written values depend on every band that was read. GDAL's block cache
// is bounded as the command bounds it: every block is read once, and filling
// a cache sized by the machine's memory would only add to the floor.
#include <GdalSession.h>

#include <cpl_error.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kStripRows = 16;

int Fail(const char* what, const char* path) {
    std::fprintf(stderr, "isodata_io_floor: %s '%s': %s\n", what, path, CPLGetLastErrorMsg());
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "Usage: isodata_io_floor <input> <output>\n");
        return 1;
    }
    isodata::BoundGdalBlockCache();
    GDALAllRegister();
    GDALDatasetUniquePtr input(GDALDataset::Open(argv[1], GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!input) return Fail("cannot open", argv[1]);
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
    const int bands = input->GetRasterCount();

    GDALDriver* envi = GetGDALDriverManager()->GetDriverByName("ENVI");
    GDALDatasetUniquePtr output(envi ? envi->Create(argv[2], width, height, 1, GDT_Byte, nullptr) : nullptr);
    if (!output) return Fail("cannot create", argv[2]);

    const size_t plane = static_cast<size_t>(width) * kStripRows;
    std::vector<float> strip(plane * static_cast<size_t>(bands));
    std::vector<float> brightest(plane);
    std::vector<GByte> classes(plane);
    const GSpacing line = static_cast<GSpacing>(width) * static_cast<GSpacing>(sizeof(float));
    for (int y = 0; y < height; y += kStripRows) {
        const int rows = std::min(kStripRows, height - y);
        const size_t n = static_cast<size_t>(width) * rows;
        if (input->RasterIO(GF_Read, 0, y, width, rows, strip.data(), width, rows, GDT_Float32, bands, nullptr,
                            sizeof(float), line, line * kStripRows, nullptr) != CE_None)
            return Fail("cannot read", argv[1]);
        for (int b = 1; b <= bands; ++b) {
            const float* values = strip.data() + (b - 1) * plane;
            for (size_t i = 0; i < n; ++i) {
                if (b == 1 || values[i] > brightest[i]) {
                    brightest[i] = values[i];
                    classes[i] = static_cast<GByte>(b);
                }
            }
        }
        if (output->GetRasterBand(1)->RasterIO(GF_Write, 0, y, width, rows, classes.data(), width, rows, GDT_Byte, 0,
                                               0, nullptr) != CE_None)
            return Fail("cannot write", argv[2]);
    }
    return 0;
}
