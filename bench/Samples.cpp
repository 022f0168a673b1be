#include "Samples.h"

#include <algorithm>
#include <cmath>

double percentile(std::vector<double> samples, double share)
{
    if (samples.empty())
        return 0;
    const double rank = std::ceil(std::clamp(share, 0.0, 1.0) * double(samples.size()));
    const size_t index = rank < 1 ? 0 : size_t(rank) - 1;
    std::nth_element(samples.begin(), samples.begin() + long(index), samples.end());
    return samples[index];
}

Summary summarize(const std::vector<double> &samples)
{
    Summary summary;
    summary.count = int(samples.size());
    if (samples.empty())
        return summary;
    std::vector<double> sorted = samples;
    std::sort(sorted.begin(), sorted.end());
    const size_t middle = sorted.size() / 2;
    summary.median = sorted.size() % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
    summary.p99 = percentile(sorted, 0.99);
    return summary;
}
