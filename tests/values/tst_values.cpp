// The value record: copy and assignment rules, typed element access,
// equality and the element-wise operators.

#include "host/CLabelVariable.h"

#include <QMetaType>
#include <QtTest>

#include <limits>

namespace {

template <typename T> CLabelVariable record(int dataType, const QList<T> &values, int length = -1)
{
    CLabelVariable r;
    r.status = 0;
    r.tag = QStringLiteral("AI1");
    r.dataType = dataType;
    r.length = length < 0 ? values.size() : length;
    r.value = SorvikValues::toVariant(values);
    return r;
}

template <typename T> QList<T> listOf(const CLabelVariable &r)
{
    return SorvikValues::listFrom<T>(r.value);
}

} // namespace

class TestValues : public QObject
{
    Q_OBJECT

private slots:
    // The host and the drive share one process and must mean the same types by the same names.
    void listTypesCarryTheirQtNames()
    {
        const QList<QByteArray> names{"bool", "char",  "uchar",     "short",      "ushort", "int",
                                      "uint", "float", "qlonglong", "qulonglong", "double", "QString"};
        for (int type = TYPE_BOOL; type <= TYPE_STRING; ++type)
            SorvikValues::visitElementType(type, [&](auto element) {
                const int id = qMetaTypeId<QList<typename decltype(element)::type>>();
                QCOMPARE(QByteArray(QMetaType::typeName(id)), "QList<" + names[type - 1] + ">");
                QCOMPARE(QMetaType::type("QList<" + names[type - 1] + ">"), id);
            });
    }
    void wrongVariantReadsAsEmptyList()
    {
        QVERIFY(SorvikValues::listFrom<int>(QVariant(5)).isEmpty());
        QVERIFY(SorvikValues::listFrom<int>(SorvikValues::toVariant(QList<double>{1.0})).isEmpty());
        QVERIFY(SorvikValues::listFrom<char>(QVariant()).isEmpty());
        QCOMPARE(SorvikValues::listFrom<int>(SorvikValues::toVariant(QList<int>{1, 2})), (QList<int>{1, 2}));
        // A plain list walks as a sequence without knowing its element type.
        QVERIFY(SorvikValues::toVariant(QList<short>{1}).canConvert<QVariantList>());
    }
    void copyKeepsAllFieldsAssignmentKeepsTargetAux()
    {
        CLabelVariable source = record<int>(TYPE_INT32, {7});
        source.statusAux = 0;
        source.auxWord = 99;
        source.auxText = QStringLiteral("x");
        source.time = QDateTime::currentDateTime();

        const CLabelVariable copy(source);
        QCOMPARE(copy.statusAux, 0);
        QCOMPARE(copy.auxWord, 99);

        CLabelVariable target;
        target.statusAux = 10;
        target.auxWord = 5;
        target = source;
        QCOMPARE(target.statusAux, 10);
        QCOMPARE(target.auxWord, 5);
        QVERIFY(target == source); // status, tag, type, length, value and auxText
        QCOMPARE(target.time, source.time);

        const CLabelVariable fresh;
        QCOMPARE(fresh.status, 1);
        QCOMPARE(fresh.statusAux, 1);
        QVERIFY(!fresh.value.isValid());
        QVERIFY(fresh.time.isNull());
    }
    void elementAtReportsRangeAndType()
    {
        CLabelVariable r = record<int>(TYPE_INT32, {4, 5});
        QCOMPARE(r.elementAt<int>(1), 5);
        QCOMPARE(r.statusAux, 0);
        QCOMPARE(r.elementAt<int>(2), 0);
        QCOMPARE(r.statusAux, 10);

        CLabelVariable d = record<double>(TYPE_DOUBLE, {1.5});
        QCOMPARE(d.elementAt<int>(0), 0);
        QCOMPARE(d.statusAux, 11);
    }
    void equality()
    {
        const CLabelVariable a = record<float>(TYPE_FLOAT, {1.0f, 2.0f});
        CLabelVariable b = a;
        b.time = QDateTime::currentDateTime();
        b.statusAux = 0;
        b.auxWord = 77;
        QVERIFY(a == b);
        b.auxText = QStringLiteral("other");
        QVERIFY(!(a == b));
        QVERIFY(a == record<float>(TYPE_FLOAT, {1.0f, 2.0f}));
        QVERIFY(!(a == record<float>(TYPE_FLOAT, {1.0f, 2.5f})));

        // A list longer than the record's length is not equal even to itself, nor is a NaN.
        const CLabelVariable longer = record<float>(TYPE_FLOAT, {1.0f, 2.0f, 3.0f}, 2);
        QVERIFY(!(longer == longer));
        const CLabelVariable withNan = record<float>(TYPE_FLOAT, {std::numeric_limits<float>::quiet_NaN()});
        QVERIFY(!(withNan == withNan));

        // The forms 13..40 compare as their base element.
        QVERIFY(record<qlonglong>(TYPE_INT64_F2, {5}) == record<qlonglong>(TYPE_INT64_F2, {5}));
        QVERIFY(record<QString>(TYPE_STRING, {"ab"}) == record<QString>(TYPE_STRING, {"ab"}));
        QVERIFY(!(record<QString>(TYPE_STRING, {"ab"}) == record<QString>(TYPE_STRING, {"AB"})));

        // Records without an element type compare by the header alone.
        for (int type : {int(TYPE_NONE), int(TYPE_NO_ELEMENT), 99}) {
            CLabelVariable one = record<int>(type, {1});
            CLabelVariable two = record<int>(type, {2, 3});
            two.length = one.length;
            QVERIFY2(one == two, qPrintable(QString::number(type)));
        }
    }
    // Element by element, integers wrapping around; a division by zero must not stop the process.
    void arithmetic()
    {
        const CLabelVariable a = record<bool>(TYPE_BOOL, {true, false});
        const CLabelVariable b = record<bool>(TYPE_BOOL, {true, true});
        QCOMPARE(listOf<bool>(a + b), (QList<bool>{true, true}));
        QCOMPARE(listOf<bool>(a - b), (QList<bool>{false, true}));
        QCOMPARE(listOf<bool>(a * b), (QList<bool>{true, false}));
        QCOMPARE(listOf<bool>(a / b), (QList<bool>{true, false}));
        QCOMPARE(listOf<bool>(record<bool>(TYPE_BOOL, {true}) / record<bool>(TYPE_BOOL, {false})), QList<bool>{false});

        QCOMPARE(listOf<uchar>(record<uchar>(TYPE_UINT8, {200}) + record<uchar>(TYPE_UINT8, {100})), QList<uchar>{44});
        QCOMPARE(listOf<char>(record<char>(TYPE_INT8, {127}) + record<char>(TYPE_INT8, {1})), QList<char>{-128});
        const qlonglong big = std::numeric_limits<qlonglong>::max();
        QCOMPARE(listOf<qlonglong>(record<qlonglong>(TYPE_INT64, {big}) * record<qlonglong>(TYPE_INT64, {2})),
                 QList<qlonglong>{-2});
        QCOMPARE(listOf<short>(record<short>(TYPE_INT16, {-7}) / record<short>(TYPE_INT16, {2})), QList<short>{-3});
        QCOMPARE(listOf<qulonglong>(record<qulonglong>(TYPE_UINT64, {5}) / record<qulonglong>(TYPE_UINT64, {0})),
                 QList<qulonglong>{0});

        // Texts only add up, one to one.
        const CLabelVariable x = record<QString>(TYPE_STRING, {"ab", "c"});
        const CLabelVariable y = record<QString>(TYPE_STRING, {"x", "yz"});
        QCOMPARE(listOf<QString>(x + y), (QList<QString>{"abx", "cyz"}));
        QCOMPARE((x - y).status, 1);
        QVERIFY(!(x - y).value.isValid() && !(x * y).value.isValid() && !(x / y).value.isValid());
    }
    void operatorsNeedFullLists()
    {
        CLabelVariable left = record<int>(TYPE_INT32, {1, 2});
        CLabelVariable right = record<int>(TYPE_INT32, {1});
        right.length = 2;
        right.tag = QStringLiteral("AI9");
        right.status = 8;
        const CLabelVariable r = left + right;
        QVERIFY(listOf<int>(r).isEmpty());
        QCOMPARE(r.value.userType(), qMetaTypeId<QList<int>>());
        QCOMPARE(r.tag, QStringLiteral("AI9"));
        QCOMPARE(r.status, 8);
        QCOMPARE(r.statusAux, 1);
        QVERIFY(r.time.isNull());

        const CLabelVariable none = record<int>(TYPE_NONE, {1}) + record<int>(TYPE_NONE, {1});
        QCOMPARE(none.status, 1);
        QVERIFY(none.tag.isEmpty());
        QVERIFY(!none.value.isValid());
    }
};

QTEST_APPLESS_MAIN(TestValues)
#include "tst_values.moc"
