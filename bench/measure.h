// Clock, median and one line per figure, for the measuring programs.
//
// Compare only figures of one run, as ratios: machines drift. Every program measures, beside its
// own figures, the reference that they are held against ("ref.").
#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

inline double benchNow() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}
// The thread's own time: of one thread at work, which others may push aside.
inline double benchCpuNow() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}
inline double benchMedian(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}
// Median seconds of `rounds` calls.
template <class Work>
double benchRounds(int rounds, Work work) {
    std::vector<double> values;
    for (int i = 0; i < rounds; i++) {
        double start = benchNow();
        work();
        values.push_back(benchNow() - start);
    }
    return benchMedian(values);
}
inline void benchOut(const std::string& name, double value, const char* unit) {
    std::printf("%-44s %14.6g %s\n", name.c_str(), value, unit);
    std::fflush(stdout);
}
// A ratio and the limit that it is held against.
inline void benchRatio(const std::string& name, double ratio, double limit) {
    std::printf("%-44s %14.4g ratio   (at most %g) %s\n", name.c_str(), ratio, limit,
                ratio <= limit ? "ok" : "ABOVE");
    std::fflush(stdout);
}
