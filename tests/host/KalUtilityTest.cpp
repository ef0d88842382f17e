// Reference counting of host objects, on which every host object's lifetime
// rests: a miscount is a leak or a use after free.
#include "KalUtility.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using KalUtility::_ptr_t;

struct Tracked : KalUtility::CRef {
    explicit Tracked(bool* destroyed) : destroyed_(destroyed) {}
    ~Tracked() override { *destroyed_ = true; }
    bool* destroyed_;
};

TEST(RefCountingTest, CopiesCountMovesDoNotAndTheLastReleaseDeletesThroughTheBase) {
    bool destroyed = false;
    _ptr_t<KalUtility::CRef> base(new Tracked(&destroyed));
    {
        _ptr_t<Tracked> a = KalUtility::dynamic_ptr_cast<Tracked>(base), b;
        b = a;
        _ptr_t<Tracked> c(std::move(b));
        EXPECT_FALSE(b);
        EXPECT_EQ(a->RefCount(), 3);
        a = a;  // self-assignment must not release first
    }
    EXPECT_EQ(base->RefCount(), 1);
    base.reset();
    EXPECT_TRUE(destroyed);  // the derived destructor ran through the base
}

} // namespace
