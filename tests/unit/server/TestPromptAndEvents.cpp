// Faults: samples cut past the budget or wrongly, an upstream reply misread, a fragment event malformed.

#include "EventStream.h"
#include "EventStreamRows.h"
#include "Prompt.h"
#include "ReplyInterpreter.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// The events an upstream reply yields, in the shared rows' terms, and whether a line
// was too long.
std::pair<QStringList, bool> read(const QList<QByteArray> &pieces, qsizetype maxLine)
{
    ReplyInterpreter reader(maxLine);
    QStringList seen;
    using Kind = ReplyEvent::Kind;
    const ReplyInterpreter::Handler collect = [&seen](const ReplyEvent &event) {
        seen.append(event.kind == Kind::Text ? event.text
                : event.kind == Kind::Done   ? u"done"_s
                : event.kind == Kind::Error  ? u"error:"_s + event.text
                                             : u"unexpected"_s);
    };
    for (const QByteArray &piece : pieces)
        reader.feed(piece, collect);
    reader.finish(collect);
    return { seen, reader.lineTooLong() };
}

} // namespace

class TestPromptAndEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void samplesKeepTheNewestWithinBudget_data()
    {
        QTest::addColumn<QStringList>("examples");
        QTest::addColumn<int>("budget");
        QTest::addColumn<QStringList>("kept");
        const auto row = [](const char *name, const QStringList &examples, int budget,
                             const QStringList &kept) { QTest::newRow(name) << examples << budget << kept; };
        row("all fit, order kept", { u"aa"_s, u"bb"_s }, 10, { u"aa"_s, u"bb"_s });
        row("oldest dropped first", { u"old old"_s, u"mid"_s, u"new"_s }, 6, { u"mid"_s, u"new"_s });
        row("exactly the budget", { u"abc"_s, u"def"_s }, 6, { u"abc"_s, u"def"_s });
        row("no older one skipped to fill the gap", { u"a"_s, u"bbbbbb"_s, u"cc"_s }, 5, { u"cc"_s });
        row("newest alone too long is cut", { u"x"_s, u"abcdefgh"_s }, 5, { u"abcde"_s });
        row("cut never splits a surrogate pair", { u"ab🙂cd"_s }, 3, { u"ab"_s });
        row("blank samples ignored", { u"keep"_s, u"  \n "_s }, 4, { u"keep"_s });
        row("zero budget", { u"a"_s }, 0, {});
    }
    void samplesKeepTheNewestWithinBudget()
    {
        QFETCH(QStringList, examples);
        QFETCH(int, budget);
        QFETCH(QStringList, kept);
        QCOMPARE(samplesWithinBudget(examples, budget), kept);
    }

    // The rows the program's reader meets too, through the server's use of the reader, and
    // what only an upstream's reply may mean: an error given as a string, and a whole
    // completion where a stream was asked for.
    void upstreamStreams_data()
    {
        using EventStreamRows::row;
        EventStreamRows::addRows();
        row("error string in an event", "data: {\"error\":\"bad model\"}\n\n", { u"error:bad model"_s });
        row("error object without a message", "data: {\"error\":{\"code\":1}}\n\n",
            { u"error:unknown error"_s });
        row("error string as the whole reply", "{\"error\": \"model not found\"}\n",
            { u"error:model not found"_s });
        row("whole completion", "{\"choices\":[{\"message\":{\"role\":\"assistant\",\n\"content\":\"Hi\"}}]}",
            { u"Hi"_s });
        row("empty content is no fragment",
            "data: {\"choices\":[{\"delta\":{\"content\":\"\"}}]}\n\ndata: [DONE]\n\n", { u"done"_s });
    }
    void upstreamStreams()
    {
        QFETCH(QByteArray, wire);
        QFETCH(QStringList, found);
        QFETCH(qsizetype, maxLine);
        // A model server's reply is over at its end marker or its first error.
        for (qsizetype i = 0; i < found.size(); ++i) {
            if (found.at(i) == "done"_L1 || found.at(i).startsWith("error:"_L1)) {
                found = found.first(i + 1);
                break;
            }
        }
        for (const QList<QByteArray> &pieces : EventStreamRows::cuts(wire)) {
            const auto [seen, tooLong] = read(pieces, maxLine);
            QVERIFY2(
                seen == found, qPrintable(u"in %1 pieces: %2"_s.arg(pieces.size()).arg(seen.join(u" | "_s))));
            // A bound below the reply's size is there to be passed.
            QCOMPARE(tooLong, maxLine < wire.size());
        }
    }

    void fragmentEventsCarryAnyTextIntact_data()
    {
        QTest::addColumn<QString>("fragment");
        QTest::newRow("quotes and backslashes") << u"say \"hi\" \\ C:\\path"_s;
        QTest::newRow("line breaks and tabs") << u"a\r\nb\tc\n"_s;
        QTest::newRow("other control characters") << QString::fromUtf16(u"\x01\x1f\x7f end");
        QTest::newRow("non-ASCII") << u"Grüße — 日本語 🙂"_s;
        QTest::newRow("byte order marks inside the text") << u"\uFEFF\uFEFFa\uFEFF"_s;
        QTest::newRow("empty") << QString();
    }
    void fragmentEventsCarryAnyTextIntact()
    {
        QFETCH(QString, fragment);
        const QByteArray event = fragmentEvent(fragment);
        QVERIFY(event.startsWith("data: "));
        QVERIFY(event.endsWith("\n\n"));
        QCOMPARE(event.count('\n'), 2); // one event line, one blank line
        QString read;
        ReplyInterpreter reader;
        const ReplyInterpreter::Handler collect = [&read](const ReplyEvent &event) { read += event.text; };
        reader.feed(event, collect);
        reader.finish(collect);
        QCOMPARE(read, fragment);
    }
};

QTEST_GUILESS_MAIN(TestPromptAndEvents)
#include "TestPromptAndEvents.moc"
