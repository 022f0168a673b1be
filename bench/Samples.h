#pragma once

// A series of measured values and the two figures the table shows of it.

#include <vector>

struct Summary {
    double median = 0;
    double p99 = 0;
    int count = 0;
};

// The nearest-rank percentile: the smallest sample that at least `share` of
// all samples do not exceed. 0 for no samples.
double percentile(std::vector<double> samples, double share);

// Median (the mean of the middle two for an even count) and 99th percentile.
Summary summarize(const std::vector<double> &samples);
