#pragma once

#include "ValueLists.h"

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <type_traits>

// The value record of one tag, passed and returned by value.
class CLabelVariable
{
public:
    int status = 1;     // 0 ok, 1 fresh, 2 type, 3 area, 4 length, 8 no reply, 9 link closed
    int statusAux = 1;  // outcome of the last elementAt: 0 found, 10 out of range, 11 other type
    QVariant value;     // a QList of the element type of dataType
    QDateTime time;
    QString tag;
    // Not set by construction in the host's layout; zero here so that a fresh
    // record never carries indeterminate bits into a comparison.
    int length = 0;
    int dataType = 0;
    int auxWord = 0;
    QString auxText;

    CLabelVariable() = default;
    CLabelVariable(const CLabelVariable &) = default;

    // Assignment keeps the target's statusAux and auxWord.
    CLabelVariable &operator=(const CLabelVariable &other)
    {
        status = other.status;
        value = other.value;
        time = other.time;
        tag = other.tag;
        length = other.length;
        dataType = other.dataType;
        auxText = other.auxText;
        return *this;
    }

    template <typename T>
    T elementAt(int index)
    {
        if (!SorvikValues::holdsConvertible<T>(value)) {
            statusAux = 11;
            return T();
        }
        const QList<T> list = SorvikValues::listFrom<T>(value);
        if (index < 0 || index >= list.size()) {
            statusAux = 10;
            return T();
        }
        statusAux = 0;
        return list.at(index);
    }

    bool operator==(const CLabelVariable &other) const
    {
        const bool header = status == other.status && tag == other.tag && length == other.length
                            && dataType == other.dataType && auxText == other.auxText;
        bool equal = header;
        const bool typed = SorvikValues::visitElementType(dataType, [&](auto element) {
            using T = typename decltype(element)::type;
            const QList<T> left = SorvikValues::listFrom<T>(value);
            const QList<T> right = SorvikValues::listFrom<T>(other.value);
            if (left.size() != length || right.size() != length) {
                equal = false;
                return;
            }
            for (int i = 0; equal && i < length; ++i)
                equal = left.at(i) == right.at(i); // IEEE rules: a NaN differs from itself
        });
        return typed ? equal : header;
    }
    bool operator!=(const CLabelVariable &other) const { return !(*this == other); }

    CLabelVariable operator+(const CLabelVariable &other) const { return combine(other, Op::Add); }
    CLabelVariable operator-(const CLabelVariable &other) const { return combine(other, Op::Sub); }
    CLabelVariable operator*(const CLabelVariable &other) const { return combine(other, Op::Mul); }
    CLabelVariable operator/(const CLabelVariable &other) const { return combine(other, Op::Div); }

private:
    enum class Op { Add, Sub, Mul, Div };

    static bool apply(bool a, bool b, Op op)
    {
        switch (op) {
        case Op::Add: return a || b;
        case Op::Sub: return a != b;
        case Op::Mul: return a && b;
        case Op::Div: return b && a; // x / false has no quotient: it gives false
        }
        return false;
    }

    template <typename T>
    static std::enable_if_t<std::is_integral<T>::value, T> apply(T a, T b, Op op)
    {
        // Computed in the unsigned type of the width, so that results wrap
        // around instead of overflowing.
        using U = std::make_unsigned_t<T>;
        const U ua = static_cast<U>(a), ub = static_cast<U>(b);
        switch (op) {
        case Op::Add: return static_cast<T>(static_cast<U>(ua + ub));
        case Op::Sub: return static_cast<T>(static_cast<U>(ua - ub));
        case Op::Mul: return static_cast<T>(static_cast<U>(static_cast<unsigned long long>(ua) * ub));
        case Op::Div:
            if (b == 0)
                return T(0); // division by zero gives the element 0 instead of a trap
            if (std::is_signed<T>::value && b == T(-1))
                return static_cast<T>(static_cast<U>(U(0) - ua)); // MIN / -1 wraps to MIN
            return static_cast<T>(a / b);
        }
        return T();
    }

    // IEEE 754 types: a quotient by zero is an infinity or a NaN, never a trap.
    template <typename T>
    static std::enable_if_t<std::is_floating_point<T>::value, T> apply(T a, T b, Op op)
    {
        switch (op) {
        case Op::Add: return a + b;
        case Op::Sub: return a - b;
        case Op::Mul: return a * b;
        case Op::Div:
            return a / b;
        }
        return T();
    }

    // Texts have no difference, product or quotient; their sum joins the two
    // texts element by element, which is what a user adding texts expects.
    static QString apply(const QString &a, const QString &b, Op) { return a + b; }

    CLabelVariable combine(const CLabelVariable &other, Op op) const
    {
        if (dataType == TYPE_STRING && op != Op::Add)
            return CLabelVariable();
        CLabelVariable result;
        result.status = other.status;
        result.tag = other.tag;
        result.length = other.length;
        result.dataType = other.dataType;
        result.auxText = other.auxText;
        const bool typed = SorvikValues::visitElementType(dataType, [&](auto element) {
            using T = typename decltype(element)::type;
            const QList<T> left = SorvikValues::listFrom<T>(value);
            const QList<T> right = SorvikValues::listFrom<T>(other.value);
            QList<T> out;
            if (length > 0 && left.size() == length && right.size() == length) {
                out.reserve(length);
                for (int i = 0; i < length; ++i)
                    out.append(apply(left.at(i), right.at(i), op));
            }
            result.value = SorvikValues::toVariant(out);
        });
        return typed ? result : CLabelVariable();
    }
};
