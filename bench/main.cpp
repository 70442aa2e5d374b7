// rooms: benchmarks of the conversion with other libraries as baselines, of the text distance with the plain routine as
// baseline, and of the tracker. Accepts the options of the benchmark library.

#include <benchmark/benchmark.h>

#include <exception>
#include <iostream>

#include "bench/benchmarks.h"

int main(int argumentCount, char** arguments) {
    try {
        benchmark::Initialize(&argumentCount, arguments);
        if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
            return 2;
        }
        bench::RegisterConversions();
        bench::RegisterTextDistances();
        bench::RegisterTracker();
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "rooms: " << error.what() << '\n';
    }
    return 1;
}
