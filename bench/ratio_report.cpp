#include "ratio_report.h"

#include <algorithm>
#include <cstdio>

namespace bench {

namespace {

constexpr std::string_view PLUGIN_PREFIX = "plugin/";
constexpr std::string_view FLOOR_PREFIX = "floor/";

/// Other programs, and a processor that slows down, only ever add to a time.
double Least(const std::vector<double> &values)
{
    return *std::min_element(values.begin(), values.end());
}

} // namespace

void RatioReporter::ReportRuns(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred)
            continue;
        const std::string &name = run.run_name.function_name;
        std::vector<double> &times = m_nanoseconds[name];
        if (times.empty() && name.rfind(PLUGIN_PREFIX, 0) == 0)
            m_order.push_back(name.substr(PLUGIN_PREFIX.size()));
        times.push_back(run.cpu_accumulated_time * 1e9 / static_cast<double>(run.iterations));
    }
    ConsoleReporter::ReportRuns(runs);
}

void RatioReporter::PrintRatios() const
{
    std::vector<std::string> order = m_order;
    std::stable_sort(order.begin(), order.end(), [](const auto &left, const auto &right) {
        return left.substr(0, left.rfind('/')) < right.substr(0, right.rfind('/'));
    });
    std::printf("\n| operation | profiles | plug-in, us | required calls, us | ratio |\n"
                "|---|---:|---:|---:|---:|\n");
    for (const std::string &name : order) {
        const auto floor = m_nanoseconds.find(std::string(FLOOR_PREFIX) + name);
        if (floor == m_nanoseconds.end())
            continue;
        const double plugin = Least(m_nanoseconds.at(std::string(PLUGIN_PREFIX) + name));
        const double required = Least(floor->second);
        const std::size_t slash = name.rfind('/');
        std::printf("| %s | %s | %.2f | %.2f | %.2f |\n", name.substr(0, slash).c_str(),
                    name.substr(slash + 1).c_str(), plugin / 1e3, required / 1e3,
                    plugin / required);
    }
}

} // namespace bench
