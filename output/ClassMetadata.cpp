// Class names and colour table of the class raster.
//
//  1. Colour 0 is black for unclassified; clusters 1..18 take the palette,
//     later clusters three draws of rand() % 255 each (never 255).
//  2. Names are "Unclassified" then "class1".. — but only when there are two
//     or more clusters; a single cluster gets a colour and no name. Kept as
//     the established output.
//  3. Both reach the file through the data source, which writes the header.
#include "ClassMetadata.h"

#include <cstdlib>

namespace isodata {

namespace {

constexpr std::array<Rgb, 18> kPalette = {{
    {255, 0, 0},   {0, 255, 255}, {0, 255, 0},     {255, 0, 255}, {0, 0, 255},   {255, 255, 0},
    {255, 128, 0}, {0, 128, 255}, {255, 0, 128},   {0, 255, 127}, {255, 128, 128}, {0, 127, 127},
    {128, 0, 0},   {127, 255, 255}, {0, 128, 0},   {255, 127, 255}, {0, 0, 128}, {255, 255, 127},
}};

Rgb ClusterColor(std::size_t i) {
    if (i < kPalette.size()) return kPalette[i];
    const auto red = static_cast<std::int16_t>(std::rand() % 255);
    const auto green = static_cast<std::int16_t>(std::rand() % 255);
    const auto blue = static_cast<std::int16_t>(std::rand() % 255);
    return {red, green, blue};
}

} // namespace

ClassMetadata BuildClassMetadata(std::size_t clusterCount) {
    ClassMetadata m;
    m.colors.push_back({0, 0, 0});
    m.names << QStringLiteral("Unclassified");
    if (clusterCount > 1)
        for (std::size_t i = 1; i <= clusterCount; ++i) m.names << QStringLiteral("class%1").arg(i);
    for (std::size_t i = 0; i < clusterCount; ++i) m.colors.push_back(ClusterColor(i));
    return m;
}

void AttachClassMetadata(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& result,
                         const ClassMetadata& metadata) {
    if (!result) return;
    KalUtility::_ptr_t<KalDataSource::ColorTable> table(new KalDataSource::ColorTable);
    for (const Rgb& c : metadata.colors)
        table->AddColorEntry(KalUtility::_ptr_t<KalDataSource::ColorEntry>(new KalDataSource::ColorEntry(c[0], c[1], c[2])));
    if (auto band = result->GetRasterBand(0)) band->SetCategoryNames(metadata.names);
    if (auto band = result->GetRasterBand(0)) band->SetColorTable(table);
}

} // namespace isodata
