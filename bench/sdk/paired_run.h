#pragma once

// Library and bare loop, alternating in one run. A ratio is the median over the pairs, so that a busy machine hurts
// both alike.

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace zobench {

inline int pairsOfARun = 41;

inline void Must(bool done) {
    if (done) return;
    std::fprintf(stderr, "a request failed\n");
    std::exit(1);
}

template <typename Work>
double Seconds(const Work& work) {
    LARGE_INTEGER frequency, begin, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    work();
    QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - begin.QuadPart) / static_cast<double>(frequency.QuadPart);
}

inline double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

struct Times {
    double library;
    double bare;
    double ratio;
};

// Each gives the seconds of one round. Both orders alike often: what comes second may find warmer caches.
template <typename Library, typename Bare>
Times Compare(const Library& library, const Bare& bare) {
    std::vector<double> libraryTimes, bareTimes, ratios;
    for (int pair = 0; pair < pairsOfARun; ++pair) {
        const bool libraryFirst = pair % 2 == 0;
        double l = libraryFirst ? library() : 0;
        const double b = bare();
        if (!libraryFirst) l = library();
        libraryTimes.push_back(l);
        bareTimes.push_back(b);
        ratios.push_back(l / b);
    }
    return {Median(libraryTimes), Median(bareTimes), Median(ratios)};
}

inline const char* Verdict(bool reached) {
    return reached ? "" : "  MISSED";
}

}  // namespace zobench
