// Times the labelling pass of one run of the plug-in, with and without the
// class statistics gathered in it (1: means and deviations, 2: the bands'
// covariance too, which separability needs): the run with options is driven
// as the command drives it (one thread, working copy in memory) and the time
// from the pass's first report to the run's end is printed.
//
//   isodata_label_pass <plug-in> <input> <result> <statistics 0|1|2>
#include "GdalSession.h"
#include "IsodataRun.h"
#include "StageTexts.h"

#include <KalAlgo.h>

#include <boost/any.hpp>

#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: isodata_label_pass <plug-in> <input> <result> <statistics 0|1|2>\n");
        return 1;
    }
    isodata::BoundGdalBlockCache();
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    auto* create = library ? reinterpret_cast<KalAlgo::IKalAlgo* (*)()>(dlsym(library, "GetAlgoObjWithOptions")) : nullptr;
    if (!create) {
        std::fprintf(stderr, "isodata_label_pass: cannot load %s\n", argv[1]);
        return 1;
    }
    stIsodataRun run;
    run.params = stInfoClassificationISO{argv[2], argv[3], 8, 4, 20, 2, 10, 10.0, 20.0, {0, 1, 2, 3, 4, 5}};
    run.options.classStatistics = std::atoi(argv[4]) >= 1;
    run.options.classCovariance = std::atoi(argv[4]) >= 2;
    run.options.memoryBytes = std::int64_t{4} << 30;
    const auto start = std::chrono::steady_clock::now();
    const auto since = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    double labelling = 0.0;
    {
        KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm(create());
        algorithm->m_sigProgress.connect([&](double percent, const QString& text, void*) {
            if (percent == 0.0 && text == QLatin1String(isodata::kGeneratingResultFile)) labelling = since();
            return 1;
        });
        boost::any params(run);
        algorithm->SetParams(params);
        if (!algorithm->Execute()) return 2;
    }
    const double total = since();
    std::printf("%.3f %.3f\n", total, total - labelling);
    return 0;
}
