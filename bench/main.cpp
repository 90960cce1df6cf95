// Benchmarks of the plug-in on the host libraries.
//
//   kub-bench [--sizes=10,100,1000,operators] [Google Benchmark's own options]
//
// A size is a number of stored profiles; "operators" is one for each access point of the operators'
// database. Operations: mount of each root; read and write of a leaf of each class; change of
// bearer; add, delete and rename of a profile; all children in one call and leaf by leaf; a
// server's package of Gets. Beside each runs its floor, in random order with it: the calls that the
// operation cannot do without. Times are processor times, so that other programs disturb them
// little; the ratio is what counts.
#include "plugin_operations.h"
#include "ratio_report.h"
#include "temporary_handset.h"

#include "aplog.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr char SIZES_OPTION[] = "--sizes=";

constexpr char OPERATORS_SIZE[] = "operators";
constexpr char OPERATORS_DATABASE[] =
    "/usr/share/mobile-broadband-provider-info/serviceproviders.xml";

std::vector<std::string> ParseSizes(const std::string &text)
{
    std::vector<std::string> sizes;
    std::istringstream stream(text);
    for (std::string size; std::getline(stream, size, ',');) {
        if (size != OPERATORS_SIZE && std::atoi(size.c_str()) < 2) {
            std::fprintf(stderr, "kub-bench: %s: each size is a number from 2, or %s\n",
                         text.c_str(), OPERATORS_SIZE);
            std::exit(2);
        }
        sizes.push_back(size);
    }
    return sizes;
}

/// Fills the store. @return the number of profiles; 0 when they cannot be had here.
int StoreSize(const std::string &size)
{
    if (size == OPERATORS_SIZE)
        return bench::StoreOperatorsProfiles(OPERATORS_DATABASE);
    const int profiles = std::atoi(size.c_str());
    bench::StoreProfiles(profiles);
    return profiles;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> sizes{"10", "100", "1000", OPERATORS_SIZE};
    // Google Benchmark's options come first, so that the caller's win.
    std::vector<std::string> arguments{argv[0], "--benchmark_enable_random_interleaving=true",
                                       "--benchmark_repetitions=7", "--benchmark_min_time=0.02"};
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind(SIZES_OPTION, 0) == 0)
            sizes = ParseSizes(argument.substr(sizeof SIZES_OPTION - 1));
        else
            arguments.push_back(argument);
    }
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data()))
        return 2;
#ifndef __OPTIMIZE__
    std::fprintf(stderr, "kub-bench: built without optimisation, the figures mean nothing\n");
#endif

    const bench::TemporaryHandset handset;
    libaplog_to_module_ptr =
        std::fopen("/dev/null", "w"); // messages of failures are part of a mount
    bench::RatioReporter reporter;
    for (const std::string &size : sizes) {
        const int profiles = StoreSize(size);
        if (profiles == 0) {
            std::fprintf(stderr, "kub-bench: %s is not there, its size is left out\n",
                         OPERATORS_DATABASE);
            continue;
        }
        bench::RegisterOperations(profiles);
        benchmark::RunSpecifiedBenchmarks(&reporter);
        benchmark::ClearRegisteredBenchmarks();
    }
    reporter.PrintRatios();
    return 0;
}
