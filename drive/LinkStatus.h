#pragma once

// The record status that a failed link call leaves.

#include "../host/RecordStatus.h"
#include "../link/LinkResult.h"

inline int statusOfLinkFailure(int result)
{
    return result == LinkResult::NotOpen ? RecordStatus::LinkNotOpen : RecordStatus::NoReply;
}
