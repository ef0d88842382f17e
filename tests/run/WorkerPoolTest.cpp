// The pool's contract with a piece that throws: every other piece still
// runs, the caller gets the exception once all have ended, and the pool
// serves the next pass as before.
#include "WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

namespace {

class WorkerPoolTest : public ::testing::TestWithParam<int> {};

TEST_P(WorkerPoolTest, AThrowingPieceReachesTheCallerAndThePoolGoesOn) {
    isodata::WorkerPool pool(GetParam());
    EXPECT_EQ(pool.Threads(), GetParam());
    for (int pass = 0; pass < 3; ++pass) {
        std::vector<std::atomic<int>> ran(100);
        try {
            pool.ForEach(ran.size(), [&](std::size_t i) {
                ++ran[i];
                if (i == 37 + static_cast<std::size_t>(pass)) throw std::runtime_error("piece " + std::to_string(i));
            });
            ADD_FAILURE() << "pass " << pass << ": nothing thrown";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()), "piece " + std::to_string(37 + pass));
        }
        for (std::size_t i = 0; i < ran.size(); ++i) EXPECT_EQ(ran[i], 1) << "piece " << i << " of pass " << pass;
        // A clean pass afterwards throws nothing left over from this one.
        std::atomic<long> sum{0};
        EXPECT_NO_THROW(pool.ForEach(1000, [&](std::size_t i) { sum += static_cast<long>(i); }));
        EXPECT_EQ(sum, 499500);
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, WorkerPoolTest, ::testing::Values(1, 2, 4));

} // namespace
