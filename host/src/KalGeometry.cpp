// The plain extent; its out-of-line members anchor the class's virtual table
// in the host library.
#include "KalGeometry.h"

namespace KalGeometry {

Envelope::Envelope(double xMin, double yMin, double xMax, double yMax)
    : xMin_(xMin), yMin_(yMin), xMax_(xMax), yMax_(yMax) {}

Envelope::~Envelope() = default;

} // namespace KalGeometry
