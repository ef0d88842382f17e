// Class names, colour table and the matching header entries of the class
// raster.
//
//  1. Colour 0 is black for unclassified; clusters 1..18 take the palette,
//     later clusters three draws of rand() % 255 each (never 255).
//  2. Names are "Unclassified" then "class1".. — but only when there are two
//     or more clusters; a single cluster gets a colour and no name. Kept as
//     the established output.
//  3. The header entries are assembled but nothing is written from here: the
//     band's names and colour table reach the file through the data source.
#include "ClassMetadata.h"

#include "FileNames.h"
#include "Progress.h"

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

ClassMetadata BuildClassMetadata(std::size_t clusterCount, const QString& resultPath) {
    ClassMetadata m;
    m.description = Translate(kOutputContext, kResultDescription);
    m.colors.push_back({0, 0, 0});
    m.names << QStringLiteral("Unclassified");
    if (clusterCount > 1) {
        QString names = QStringLiteral("{Unclassified");
        for (std::size_t i = 1; i <= clusterCount; ++i) {
            const QString name = QStringLiteral("class%1").arg(i);
            names += QLatin1Char(',') + name;
            m.names << name;
        }
        m.header[QStringLiteral("class names")] = names + QLatin1Char('}');
    }
    QString lookup = QStringLiteral("{0,0,0");
    for (std::size_t i = 0; i < clusterCount; ++i) {
        const Rgb c = ClusterColor(i);
        lookup += QStringLiteral(",%1,%2,%3").arg(c[0]).arg(c[1]).arg(c[2]);
        m.colors.push_back(c);
    }
    m.header[QStringLiteral("class lookup")] = lookup + QLatin1Char('}');
    m.header[QStringLiteral("classes")] = QString::number(clusterCount + 1);
    m.header[QStringLiteral("wavelength units ")] = QStringLiteral("Unknown");
    // Cut at the last dot of the whole path, like the scratch files: this
    // path is assembled and dropped, never written (GDAL writes the header).
    m.headerPath = CutAtLastDot(resultPath) + QStringLiteral(".hdr");
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
