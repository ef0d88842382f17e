// Reference counting shared by every host object.
#include "KalUtility.h"

namespace KalUtility {

CRef::~CRef() = default;

long CRef::AddRef() const { return ++refCount_; }

long CRef::Release() const {
    const long remaining = --refCount_;
    // Only the holder that brought the count to zero may delete; reading the
    // count again after the decrement would race with another holder.
    if (remaining == 0) delete this;
    return remaining;
}

} // namespace KalUtility
