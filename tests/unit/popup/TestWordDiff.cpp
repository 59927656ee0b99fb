// Faults: a wrong side shown for a kept word, whitespace counted as a change, the rest of
// the original struck out while the rewrite streams, markup that lets the user's text be
// read as tags, a change summary that miscounts.
#include "WordDiff.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {
// [+added] [-dropped], the rest as kept.
QString render(const QList<WordDiff::Segment> &segments)
{
    QString text;
    for (const WordDiff::Segment &segment : segments) {
        switch (segment.kind) {
        case WordDiff::Kind::Same:
            text += segment.text;
            break;
        case WordDiff::Kind::Inserted:
            text += u"[+"_s + segment.text + u"]"_s;
            break;
        case WordDiff::Kind::Deleted:
            text += u"[-"_s + segment.text + u"]"_s;
            break;
        }
    }
    return text;
}
} // namespace

class TestWordDiff : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void marks_data();
    void marks();
    void tooLongIsShownUnmarked();
    void markup_data();
    void markup();
    void summary_data();
    void summary();
};

void TestWordDiff::marks_data()
{
    QTest::addColumn<QString>("original");
    QTest::addColumn<QString>("result");
    QTest::addColumn<bool>("partial");
    QTest::addColumn<QString>("marked");
    QTest::addColumn<int>("changed");

    QTest::newRow("identical") << u"Hello world"_s << u"Hello world"_s << false << u"Hello world"_s << 0;
    QTest::newRow("a word replaced") << u"see you tmrw"_s << u"see you tomorrow"_s << false
                                     << u"see you [-tmrw][+tomorrow]"_s << 1;
    QTest::newRow("a word added") << u"send the report"_s << u"please send the report"_s << false
                                  << u"[+please ]send the report"_s << 1;
    QTest::newRow("a word dropped") << u"it is very good"_s << u"it is good"_s << false
                                    << u"it is [-very ]good"_s << 1;
    QTest::newRow("a sign added") << u"Hi there"_s << u"Hi there!"_s << false << u"Hi there[+!]"_s << 1;
    QTest::newRow("whitespace is no change")
        << u"Hello  world\n"_s << u"Hello world"_s << false << u"Hello world"_s << 0;
    QTest::newRow("case is a change") << u"hello"_s << u"Hello"_s << false << u"[-hello][+Hello]"_s << 1;
    QTest::newRow("two words for one")
        << u"I cannot come"_s << u"I can not come"_s << false << u"I [-cannot ][+can not ]come"_s << 2;
    QTest::newRow("lines") << u"line one\nline two"_s << u"line one\nline 2"_s << false
                           << u"line one\nline [-two][+2]"_s << 1;
    QTest::newRow("nothing before") << QString() << u"New text"_s << false << u"[+New text]"_s << 2;
    QTest::newRow("Cyrillic, a comma")
        << u"Привет мир"_s << u"Привет, мир"_s << false << u"Привет[+, ]мир"_s << 1;
    QTest::newRow("finished: the rest was dropped") << u"The meeting moved to three"_s << u"The meeting"_s
                                                    << false << u"The meeting[- moved to three]"_s << 3;
    QTest::newRow("streaming: the rest is still to come")
        << u"The meeting moved to three"_s << u"The meeting"_s << true << u"The meeting"_s << 0;
    QTest::newRow("streaming: a change before the end is marked")
        << u"The meeting moved to three"_s << u"The call"_s << true << u"The [-meeting ][+call]"_s << 1;
}

void TestWordDiff::marks()
{
    QFETCH(QString, original);
    QFETCH(QString, result);
    QFETCH(bool, partial);
    QFETCH(QString, marked);
    QFETCH(int, changed);

    const WordDiff::Result diff = WordDiff::compare(original, result, partial);
    QCOMPARE(render(diff.segments), marked);
    QCOMPARE(diff.changedWords, changed);
    QVERIFY(!diff.tooLong);
}

void TestWordDiff::tooLongIsShownUnmarked()
{
    const QString original = u"word "_s.repeated(WordDiff::maxTokens + 1);
    const QString result = u"other "_s.repeated(10);
    const WordDiff::Result diff = WordDiff::compare(original, result);
    QVERIFY(diff.tooLong);
    QCOMPARE(render(diff.segments), result);
    QCOMPARE(WordDiff::summary(diff), u"Too long to mark the changes"_s);
}

void TestWordDiff::markup_data()
{
    QTest::addColumn<QString>("original");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("html");

    QTest::newRow("added underlined")
        << u"a b"_s << u"a x b"_s << u"a <u><font color=\"#00ff00\">x </font></u>b"_s;
    QTest::newRow("dropped struck through")
        << u"a x b"_s << u"a b"_s << u"a <s><font color=\"#ff0000\">x </font></s>b"_s;
    QTest::newRow("tags are text") << u"<b>bold</b>"_s << u"<b>bold</b>"_s << u"&lt;b&gt;bold&lt;/b&gt;"_s;
    QTest::newRow("ampersand") << u"A & B"_s << u"A & B"_s << u"A &amp; B"_s;
    QTest::newRow("line break") << u"one\ntwo"_s << u"one\ntwo"_s << u"one<br>two"_s;
}

void TestWordDiff::markup()
{
    QFETCH(QString, original);
    QFETCH(QString, result);
    QFETCH(QString, html);

    const WordDiff::Result diff = WordDiff::compare(original, result);
    QCOMPARE(WordDiff::markup(diff.segments, QColor(0, 255, 0), QColor(255, 0, 0)), html);
}

void TestWordDiff::summary_data()
{
    QTest::addColumn<QString>("original");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("summary");

    QTest::newRow("none") << u"same"_s << u"same"_s << u"No words changed"_s;
    QTest::newRow("one") << u"a b"_s << u"a c"_s << u"1 word changed"_s;
    QTest::newRow("twelve") << u"one two three four five six seven eight nine ten eleven twelve end"_s
                            << u"1 2 3 4 5 6 7 8 9 10 11 12 end"_s << u"12 words changed"_s;
}

void TestWordDiff::summary()
{
    QFETCH(QString, original);
    QFETCH(QString, result);
    QFETCH(QString, summary);

    QCOMPARE(WordDiff::summary(WordDiff::compare(original, result)), summary);
}

QTEST_GUILESS_MAIN(TestWordDiff)
#include "TestWordDiff.moc"
