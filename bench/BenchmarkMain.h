// The start of a Google Benchmark program over the simulated camera: the
// library's own prints (standard output) go to /dev/null, the figures to the
// real standard output, and the command line is Google Benchmark's.
#pragma once

#include <benchmark/benchmark.h>

#include <cmath>
#include <ext/stdio_filebuf.h>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "bench/BenchCamera.h"

namespace bench {

class BenchmarkMain {
public:
    BenchmarkMain(int& argc, char** argv)
        : m_nFigures(silenceStdoutKeepingFigures()), m_objBuf(m_nFigures, std::ios::out),
          m_objOut(&m_objBuf) {
        if (m_nFigures < 0)
            return;
        benchmark::Initialize(&argc, argv);
        m_bOk = !benchmark::ReportUnrecognizedArguments(argc, argv);
    }
    BenchmarkMain(const BenchmarkMain&) = delete;
    BenchmarkMain& operator=(const BenchmarkMain&) = delete;

    // False when the output could not be split or an argument is unknown.
    bool ok() const { return m_bOk; }
    // Where the figures go.
    std::ostream& figures() { return m_objOut; }

private:
    int m_nFigures;
    __gnu_cxx::stdio_filebuf<char> m_objBuf;
    std::ostream m_objOut;
    bool m_bOk = false;
};

// One benchmark's figures: the median of its repetitions, or its single run.
struct Figure {
    double dCpu = NAN;  // ns per operation, CPU time of the calling thread
    double dReal = NAN; // ns per operation, wall time
    benchmark::UserCounters counters;
};

// Prints Google Benchmark's own table and keeps each benchmark's figures
// under the name it was registered with (without the suffixes Google
// Benchmark adds for real or manual time, iterations and repetitions).
class FigureReporter : public benchmark::ConsoleReporter {
public:
    explicit FigureReporter(std::ostream& out) : benchmark::ConsoleReporter(OO_Tabular) {
        SetOutputStream(&out);
        SetErrorStream(&out);
    }
    void ReportRuns(const std::vector<Run>& reports) override {
        benchmark::ConsoleReporter::ReportRuns(reports);
        for (const Run& run : reports) {
            if (run.error_occurred)
                continue;
            const bool bMedian =
                run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool bSingle = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (!bMedian && !bSingle)
                continue;
            Figure& f = m_mapFigures[run.run_name.function_name];
            const double dScale = unitToNs(run.time_unit);
            f.dCpu = run.GetAdjustedCPUTime() * dScale;
            f.dReal = run.GetAdjustedRealTime() * dScale;
            f.counters = run.counters;
        }
    }
    const std::map<std::string, Figure>& figures() const { return m_mapFigures; }

private:
    static double unitToNs(benchmark::TimeUnit unit) {
        switch (unit) {
            case benchmark::kNanosecond:
                return 1.0;
            case benchmark::kMicrosecond:
                return 1e3;
            case benchmark::kMillisecond:
                return 1e6;
            case benchmark::kSecond:
                return 1e9;
        }
        return 1.0;
    }
    std::map<std::string, Figure> m_mapFigures;
};

} // namespace bench
