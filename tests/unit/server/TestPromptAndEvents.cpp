// The pure pieces of tessary-server: how samples are cut to the budget, and how an
// upstream's event stream is read whatever its line ends and read boundaries.

#include "EventStream.h"
#include "Prompt.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestPromptAndEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void samplesKeepTheNewestWithinBudget_data()
    {
        QTest::addColumn<QStringList>("examples");
        QTest::addColumn<int>("budget");
        QTest::addColumn<QStringList>("kept");
        QTest::newRow("all fit, order kept")
            << QStringList { u"aa"_s, u"bb"_s } << 10 << QStringList { u"aa"_s, u"bb"_s };
        QTest::newRow("oldest dropped first")
            << QStringList { u"old old"_s, u"mid"_s, u"new"_s } << 6 << QStringList { u"mid"_s, u"new"_s };
        QTest::newRow("exactly the budget")
            << QStringList { u"abc"_s, u"def"_s } << 6 << QStringList { u"abc"_s, u"def"_s };
        QTest::newRow("no older one skipped to fill the gap")
            << QStringList { u"a"_s, u"bbbbbb"_s, u"cc"_s } << 5 << QStringList { u"cc"_s };
        QTest::newRow("newest alone too long is cut")
            << QStringList { u"x"_s, u"abcdefgh"_s } << 5 << QStringList { u"abcde"_s };
        QTest::newRow("cut never splits a surrogate pair")
            << QStringList { u"ab🙂cd"_s } << 3 << QStringList { u"ab"_s };
        QTest::newRow("blank samples ignored")
            << QStringList { u"keep"_s, u"  \n "_s } << 4 << QStringList { u"keep"_s };
        QTest::newRow("zero budget") << QStringList { u"a"_s } << 0 << QStringList();
    }
    void samplesKeepTheNewestWithinBudget()
    {
        QFETCH(QStringList, examples);
        QFETCH(int, budget);
        QFETCH(QStringList, kept);
        QCOMPARE(samplesWithinBudget(examples, budget), kept);
    }

    void upstreamStreamsAreReadInAnyShape_data()
    {
        QTest::addColumn<QList<QByteArray>>("pieces");
        QTest::addColumn<QStringList>("payloads");
        const QStringList both { u"{\"a\":1}"_s, u"[DONE]"_s };
        QTest::newRow("LF") << QList<QByteArray> { "data: {\"a\":1}\n\ndata: [DONE]\n\n" } << both;
        QTest::newRow("CRLF split between CR and LF")
            << QList<QByteArray> { "data: {\"a\":1}\r", "\n\r\ndata: [DONE]\r\n" } << both;
        QTest::newRow("CR only") << QList<QByteArray> { "data: {\"a\":1}\r\rdata: [DONE]\r" } << both;
        QTest::newRow("no space after the colon, comments between")
            << QList<QByteArray> { ": keep-alive\ndata:{\"a\":1}\nevent: x\n", "data:[DONE]\n" } << both;
        QTest::newRow("payload split mid-character")
            << QList<QByteArray> { "data: \xc3", "\xa9\n" } << QStringList { u"é"_s };
        QTest::newRow("last line without line end")
            << QList<QByteArray> { "data: {\"a\":1}\ndata: [DO", "NE]" } << both;
    }
    void upstreamStreamsAreReadInAnyShape()
    {
        QFETCH(QList<QByteArray>, pieces);
        QFETCH(QStringList, payloads);
        EventStreamParser parser;
        QStringList seen;
        const auto collect = [&seen](QByteArrayView payload) { seen << QString::fromUtf8(payload); };
        for (const QByteArray &piece : pieces)
            parser.feed(piece, collect);
        parser.finish(collect);
        QCOMPARE(seen, payloads);
    }

    void upstreamPayloadsMeanWhatTheySay_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("text");
        using Kind = UpstreamEvent::Kind;
        QTest::newRow("fragment") << QByteArray(R"({"choices":[{"delta":{"content":"Hi"}}]})")
                                  << int(Kind::Fragment) << u"Hi"_s;
        QTest::newRow("role-only delta") << QByteArray(R"({"choices":[{"delta":{"role":"assistant"}}]})")
                                         << int(Kind::Ignored) << QString();
        QTest::newRow("error object")
            << QByteArray(R"({"error":{"message":"overloaded"}})") << int(Kind::Error) << u"overloaded"_s;
        QTest::newRow("error string")
            << QByteArray(R"({"error":"bad model"})") << int(Kind::Error) << u"bad model"_s;
        QTest::newRow("done") << QByteArray("[DONE]") << int(Kind::Done) << QString();
        QTest::newRow("not JSON") << QByteArray("{oops") << int(Kind::Ignored) << QString();
    }
    void upstreamPayloadsMeanWhatTheySay()
    {
        QFETCH(QByteArray, payload);
        QFETCH(int, kind);
        QFETCH(QString, text);
        const UpstreamEvent event = interpretPayload(payload);
        QCOMPARE(int(event.kind), kind);
        QCOMPARE(event.text, text);
    }

    void fragmentEventsCarryAnyTextIntact_data()
    {
        QTest::addColumn<QString>("fragment");
        QTest::newRow("quotes and backslashes") << u"say \"hi\" \\ C:\\path"_s;
        QTest::newRow("line breaks and tabs") << u"a\r\nb\tc\n"_s;
        QTest::newRow("other control characters") << QString::fromUtf16(u"\x01\x1f\x7f end");
        QTest::newRow("non-ASCII") << u"Grüße — 日本語 🙂"_s;
        QTest::newRow("empty") << QString();
    }
    void fragmentEventsCarryAnyTextIntact()
    {
        QFETCH(QString, fragment);
        const QByteArray event = fragmentEvent(fragment);
        QVERIFY(event.startsWith("data: "));
        QVERIFY(event.endsWith("\n\n"));
        QCOMPARE(event.count('\n'), 2); // one event line, one blank line
        const UpstreamEvent read = interpretPayload(QByteArrayView(event).sliced(6).chopped(2));
        QCOMPARE(read.text, fragment);
    }
};

QTEST_GUILESS_MAIN(TestPromptAndEvents)
#include "TestPromptAndEvents.moc"
