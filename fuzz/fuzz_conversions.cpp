// The drive's decoders, encoders and value record operators on any bytes, counts and values.

#include "FuzzSupport.h"

#include "drive/LibSorvik.h"

using FuzzSupport::check;

namespace {

// Indexed by DataType minus 1.
const decltype(&LibSorvik::set_variant_bool) kDecoders[] = {
    &LibSorvik::set_variant_bool,   &LibSorvik::set_variant_Int8,   &LibSorvik::set_variant_UInt8,
    &LibSorvik::set_variant_Int16,  &LibSorvik::set_variant_UInt16, &LibSorvik::set_variant_Int32,
    &LibSorvik::set_variant_UInt32, &LibSorvik::set_variant_fload,  &LibSorvik::set_variant_Int64,
    &LibSorvik::set_variant_UInt64, &LibSorvik::set_variant_double, &LibSorvik::set_variant_string};
const decltype(&LibSorvik::Wset_variant_bool) kEncoders[] = {
    &LibSorvik::Wset_variant_bool,   &LibSorvik::Wset_variant_Int8,   &LibSorvik::Wset_variant_UInt8,
    &LibSorvik::Wset_variant_Int16,  &LibSorvik::Wset_variant_uInt16, &LibSorvik::Wset_variant_Int32,
    &LibSorvik::Wset_variant_UInt32, &LibSorvik::Wset_variant_float,  &LibSorvik::Wset_variant_Int64,
    &LibSorvik::Wset_variant_UInt64, &LibSorvik::Wset_variant_double, &LibSorvik::Wset_variant_string};

constexpr auto drive = FuzzSupport::kept<LibSorvik>;

// Every decoder gives a list of its own type, never more elements than asked for.
void decode(FuzzedDataProvider &input)
{
    const int type = input.ConsumeIntegralInRange(1, 12);
    // Now and then any count: a huge one costs a list of a million zeros, so not often.
    const int count =
        input.ConsumeIntegralInRange(0, 7) == 0 ? input.ConsumeIntegral<int>() : input.ConsumeIntegralInRange(-8, 4000);
    const QByteArray data = FuzzSupport::remainingBytes(input);
    const QVariant value = (drive().*kDecoders[type - 1])(data, count);
    SorvikValues::visitElementType(type, [&](auto element) {
        using T = typename decltype(element)::type;
        check(value.userType() == qMetaTypeId<QList<T>>(), "a decoder gives the list of its type");
        check(SorvikValues::listFrom<T>(value).size() <= qMax(0, count), "a decoder gives at most count elements");
    });
}

template <typename T> QByteArray bitsOf(const QList<T> &list)
{
    QByteArray bits;
    for (const T &element : list)
        bits.append(reinterpret_cast<const char *>(&element), sizeof(T));
    return bits;
}

// A payload holds at most count elements, and the little-endian decoder of its type reads it back.
void encode(FuzzedDataProvider &input)
{
    const int type = input.ConsumeIntegralInRange(1, 12);
    const int count = input.ConsumeIntegralInRange(-2, 100);
    CLabelVariable label;
    label.value = FuzzSupport::value(input);
    QByteArray payload;
    (drive().*kEncoders[type - 1])(label, count, &payload);
    if (type == TYPE_STRING)
        return;
    const int width = qMax(1, dataTypeSize(type));
    check(payload.size() <= qMax(0, count) * width, "a payload holds at most count elements");
    if (type == TYPE_INT64 || type == TYPE_UINT64)
        return; // the 64-bit integer decoders alone read the most significant byte first
    SorvikValues::visitElementType(type, [&](auto element) {
        using T = typename decltype(element)::type;
        if (!SorvikValues::holdsConvertible<T>(label.value) || label.value.userType() != qMetaTypeId<QList<T>>())
            return;
        const QList<T> given = SorvikValues::listFrom<T>(label.value).mid(0, qMax(0, count));
        const QList<T> back = SorvikValues::listFrom<T>((drive().*kDecoders[type - 1])(payload, given.size()));
        check(bitsOf(given) == bitsOf(back), "decoding gives back what encoding wrote");
    });
}

// Operators on records of any type, length and value never trap, not even on x / 0 or INT_MIN / -1.
void operate(FuzzedDataProvider &input)
{
    CLabelVariable a, b;
    for (CLabelVariable *record : {&a, &b}) {
        record->dataType = FuzzSupport::dataType(input);
        record->length = input.ConsumeIntegralInRange(-1, 8);
        record->value = FuzzSupport::value(input, 8);
    }
    const bool equal = a == b;
    check(equal == (b == a), "equality is symmetric");
    (void)(a + b);
    (void)(a - b);
    (void)(a * b);
    (void)(a / b);
    a.elementAt<int>(input.ConsumeIntegral<int>());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0: decode(input); break;
    case 1: encode(input); break;
    default: operate(input); break;
    }
    return 0;
}
