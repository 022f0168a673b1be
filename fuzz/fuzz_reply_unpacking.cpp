// Hostile read replies: the cut of padding, the identity test and what each read function hands on.

#include "FuzzSupport.h"

#include "link/FrameBytes.h"
#include "link/ReplyUnpacking.h"

using namespace SorvikProtocol;
using FuzzSupport::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const int function = input.ConsumeIntegralInRange(0, 2);
    const int area = input.ConsumeIntegralInRange(0, 0xFF);
    // Lengths as the link lets them through, and a few it refuses before unpacking.
    const int length = input.ConsumeIntegralInRange(-8, 3 * kTransferLimit);
    const QByteArray reply = FuzzSupport::remainingBytes(input);

    // The cut may drop padding between 4 + length and 1472 bytes, never a byte before.
    QByteArray cutReply = reply;
    FrameBytes::cutReply(&cutReply, length);
    const int kept = length >= 0 ? qMin<qint64>(reply.size(), qint64(length) + kReplyHeadSize) : 0;
    check(cutReply.size() <= reply.size(), "the cut never adds bytes");
    check(cutReply.left(kept) == reply.left(kept), "the cut keeps the head and the data");
    ReplyUnpacking::isOwnReply(reply);

    QByteArray out("kept"); // what the array held before stays in front
    switch (function) {
    case 0:
        ReplyUnpacking::unpackBits(reply, length, &out);
        check(out.size() == 4 + qMax(0, length), "a bit read gives one byte per point");
        break;
    case 1:
        ReplyUnpacking::unpackBytes(reply, area, length, &out);
        check(out.size() == 4 + qMax(0, isBitArea(area) ? length / 8 : length), "a byte read gives its length");
        if (!isBitArea(area) && length > 0)
            check(out.mid(4, qMax(0, reply.size() - kReplyHeadSize)) == reply.mid(kReplyHeadSize, length),
                  "a byte read hands the reply's data on unchanged");
        break;
    default: {
        const int count = length / 4; // strings take 256 bytes a block: keep the blocks few
        ReplyUnpacking::unpackStrings(reply, count, &out);
        check(out.size() - 4 <= qMax(0, count) * 128, "a string block gives at most 128 bytes");
        break;
    }
    }
    check(out.startsWith("kept"), "unpacking appends");
    return 0;
}
