// Both planners on any tags and limits, and every planned block carried out against a device that answers
// anything: each tag is planned once or refused, and only a written block leaves the plan.

#include "FuzzSupport.h"

#include "engine/CInductiveDrive.h"

#include <algorithm>

using namespace Induction;
using FuzzSupport::check;

namespace {

const QString kConnect = QStringLiteral("1");

constexpr auto engine = FuzzSupport::kept<CInductiveDrive>;

// What the device gives back: any status, any value, any naming.
CLabelVariable answer(FuzzedDataProvider &input)
{
    CLabelVariable record;
    record.status = input.ConsumeBool() ? 0 : input.ConsumeIntegral<int>();
    record.value = FuzzSupport::value(input, 300);
    record.length = input.ConsumeIntegral<int>();
    return record;
}

// Limits as a host may set them: often the defaults' size, sometimes none or huge.
void setLimits(FuzzedDataProvider &input)
{
    for (int fun : {1, 2})
        for (int type : {1, 2}) {
            const int value =
                input.ConsumeBool() ? input.ConsumeIntegralInRange(-4, 400) : input.ConsumeIntegral<int>();
            engine().SetInductionParam(EInductionFun(fun), EInductionType(type), value);
        }
}

template <typename Info> bool inOneKey(const QList<QList<Info>> &keys, const Info &info)
{
    return std::count_if(keys.cbegin(), keys.cend(), [&](const QList<Info> &key) { return key.contains(info); }) == 1;
}

// A read block covers every byte of its tags; one beyond would read as zero with a good status.
void checkCovered(const SReadGroup &block)
{
    for (auto place = block.tags.cbegin(); place != block.tags.cend(); ++place) {
        const qint64 offset = place->offset;
        check(offset >= 0, "a tag lies inside its block");
        if (block.kind == 2) {
            check(offset < block.length, "a point lies inside its block");
        } else if (place.key().dataType == TYPE_BOOL) {
            check(offset / 8 < block.length, "a bit lies inside its block");
        } else {
            const int size = engine().tagSize(place.key());
            check(size < 0 || offset * place->width + size <= block.length, "a tag's bytes lie inside its block");
        }
    }
}

void planReads(FuzzedDataProvider &input)
{
    QList<SReadInfo> infos;
    for (int i = input.ConsumeIntegralInRange(0, 48); i > 0; --i)
        infos.append({FuzzSupport::tagLike(input), FuzzSupport::dataType(input)});
    const QList<QList<SReadInfo>> keys = engine().InductiveDrive_Read(kConnect, infos);
    const QList<SReadInfo> refused = engine().GetCannotInductiveDrive_Read(kConnect);
    for (const SReadInfo &info : infos)
        check(refused.contains(info) != inOneKey(keys, info), "a tag to read is planned once or refused");
    for (const QList<SReadInfo> &key : keys)
        checkCovered(engine().GetInductiveDrive_Read(kConnect, key));

    QList<SReadInfo_manual> blocks;
    for (int i = input.ConsumeIntegralInRange(0, 4); i > 0; --i) {
        SReadInfo_manual block{FuzzSupport::tagLike(input), input.ConsumeIntegral<int>(), {}};
        for (int j = input.ConsumeIntegralInRange(0, 6); j > 0; --j)
            block.items.append(
                {FuzzSupport::tagLike(input), FuzzSupport::dataType(input), input.ConsumeIntegral<int>()});
        blocks.append(block);
    }
    const QList<QList<SReadInfo>> manualKeys = engine().InductiveDrive_Read(kConnect, blocks);

    for (const QList<SReadInfo> &key : keys + manualKeys) {
        const QMap<SReadInfo, CLabelVariable> records = engine().BlockReading(kConnect, key);
        for (auto record = records.cbegin(); record != records.cend(); ++record)
            check(key.contains(record.key()) && record->tag == record.key().tag, "a read gives records of its block");
    }
    engine().DelInductiveDrive_Read(kConnect);
    engine().DelCannotInductiveDrive_Read(kConnect);
}

void planWrites(FuzzedDataProvider &input)
{
    QList<SWriteInfo> infos;
    for (int i = input.ConsumeIntegralInRange(0, 48); i > 0; --i)
        infos.append({FuzzSupport::tagLike(input), FuzzSupport::dataType(input), FuzzSupport::value(input, 3)});
    const QList<QList<SWriteInfo>> keys = engine().InductiveDrive_Write(kConnect, infos);
    const QList<SWriteInfo> refused = engine().GetCannotInductiveDrive_Write(kConnect);
    for (const SWriteInfo &info : infos)
        check(info.tag.isEmpty() || refused.contains(info) || inOneKey(keys, info),
              "a tag to write is planned or refused");

    for (const QList<SWriteInfo> &key : keys) {
        const SWriteGroup block = engine().GetInductiveDrive_Write(kConnect, key);
        const int held = block.kind == 2 ? SorvikValues::listFrom<bool>(block.data).size()
                                         : SorvikValues::listFrom<char>(block.data).size();
        check(held == block.length || (held == 0 && block.length < 1), "a block carries exactly its planned bytes");
        const QMap<SWriteInfo, CLabelVariable> results = engine().BlockWriting(kConnect, key);
        check(!results.isEmpty(), "a planned block is written");
        check(engine().GetInductiveDrive_Write(kConnect).contains(key) != (results.first().status == 0),
              "only a written block leaves the plan");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    engine().m_readCallback = [&input](const QString &, const QString &, DataType, int) { return answer(input); };
    engine().m_writeCallback = [&input](const QString &, const QString &, DataType, QVariant, int) {
        return answer(input);
    };
    setLimits(input);
    if (input.ConsumeBool())
        planReads(input);
    else
        planWrites(input);
    return 0;
}
