// Reference counting of host objects through _ptr_t.
#include "KalUtility.h"

#include <gtest/gtest.h>

#include <utility>

using KalUtility::_ptr_t;

namespace {

struct Tracked : KalUtility::CRef {
    explicit Tracked(bool* destroyed) : destroyed_(destroyed) {}
    ~Tracked() override { *destroyed_ = true; }
    bool* destroyed_;
};

struct Derived : Tracked {
    using Tracked::Tracked;
};

class RefCountingTest : public ::testing::Test {
protected:
    bool destroyed = false;
};

TEST_F(RefCountingTest, FirstHolderTakesCountToOneAndLastReleaseDeletes) {
    {
        _ptr_t<Tracked> p(new Tracked(&destroyed));
        EXPECT_EQ(p->RefCount(), 1);
    }
    EXPECT_TRUE(destroyed);
}

TEST_F(RefCountingTest, CopiesShareTheObjectUntilTheLastGoes) {
    _ptr_t<Tracked> a(new Tracked(&destroyed));
    {
        _ptr_t<Tracked> b = a;
        _ptr_t<Tracked> c;
        c = b;
        EXPECT_EQ(a->RefCount(), 3);
        EXPECT_TRUE(c == a);
    }
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(a->RefCount(), 1);
    a.reset();
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(a);
}

TEST_F(RefCountingTest, MoveHandsOverWithoutChangingTheCount) {
    _ptr_t<Tracked> a(new Tracked(&destroyed));
    _ptr_t<Tracked> b(std::move(a));
    EXPECT_FALSE(a);
    EXPECT_EQ(b->RefCount(), 1);
    _ptr_t<Tracked> c;
    c = std::move(b);
    EXPECT_EQ(c->RefCount(), 1);
    c.reset();
    EXPECT_TRUE(destroyed);
}

TEST_F(RefCountingTest, AssigningAnotherObjectReleasesTheOldOne) {
    bool otherDestroyed = false;
    _ptr_t<Tracked> p(new Tracked(&destroyed));
    p = _ptr_t<Tracked>(new Tracked(&otherDestroyed));
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(otherDestroyed);
}

TEST_F(RefCountingTest, SelfAssignmentKeepsTheObject) {
    _ptr_t<Tracked> p(new Tracked(&destroyed));
    _ptr_t<Tracked>& alias = p;
    p = alias;
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(p->RefCount(), 1);
}

TEST_F(RefCountingTest, ReleaseReportsTheRemainingCount) {
    _ptr_t<Tracked> p(new Tracked(&destroyed));
    EXPECT_EQ(p->AddRef(), 2);
    EXPECT_EQ(p->Release(), 1);
    EXPECT_FALSE(destroyed);
}

TEST_F(RefCountingTest, DestroyingThroughTheBaseRunsTheDerivedDestructor) {
    _ptr_t<KalUtility::CRef> base(new Derived(&destroyed));
    base.reset();
    EXPECT_TRUE(destroyed);
}

TEST_F(RefCountingTest, DownCastSharesTheObjectOrGivesNull) {
    _ptr_t<Tracked> base(new Derived(&destroyed));
    _ptr_t<Derived> derived = KalUtility::dynamic_ptr_cast<Derived>(base);
    ASSERT_TRUE(derived);
    EXPECT_EQ(base->RefCount(), 2);

    bool plainDestroyed = false;
    _ptr_t<Tracked> plain(new Tracked(&plainDestroyed));
    EXPECT_FALSE(KalUtility::dynamic_ptr_cast<Derived>(plain));
    EXPECT_EQ(plain->RefCount(), 1);

    base.reset();
    EXPECT_FALSE(destroyed);
    derived.reset();
    EXPECT_TRUE(destroyed);
}

TEST_F(RefCountingTest, CopyingTheObjectStartsTheCopyAtZero) {
    Tracked original(&destroyed);
    original.AddRef();
    bool copyDestroyed = false;
    auto* copy = new Tracked(original);
    copy->destroyed_ = &copyDestroyed;
    EXPECT_EQ(copy->RefCount(), 0);
    _ptr_t<Tracked> held(copy);
    held.reset();
    EXPECT_TRUE(copyDestroyed);
    EXPECT_EQ(original.RefCount(), 1);
}

} // namespace
