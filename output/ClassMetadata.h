// Class names and colours of the class raster: black for unclassified, a
// fixed palette for the first eighteen clusters, pseudo-random colours after.
#pragma once

#include <KalDataSource.h>

#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <vector>

namespace isodata {

using Rgb = std::array<std::int16_t, 3>;

struct ClassMetadata {
    QStringList names;        // band category names
    std::vector<Rgb> colors;  // entry i colours pixel value i
};

// Builds the names and colours for clusterCount clusters. Clusters after the
// eighteenth draw three numbers each from the runtime's shared generator,
// which this library never seeds.
ClassMetadata BuildClassMetadata(std::size_t clusterCount);

// Gives band 1 of the result its category names and colour table.
void AttachClassMetadata(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& result,
                         const ClassMetadata& metadata);

} // namespace isodata
