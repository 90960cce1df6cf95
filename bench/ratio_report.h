// The table of ratios: what an operation takes over what its required calls take.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

/// Prints every run as the console reporter does, and keeps the processor time of each.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override;

    /// One line an operation and size: the least time of both in microseconds, and their ratio.
    void PrintRatios() const;

private:
    std::vector<std::string> m_order;                         ///< "OPERATION/SIZE" as they came
    std::map<std::string, std::vector<double>> m_nanoseconds; ///< by whole name
};

} // namespace bench
