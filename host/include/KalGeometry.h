// Axis-aligned ground extent.
#pragma once

#include "KalUtility.h"

namespace KalGeometry {

// A plain extent. The setters are virtual so that an envelope handed out by a
// raster dataset can keep the dataset's geotransform in step with it.
class KAL_API Envelope : public KalUtility::CRef {
public:
    Envelope() = default;
    Envelope(double xMin, double yMin, double xMax, double yMax);
    ~Envelope() override;

    double GetXMin() const { return xMin_; }
    double GetYMin() const { return yMin_; }
    double GetXMax() const { return xMax_; }
    double GetYMax() const { return yMax_; }
    virtual void SetXMin(double v) { xMin_ = v; }
    virtual void SetYMin(double v) { yMin_ = v; }
    virtual void SetXMax(double v) { xMax_ = v; }
    virtual void SetYMax(double v) { yMax_ = v; }

protected:
    double xMin_ = 0.0, yMin_ = 0.0, xMax_ = 0.0, yMax_ = 0.0;
};

} // namespace KalGeometry
