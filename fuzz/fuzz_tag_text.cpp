// Any tag text through the one-tag addressing and the engine's analysis, with lengths of any type and count.

#include "FuzzSupport.h"

#include "drive/LibSorvik.h"

using FuzzSupport::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const int type = FuzzSupport::dataType(input);
    const int number = input.ConsumeIntegral<int>();
    const QString tag = input.ConsumeBool() ? FuzzSupport::tagLike(input) : FuzzSupport::anyText(input, 64);
    LibSorvik &sorvik = FuzzSupport::kept<LibSorvik>();

    const int area = sorvik.getArea(tag);
    check(area == 0 || sorvik.getmaximum_length(area) > 0, "a tag's area has a size");
    sorvik.getAddr(tag);
    sorvik.getmaximum_length(number);
    // A negative count gives a negative length, which the one-tag paths refuse before it.
    const int length = sorvik.getBytelen(DataType(type), number, area);
    check(length < 1468 && (number < 0 || length >= 0), "a transfer length stays below 1468");
    sorvik.getBytelen(DataType(type), number, number);

    const CInductiveDrive &engine = sorvik.m_engine;
    const STagAddress address = engine.analyseTag(tag, type);
    const QString name = engine.areaName(address.area);
    check(address.isBlank() || ((address.areaText == name || address.areaText == name.toLower()) &&
                                address.number >= 1 && address.number <= 32767),
          "an analysed tag names an area and a number from 1 to 32767");
    engine.tagSize(Induction::SReadInfo{tag, type});
    engine.tagOffset(tag, number, type);
    engine.areaCode(tag);
    engine.areaName(number);
    return 0;
}
