// The validity mask's rules from a run's options.
//
//  1. The mask bands are the input's own, unless its nodata values or
//     dataset masks are to be taken otherwise; then they are those of an
//     in-memory VRT of the input with the nodata values set or removed and,
//     without dataset masks, neither mask band nor alpha band.
//  2. Rules that can exclude nothing for the chosen bands are left off.
//  3. The mask raster is opened and must have the input's size.
#include "RunValidity.h"

#include "MaskBands.h"

#include <cpl_string.h>
#include <gdal_utils.h>

#include <algorithm>

namespace isodata {

namespace {

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

bool AnyFloatingBand(GDALDataset* ds, const std::vector<std::int32_t>& bandIndices) {
    for (std::int32_t index : bandIndices)
        if (index >= 0 && index < ds->GetRasterCount() &&
            GDALDataTypeIsFloating(ds->GetRasterBand(index + 1)->GetRasterDataType()))
            return true;
    return false;
}

} // namespace

bool RunValidity::Open(GDALDataset* input, const stIsodataRunOptions& options,
                       const std::vector<std::int32_t>& bandIndices) {
    rules_ = ValidityRules();
    if (!options.validityMask || !input) return true;
    // Only a floating-point band can hold NaN or an infinity as a float: the
    // other types convert to finite floats, so for them the rule is idle.
    rules_.nonFinite = options.excludeNonFinite && AnyFloatingBand(input, bandIndices);
    const bool asDeclared = options.nodata == IsodataNodata::Declared && options.datasetMasks;
    if (asDeclared) {
        rules_.maskBandsOf = input;
    } else {
        virtualCopy_ = VirtualCopy(input, options);
        if (!virtualCopy_) return false;
        rules_.maskBandsOf = virtualCopy_.get();
    }
    // Mask bands that are all valid exclude nothing; a negative index is one
    // the dataset lacks.
    const std::vector<std::uint32_t> indices(bandIndices.begin(), bandIndices.end());
    // An alpha band GDAL gives no chosen band as its mask (beside more than
    // three colour bands, say) is honoured as one all the same.
    if (options.datasetMasks) rules_.alphaIndex = UnmaskedAlphaBand(input, indices);
    if (ChooseMaskBands(rules_.maskBandsOf, indices, rules_.alphaIndex).empty()) {
        rules_.maskBandsOf = nullptr;
        rules_.alphaIndex = -1;
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

} // namespace isodata
