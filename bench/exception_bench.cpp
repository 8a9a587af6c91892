// What it costs to throw an exception with its log, to send it on as a block, and to build it again.

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <string>

#ifdef ZELQ_BENCH_BOOST
#include <boost/exception/all.hpp>
#endif

#include "benchfolder.h"
#include "zelqcood/exception.h"

namespace {

BenchFolder const folder;

using Block = std::unique_ptr<unsigned char[]>;

XException exceptionWithLog() {
    XException exception("open failed", ZoException::recoverable, 0);
    exception.addLocation(ZoExceptionLocation("file.cpp", "function", 42));
    XEndMicrocodeLog log(1, 2, 3, 4, "EVENT", "text", XMicrocodeLog::omitAllTraces, 1, "id");
    exception.setLogInfo(&log);
    return exception;
}

void throwAndCatch(benchmark::State& state) {
    state.SetLabel("throw and catch|zelqcood, with log and trace lines");
    XException const exception = exceptionWithLog();
    for (auto _ : state) {
        try {
            throw XException(exception);
        } catch (XBaseException const& caught) {
            benchmark::DoNotOptimize(caught.logInfo());
        }
    }
}
BENCHMARK(throwAndCatch);

void throwAndCatchRuntimeError(benchmark::State& state) {
    state.SetLabel("throw and catch|std::runtime_error");
    for (auto _ : state) {
        try {
            throw std::runtime_error("open failed");
        } catch (std::exception const& caught) {
            benchmark::DoNotOptimize(caught.what());
        }
    }
}
BENCHMARK(throwAndCatchRuntimeError);

#ifdef ZELQ_BENCH_BOOST
struct PeerError : virtual std::exception, virtual boost::exception {};

void throwAndCatchBoostWithFiveAttachments(benchmark::State& state) {
    state.SetLabel("throw and catch|boost::exception, 5 attachments");
    for (auto _ : state) {
        try {
            throw PeerError() << boost::errinfo_errno(2) << boost::errinfo_file_name("file.cpp")
                              << boost::errinfo_api_function("open") << boost::throw_line(42)
                              << boost::throw_function("function");
        } catch (boost::exception const& caught) {
            benchmark::DoNotOptimize(boost::get_error_info<boost::errinfo_errno>(caught));
        }
    }
}
BENCHMARK(throwAndCatchBoostWithFiveAttachments);
#endif

void exceptionAsBinary(benchmark::State& state) {
    XException const exception = exceptionWithLog();
    for (auto _ : state) {
        Block const block(exception.asBinary());
        benchmark::DoNotOptimize(block.get());
    }
}
BENCHMARK(exceptionAsBinary);

void exceptionRebuild(benchmark::State& state) {
    Block const block(exceptionWithLog().asBinary());
    for (auto _ : state) {
        XException const exception(block.get());
        benchmark::DoNotOptimize(exception.logInfo());
    }
}
BENCHMARK(exceptionRebuild);

}  // namespace
