// The validity mask's rules from a run's options, and the working copy's mask.
//
//  1. Open: the mask bands are the input's own, unless its nodata values or
//     dataset masks are to be taken otherwise; then they are those of an
//     in-memory VRT of the input with the nodata values set or removed and,
//     without dataset masks, neither mask band nor alpha band. The mask
//     raster is opened and must have the input's size.
//  2. WriteWorkingMask: the mask bands and the mask raster are read whole at
//     the working copy's size, as the working copy itself was; the working
//     copy is then read a strip at a time for non-finite values; the flags
//     go to a Byte GeoTIFF.
#include "RunValidity.h"

#include "GdalSession.h"

#include <KalDataSource.h>

#include <cpl_string.h>
#include <gdal_utils.h>

#include <algorithm>

namespace isodata {

namespace {

// Rows of the working copy read per strip while looking for non-finite values.
constexpr int kStripRows = 64;

// gdal_translate's arguments for the virtual copy: the input as it is,
// without its dataset mask and alpha when they are not to count.
CPLStringList VirtualCopyArguments(GDALDataset* input, bool datasetMasks) {
    CPLStringList args;
    args.AddString("-of");
    args.AddString("VRT");
    if (datasetMasks) return args;
    args.AddString("-mask");
    args.AddString("none");
    for (int b = 1; b <= input->GetRasterCount(); ++b) {
        if (input->GetRasterBand(b)->GetColorInterpretation() != GCI_AlphaBand) continue;
        args.AddString(CPLSPrintf("-colorinterp_%d", b));
        args.AddString("undefined");
    }
    return args;
}

GDALDatasetUniquePtr VirtualCopy(GDALDataset* input, const stIsodataRunOptions& options) {
    CPLStringList args = VirtualCopyArguments(input, options.datasetMasks);
    GDALTranslateOptions* translate = GDALTranslateOptionsNew(args.List(), nullptr);
    if (!translate) return nullptr;
    GDALDatasetUniquePtr copy(
        GDALDataset::FromHandle(GDALTranslate("", GDALDataset::ToHandle(input), translate, nullptr)));
    GDALTranslateOptionsFree(translate);
    if (!copy) return nullptr;
    for (int b = 1; b <= copy->GetRasterCount(); ++b) {
        GDALRasterBand* band = copy->GetRasterBand(b);
        if (options.nodata == IsodataNodata::Ignored) {
            band->DeleteNoDataValue();
        } else if (options.nodata == IsodataNodata::Given && !options.nodataValues.empty()) {
            // One value for every band, or one a band with the last one for the rest.
            const std::size_t i = std::min<std::size_t>(static_cast<std::size_t>(b - 1), options.nodataValues.size() - 1);
            band->SetNoDataValue(options.nodataValues[i]);
        }
    }
    return copy;
}

} // namespace

bool RunValidity::Open(GDALDataset* input, const stIsodataRunOptions& options) {
    rules_ = ValidityRules();
    if (!options.validityMask || !input) return true;
    rules_.nonFinite = options.excludeNonFinite;
    const bool asDeclared = options.nodata == IsodataNodata::Declared && options.datasetMasks;
    if (asDeclared) {
        rules_.maskBandsOf = input;
    } else {
        virtualCopy_ = VirtualCopy(input, options);
        if (!virtualCopy_) return false;
        rules_.maskBandsOf = virtualCopy_.get();
    }
    if (!options.maskRasterPath.isEmpty()) {
        const QByteArray path = options.maskRasterPath.toUtf8();
        maskRaster_.reset(GDALDataset::Open(path.constData(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        if (!maskRaster_ || maskRaster_->GetRasterCount() < 1 ||
            maskRaster_->GetRasterXSize() != input->GetRasterXSize() ||
            maskRaster_->GetRasterYSize() != input->GetRasterYSize())
            return false;
        rules_.maskRaster = maskRaster_.get();
    }
    return true;
}

std::int64_t WriteWorkingMask(const ValidityRules& rules, GDALDataset* input, GDALDataset* working,
                              const std::vector<std::uint32_t>& bandIndices, const QString& path) {
    const int width = working->GetRasterXSize(), height = working->GetRasterYSize();
    const std::size_t w = static_cast<std::size_t>(width);
    std::vector<std::uint8_t> why(w * static_cast<std::size_t>(height));
    // A failed read has raised its GDAL error, which is the host's to judge,
    // as with every read of the run.
    ValidityReader(rules, bandIndices)
        .ReadMasks(0, 0, input->GetRasterXSize(), input->GetRasterYSize(), width, height, why.data());

    if (rules.nonFinite) {
        std::vector<int> bands;
        for (std::uint32_t index : bandIndices)
            if (index < static_cast<std::uint32_t>(working->GetRasterCount())) bands.push_back(static_cast<int>(index) + 1);
        std::vector<float> strip(bands.size() * w * kStripRows);
        std::vector<const float*> rows(bands.size());
        for (int y0 = 0; y0 < height && !bands.empty(); y0 += kStripRows) {
            const int count = std::min(kStripRows, height - y0);
            const std::size_t plane = w * static_cast<std::size_t>(count);
            const CPLErr readError = working->RasterIO(GF_Read, 0, y0, width, count, strip.data(), width, count,
                                                       GDT_Float32, static_cast<int>(bands.size()), bands.data(), 0,
                                                       0, 0, nullptr);
            (void)readError;
            for (int r = 0; r < count; ++r) {
                for (std::size_t k = 0; k < bands.size(); ++k) rows[k] = strip.data() + k * plane + r * w;
                MarkNonFinite(rows.data(), rows.size(), w, why.data() + (static_cast<std::size_t>(y0) + r) * w);
            }
        }
    }

    std::int64_t valid = 0;
    for (std::uint8_t& flag : why) {
        flag = flag == 0 ? 1 : 0;
        valid += flag;
    }
    auto mask = KalDataSource::DatasetFactory::Instance()->CreateRasterDataset(path, width, height, 1,
                                                                               KalDataSource::PDT_Byte, "GTiff");
    if (!mask) return -1;
    if (mask->GetGDALDataset()->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, why.data(), width, height,
                                                           GDT_Byte, 0, 0, nullptr) != CE_None)
        return -1;
    return valid;
}

} // namespace isodata
