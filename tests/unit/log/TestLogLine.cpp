// Guards the line's form and the one place that hides the user's words: a private value
// shown in a line meant for the journal, or a name hidden where it is no secret, fails here.
#include "Log.h"
#include "StdoutCapture.h"

#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace {
constexpr Log::Literal tag = u"Tag";
}

class TestLogLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { Log::setDetail(Log::Detail::Full); }

    void line_data()
    {
        QTest::addColumn<std::function<void()>>("write");
        QTest::addColumn<QString>("full");
        QTest::addColumn<QString>("hidden");

        const QString words = u"Grüße 👋🏽"_s;
        QTest::newRow("fixed text") << std::function<void()>(
            [] { Log::write(u"❌", tag, u"No data received"); })
                                    << u"❌ [Tag] No data received"_s << u"❌ [Tag] No data received"_s;
        QTest::newRow("the user's words, counted as stored") << std::function<void()>([words] {
            Log::write(u"📝", tag, { u"Token: ", Log::Private(words) });
        }) << u"📝 [Tag] Token: Grüße 👋🏽"_s << u"📝 [Tag] Token: [10 characters]"_s;
        QTest::newRow("an empty line of the reply") << std::function<void()>([] {
            Log::write(u"📄", tag, { u"Line: ", Log::Private({}) });
        }) << u"📄 [Tag] Line: "_s << u"📄 [Tag] Line: [0 characters]"_s;
        QTest::newRow("a key's start between fixed text") << std::function<void()>([] {
            Log::write(u"🔑", tag, { u"Using API key: ", Log::Private(u"sk-abcde"_s), u"..." });
        }) << u"🔑 [Tag] Using API key: sk-abcde..."_s << u"🔑 [Tag] Using API key: [8 characters]..."_s;
        QTest::newRow("an application's name is no secret") << std::function<void()>([] {
            Log::write(u"🔧", tag, { u"App: ", Log::Public(u"Mousepad"_s) });
        }) << u"🔧 [Tag] App: Mousepad"_s << u"🔧 [Tag] App: Mousepad"_s;
        QTest::newRow("numbers and a truth value") << std::function<void()>([] {
            Log::write(u"🔧", tag, { qsizetype(12), u" ", -25204, u" ", quint64(7), u" ", true, u"/", false });
        }) << u"🔧 [Tag] 12 -25204 7 true/false"_s << u"🔧 [Tag] 12 -25204 7 true/false"_s;
        QTest::newRow("a line without glyph or tag") << std::function<void()>([] {
            Log::write({ u"Version: ", Log::Public(u"1.2.0"_s) });
        }) << u"Version: 1.2.0"_s << u"Version: 1.2.0"_s;
        QTest::newRow("several values of the user in one line") << std::function<void()>([] {
            Log::write({ u"a=", Log::Private(u"xy"_s), u" b=", Log::Private(u"xyz"_s) });
        }) << u"a=xy b=xyz"_s << u"a=[2 characters] b=[3 characters]"_s;
    }

    void line()
    {
        QFETCH(std::function<void()>, write);
        QFETCH(QString, full);
        QFETCH(QString, hidden);

        StdoutCapture out;
        Log::setDetail(Log::Detail::Full);
        write();
        Log::setDetail(Log::Detail::Private);
        write();
        QCOMPARE(out.lines(), (QStringList { full, hidden }));
    }

    // Lines gathered for one write still come out one per event, in order, and only once.
    void gatheredLines()
    {
        StdoutCapture out;
        Log::setDetail(Log::Detail::Private);
        Log::Lines lines;
        lines.flush();
        QVERIFY(out.lines().isEmpty());
        lines.add(u"📄", tag, { u"Line: ", Log::Private(u"data: x"_s) });
        lines.add(u"🏁", tag, u"Stream completed");
        QVERIFY(out.lines().isEmpty());
        lines.flush();
        lines.flush();
        QCOMPARE(
            out.lines(), (QStringList { u"📄 [Tag] Line: [7 characters]"_s, u"🏁 [Tag] Stream completed"_s }));
    }
};

QTEST_GUILESS_MAIN(TestLogLine)
#include "TestLogLine.moc"
