// What every measure of the benchmark shares: timing, interleaved rounds, the table's rows,
// and the heap the program holds (counted through operator new).
#ifndef VELCAN_BENCH_MEASURE_H
#define VELCAN_BENCH_MEASURE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

// The bytes the program holds through operator new now, and the most it has held.
extern std::atomic<long> liveBytes;
extern std::atomic<long> peakBytes;

// How long f takes, in seconds.
double seconds(const std::function<void()>& f);

// The median of the values.
double median(std::vector<double> v);

struct Pair {
    double measure;
    double baseline;
};

// Interleaved rounds of a measure and its baseline; the medians of each.
Pair interleaved(int rounds, const std::function<double()>& measure,
                 const std::function<double()>& baseline);

// A row of the table, and whether it met its target (a miss is counted).
void row(const char* name, const std::string& measure, const std::string& baseline, double ratio,
         double target, const char* unit = "x");
// A row with no target: a known cost, shown for what it is.
void info(const char* name, const std::string& measure, const std::string& baseline, double ratio);
// A measure whose result was wrong, whatever its time: printed, and counted as missed.
void wrongResult(const std::string& what);
// The targets missed so far.
int missedTargets();

std::string ms(double s);
std::string ns(double s);
std::string us(double s);
std::string mib(double bytes);

// Each subject's rows; quick: sizes too small to judge, for a smoke run.
void runnerMeasures(bool quick);
void commandMeasures(bool quick);
void outputLimitMeasure(bool quick);
void historyMeasures(bool quick);
void versionCompareMeasure(bool quick);
void dispatchMeasure(bool quick);
void eventsMeasure(bool quick);
void lintDepthMeasure(bool quick);
void historyFormatsMeasure(bool quick);

} // namespace bench

#endif
