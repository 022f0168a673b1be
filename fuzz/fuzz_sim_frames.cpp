// The simulator on any run of frames: a reply has the form of its request, and a write is stored.

#include "FuzzSupport.h"

#include "link/SorvikProtocol.h"
#include "sim/SimController.h"

using namespace SorvikProtocol;
using FuzzSupport::check;

namespace {

// A frame mostly shaped like a request, so that most of them reach the memory.
QByteArray frame(FuzzedDataProvider &input)
{
    if (input.ConsumeBool())
        return FuzzSupport::bytes(input, 64);
    QByteArray head(kRequestHeadSize, '\0');
    head[0] = char(input.ConsumeIntegralInRange(1, 2));
    head[1] = char(kRequestByte1);
    head[kOffsetArea] = char(input.ConsumeIntegralInRange(0, 30));
    put24(head.data() + kOffsetAddress, input.ConsumeIntegralInRange(0, 20000));
    put24(head.data() + kOffsetLength, input.ConsumeIntegralInRange(0, 300));
    return head + FuzzSupport::bytes(input, 300);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    // One controller for all runs: a fresh one would map and zero megabytes of memory each time.
    SimController &controller = FuzzSupport::kept<SimController>();
    controller.memory().clear();
    while (input.remaining_bytes() > 0) {
        const QByteArray request = frame(input);
        const SimAnswer answer = controller.answer(request);
        switch (answer.kind) {
        case SimAnswer::Kind::Read:
            check(answer.reply.size() == kReplyHeadSize + int(get24(request.constData() + kOffsetLength)),
                  "a read reply holds the length asked for");
            check(answer.reply.left(2) == request.left(2), "a read reply repeats the request's identity");
            break;
        case SimAnswer::Kind::Write: {
            const int area = quint8(request.at(kOffsetArea));
            const int address = int(get24(request.constData() + kOffsetAddress));
            const QByteArray carried = request.mid(kRequestHeadSize);
            check(controller.memory().read(area, address, carried.size()) == carried, "a write is stored");
            break;
        }
        case SimAnswer::Kind::Handshake:
            check(request == QByteArray("\x04\x01", 2), "only 04 01 is a handshake");
            break;
        case SimAnswer::Kind::Invalid: check(!answer.reason.isEmpty(), "a refusal says why"); break;
        }
    }
    return 0;
}
