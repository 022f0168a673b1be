// Looking up and deleting read plans and the tags no plan could take.

#include "CInductiveDrive.h"

using Induction::SReadInfo;

CInductiveDrive::ReadPlan CInductiveDrive::GetInductiveDrive_Read(const QString &connectPar)
{
    return m_readPlans.value(connectPar);
}

SReadGroup CInductiveDrive::GetInductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &group)
{
    const auto plan = m_readPlans.constFind(connectPar);
    return plan == m_readPlans.cend() ? SReadGroup() : plan->value(group);
}

QList<SReadInfo> CInductiveDrive::GetCannotInductiveDrive_Read(const QString &connectPar)
{
    return m_cannotRead.value(connectPar);
}

void CInductiveDrive::DelInductiveDrive_Read(const QString &connectPar)
{
    m_readPlans.remove(connectPar);
}

void CInductiveDrive::DelInductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &group)
{
    const auto plan = m_readPlans.find(connectPar);
    if (plan == m_readPlans.end())
        return;
    plan->remove(group);
    if (plan->isEmpty())
        m_readPlans.erase(plan); // an emptied plan is no plan
}

void CInductiveDrive::DelCannotInductiveDrive_Read(const QString &connectPar)
{
    m_cannotRead.remove(connectPar);
}
