// The duration of each call of a kind, and their median and mean.
#ifndef TARVO_BENCH_CALL_TIMES_H
#define TARVO_BENCH_CALL_TIMES_H

#include "pacer.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace tarvo::bench
{

struct CallCost {
    double medianNanoseconds;
    double meanNanoseconds;
};

class CallTimes
{
  public:
    explicit CallTimes(size_t expectedCalls) { nanoseconds_.reserve(expectedCalls); }

    template <typename Call> void time(Call &&call)
    {
        int64_t start = monotonicNanoseconds();
        call();
        nanoseconds_.push_back(double(monotonicNanoseconds() - start));
    }

    CallCost cost() const
    {
        if (nanoseconds_.empty())
            return {0, 0};
        std::vector<double> sorted = nanoseconds_;
        auto middle = sorted.begin() + sorted.size() / 2;
        std::nth_element(sorted.begin(), middle, sorted.end());
        double sum = std::accumulate(sorted.begin(), sorted.end(), 0.0);
        return {*middle, sum / double(sorted.size())};
    }

  private:
    std::vector<double> nanoseconds_;
};

} // namespace tarvo::bench

#endif
