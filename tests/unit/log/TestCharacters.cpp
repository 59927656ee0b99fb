// Faults: an emoji with a skin tone or a letter with a combining accent counted or cut as
// several characters; a surrogate pair split at a cut.
#include "Characters.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestCharacters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void measures_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qsizetype>("count");
        QTest::addColumn<QString>("firstThree");
        QTest::addColumn<QString>("upToThreeUnits");

        QTest::newRow("empty") << QString() << qsizetype(0) << QString() << QString();
        QTest::newRow("plain") << u"abcdef"_s << qsizetype(6) << u"abc"_s << u"abc"_s;
        QTest::newRow("shorter than the cut") << u"ab"_s << qsizetype(2) << u"ab"_s << u"ab"_s;
        // e + combining acute accent: one character the user sees, two code points.
        QTest::newRow("combining accent")
            << u"e\u0301te\u0301s"_s << qsizetype(4) << u"e\u0301te\u0301"_s << u"e\u0301t"_s;
        // Waving hand + skin tone: one character, four UTF-16 units; a cut keeps the pair whole.
        QTest::newRow("emoji with a skin tone")
            << u"a👋🏽b"_s << qsizetype(3) << u"a👋🏽b"_s << u"a👋"_s;
        QTest::newRow("surrogate pair at the cut") << u"ab😀c"_s << qsizetype(4) << u"ab😀"_s << u"ab😀"_s;
    }

    void measures()
    {
        QFETCH(QString, text);
        QTEST(Characters::count(text), "count");
        QTEST(Characters::first(text, 3), "firstThree");
        QTEST(Characters::upTo(text, 3), "upToThreeUnits");
    }
};

QTEST_GUILESS_MAIN(TestCharacters)
#include "TestCharacters.moc"
