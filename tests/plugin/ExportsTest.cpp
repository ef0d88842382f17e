// The exported class kept for hosts that link against it: its one operation
// does nothing and always answers false.
#include "ISODataClassification.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(CIsoDataFuncTest, RunReturnsFalseForEveryArgumentList) {
    CIsoDataFunc func, copy;
    copy = func;
    const std::size_t huge = std::numeric_limits<std::size_t>::max();
    EXPECT_FALSE(func.Run("in.tif", "out.img", 5, 10, 3, 1.5, 2.0, 4, 100));
    EXPECT_FALSE(func.Run("", "", 0, 0, 0, 0.0, 0.0, 0, 0));
    EXPECT_FALSE(copy.Run("a", "b", huge, huge, huge, -1.0, std::numeric_limits<double>::infinity(), huge, huge));
}

} // namespace
