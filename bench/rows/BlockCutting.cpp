// Row 5: cutting a block reply into one record per tag, the work of a block
// read once its reply is in. The engine runs alone, its read callback
// answering a prepared record as the drive would, so no network is timed.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "GoogleBench.h"

#include "engine/CInductiveDrive.h"
#include "host/RecordStatus.h"

#include <QDateTime>

#include <QtEndian>

#ifdef SORVIK_HAVE_GOOGLE_BENCHMARK
namespace {

constexpr int kTags = 40; // one block of 160 bytes under the default limit
const QString kConnectPar = QStringLiteral("1");

// The record the drive gives for the block read: its bytes as a list of char.
CLabelVariable blockReply()
{
    const QByteArray floats = BenchTags::naiFloats().left(kTags * 4);
    CLabelVariable reply;
    reply.status = RecordStatus::Ok;
    reply.time = QDateTime::currentDateTime();
    reply.tag = BenchTags::naiTag(1);
    reply.dataType = TYPE_INT8;
    reply.length = floats.size();
    reply.value = QVariant::fromValue(QList<char>(floats.cbegin(), floats.cend()));
    return reply;
}

// What any cutting has to give at least: a record per tag, copied from the
// block's record, with its own one-element list. Tag i of `infos` lies at
// bytes 4i to 4i + 3.
QMap<Induction::SReadInfo, CLabelVariable> cutByHand(const CLabelVariable &reply,
                                                     const QList<Induction::SReadInfo> &infos)
{
    QMap<Induction::SReadInfo, CLabelVariable> records;
    const QList<char> bytes = SorvikValues::listFrom<char>(reply.value);
    for (int i = 0; i < infos.size(); ++i) {
        CLabelVariable record(reply);
        record.tag = infos.at(i).tag;
        record.dataType = infos.at(i).dataType;
        record.length = 1;
        char element[4];
        for (int k = 0; k < 4; ++k)
            element[k] = bytes.at(4 * i + k);
        record.value = QVariant::fromValue(QList<float>{qFromLittleEndian<float>(element)});
        records.insert(infos.at(i), record);
    }
    return records;
}

} // namespace
#endif

void Rows::blockCutting(BenchContext &ctx)
{
    const QString what = QStringLiteral("block cutting");
#ifndef SORVIK_HAVE_GOOGLE_BENCHMARK
    ctx.table.skip(5, what, QStringLiteral("Google Benchmark (libbenchmark-dev) was not found when this was built"));
#else
    const CLabelVariable reply = blockReply();
    CInductiveDrive engine;
    engine.m_readCallback = [&reply](const QString &, const QString &, DataType, int) { return reply; };
    QList<Induction::SReadInfo> infos;
    for (int number = 1; number <= kTags; ++number)
        infos.append({BenchTags::naiTag(number), TYPE_FLOAT});
    const QList<QList<Induction::SReadInfo>> keys = engine.InductiveDrive_Read(kConnectPar, infos);
    if (keys.size() != 1 || engine.BlockReading(kConnectPar, keys.first()).size() != kTags)
        return ctx.fail(5, what, QStringLiteral("%1 floats did not plan into one block").arg(kTags));
    const QList<Induction::SReadInfo> key = keys.first();

    const int iterations = ctx.pick(20000, 2000);
    const int repetitions = ctx.pick(12, 3);
    benchmark::RegisterBenchmark("cut",
                                 [&](benchmark::State &state) {
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(engine.BlockReading(kConnectPar, key));
                                 })
        ->Iterations(iterations)
        ->Repetitions(repetitions);
    benchmark::RegisterBenchmark("by hand",
                                 [&](benchmark::State &state) {
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(cutByHand(reply, infos));
                                 })
        ->Iterations(iterations)
        ->Repetitions(repetitions);
    QMap<QString, std::vector<double>> times;
    QString error;
    if (!GoogleBench::runRegistered(&times, &error))
        return ctx.fail(5, what, error);

    auto perTag = [](std::vector<double> samples) {
        for (double &sample : samples)
            sample /= kTags;
        return summarize(samples);
    };
    Line line{5,
              QStringLiteral("cut a block of %1 floats, per tag").arg(kTags),
              Unit::Time,
              perTag(times.value(QStringLiteral("cut"))),
              QStringLiteral("records built by hand, per tag"),
              perTag(times.value(QStringLiteral("by hand")))};
    line.goals = {Goal::valueAtMost(1000)};
    ctx.table.add(line);
#endif
}
