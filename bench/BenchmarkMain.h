// The start of a Google Benchmark program over the simulated camera: the
// library's own prints (standard output) go to /dev/null, the figures to the
// real standard output, and the command line is Google Benchmark's.
#pragma once

#include <benchmark/benchmark.h>

#include <ext/stdio_filebuf.h>
#include <ostream>

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

} // namespace bench
