// The working copy's mask of an input whose bands' nodata values exclude
// pixels, written as a run with options writes it, for bench/bounded.sh to
// measure: the mask bands read whole at the working copy's size.
//
//   isodata_working_mask [--whole] <input> <folder>
//
// --whole reads them as the mask's earlier build did, into buffers of the
// working copy's size (ValidityReader::ReadMasks), and writes nothing.
// Prints the valid pixels.
#include "GdalSession.h"
#include "RunDriver.h"
#include "Validity.h"
#include "WorkingMask.h"

#include <gdal_priv.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    const bool whole = argc == 4 && std::strcmp(argv[1], "--whole") == 0;
    if (argc != 3 + (whole ? 1 : 0)) {
        std::fprintf(stderr, "usage: isodata_working_mask [--whole] <input> <folder>\n");
        return 2;
    }
    const std::string inputPath = argv[argc - 2], folder = argv[argc - 1];
    isodata::BoundGdalBlockCache();
    GDALAllRegister();
    GDALDatasetUniquePtr input(GDALDataset::Open(inputPath.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!input) return 1;
    const int x = input->GetRasterXSize(), y = input->GetRasterYSize();
    const double factor = isodata::ReductionFactor(x, y);
    const int width = isodata::ReducedSize(x, factor), height = isodata::ReducedSize(y, factor);
    isodata::ValidityRules rules;
    rules.maskBandsOf = input.get();
    std::vector<std::uint32_t> bands;
    for (int b = 0; b < input->GetRasterCount(); ++b) bands.push_back(static_cast<std::uint32_t>(b));

    std::int64_t valid = 0;
    if (whole) {
        std::vector<std::uint8_t> why(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        isodata::ValidityReader(rules, bands).ReadMasks(0, 0, x, y, width, height, why.data());
        for (std::uint8_t w : why) valid += w == 0;
    } else {
        // An empty working copy: only its size and folder matter here.
        const std::string workingPath = folder + "/working.tif";
        const char* options[] = {"SPARSE_OK=TRUE", nullptr};
        GDALDatasetUniquePtr working(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            workingPath.c_str(), width, height, input->GetRasterCount(), GDT_Float32, const_cast<char**>(options)));
        if (!working) return 1;
        valid = isodata::WriteWorkingMask(rules, input.get(), working.get(), bands,
                                          QString::fromStdString(folder + "/mask.tif"));
        working.reset();
        VSIUnlink(workingPath.c_str());
        VSIUnlink((folder + "/mask.tif").c_str());
    }
    std::printf("%d x %d, %" PRId64 " valid\n", width, height, valid);
    return valid < 0 ? 1 : 0;
}
