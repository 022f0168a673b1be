// Looking up write plans and the entries no plan could take.

#include "CInductiveDrive.h"

using Induction::SWriteInfo;

CInductiveDrive::WritePlan CInductiveDrive::GetInductiveDrive_Write(const QString &connectPar)
{
    return m_writePlans.value(connectPar);
}

SWriteGroup CInductiveDrive::GetInductiveDrive_Write(const QString &connectPar, const QList<SWriteInfo> &group)
{
    const auto plan = m_writePlans.constFind(connectPar);
    return plan == m_writePlans.cend() ? SWriteGroup() : plan->value(group);
}

QList<SWriteInfo> CInductiveDrive::GetCannotInductiveDrive_Write(const QString &connectPar)
{
    return m_cannotWrite.value(connectPar);
}
