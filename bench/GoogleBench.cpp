#include "GoogleBench.h"

#ifdef SORVIK_HAVE_GOOGLE_BENCHMARK

namespace {

// Keeps every repetition and prints nothing: the rows print the table.
class Collector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const QString name = QString::fromStdString(run.run_name.function_name);
            if (run.error_occurred && error.isEmpty())
                error = QStringLiteral("%1: %2").arg(name, QString::fromStdString(run.error_message));
            else if (!run.error_occurred)
                times[name].push_back(run.real_accumulated_time / double(qMax<qint64>(run.iterations, 1)) * 1e9);
        }
    }

    QMap<QString, std::vector<double>> times;
    QString error;
};

void initializeOnce()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    static char program[] = "sorvik-bench";
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    char *argv[] = {program, interleave, nullptr};
    int argc = 2;
    benchmark::Initialize(&argc, argv);
}

} // namespace

bool GoogleBench::runRegistered(QMap<QString, std::vector<double>> *times, QString *error)
{
    initializeOnce();
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::ClearRegisteredBenchmarks();
    *times = collector.times;
    *error = collector.error;
    return error->isEmpty();
}

#endif
