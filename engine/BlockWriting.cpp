// Writing one planned block in one request; a written block leaves the plan.

#include "CInductiveDrive.h"

#include "../host/RecordStatus.h"
#include "BlockKind.h"

using Induction::SWriteInfo;

QMap<SWriteInfo, CLabelVariable> CInductiveDrive::BlockWriting(const QString &connectPar,
                                                               const QList<SWriteInfo> &group)
{
    if (!m_writeCallback)
        return {};
    const auto plan = m_writePlans.constFind(connectPar);
    if (plan == m_writePlans.cend())
        return {};
    const auto planned = plan->constFind(group);
    if (planned == plan->cend())
        return {};
    // A copy: the write may process events, and nothing may pull the block away under it.
    const SWriteGroup block = planned.value();

    // Whatever the DataTypes of its tags, a byte block goes out as one Int8 run,
    // the bytes in the order planning laid them out.
    const DataType type = block.kind == BlockKind::Points ? TYPE_BOOL : TYPE_INT8;
    const CLabelVariable written = m_writeCallback(
        connectPar, QStringLiteral("%1%2").arg(block.areaText, block.start.toString()), type, block.data, block.length);

    QMap<SWriteInfo, CLabelVariable> results;
    for (const SWriteInfo &entry : group)
        results[entry] = written; // assigned: statusAux and auxWord stay those of a fresh record

    // Only a written block leaves the plan; a failed one keeps its bytes for a retry.
    if (written.status == RecordStatus::Ok) {
        auto it = m_writePlans.find(connectPar);
        if (it != m_writePlans.end()) {
            const auto done = it->find(group);
            if (done != it->end())
                it->erase(done); // by iterator: `group` may be that very key
        }
    }
    return results;
}
