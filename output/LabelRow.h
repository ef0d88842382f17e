// The labelling kernel of the result pass: the class of every pixel of a row.
#pragma once

#include "ResultRaster.h"
#include "VectorIsa.h"

#include <cstddef>
#include <cstdint>

namespace isodata {

// labels[x] for x < n: class 1..K of the centre nearest in single-precision
// city-block distance to the pixel whose band values are rows[0..B-1][x];
// 0 when no centre is nearer than kLabellingReach or when the band values sum
// to zero, under centers.plainRules; without them only a pixel no centre is
// nearer to than +infinity (a NaN or infinite value) stays 0.
// Ties go to the lower class. Bands are summed in band order for every pixel.
// With excluded, a pixel whose entry is not 0 is labelled 0 whatever its
// values. With tally, the pixels not excluded that stay unclassified are
// counted by why: nonFinite, as the reader marks it (not 0 where a band
// value is NaN or infinite), tells those from the ones beyond reach; such a
// pixel is never background nor near a centre. Without nonFinite every one
// of them counts as beyond reach. Without the plain rules the pixels that
// are 0 in every band, classified like any other, are counted too.
void LabelRow(const float* const* rows, std::size_t n, const LabelCenters& centers, std::int32_t* labels,
              const std::uint8_t* excluded = nullptr, LabelTally* tally = nullptr,
              const std::uint8_t* nonFinite = nullptr);

// The same with the copy compiled for isa, which the CPU must run.
void LabelRow(VectorIsa isa, const float* const* rows, std::size_t n, const LabelCenters& centers,
              std::int32_t* labels, const std::uint8_t* excluded = nullptr, LabelTally* tally = nullptr,
              const std::uint8_t* nonFinite = nullptr);

} // namespace isodata
