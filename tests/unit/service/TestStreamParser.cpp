// Faults: a completion reply misread where the network cuts it, or its lines shown wrong in the log.

#include "EventStreamRows.h"
#include "StreamParser.h"

#include <QLoggingCategory>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// What the parser reported, in the rows' terms, and the lines it saw.
struct Recorder : StreamParser::Listener
{
    QStringList found;
    QStringList lines;

    void line(QByteArrayView line) override { lines.append(QString::fromUtf8(line)); }
    void endMarker() override { found.append(u"done"_s); }
    void event(QByteArrayView) override { }
    void token(const QString &fragment) override { found.append(fragment); }
    void streamedError(const QString &, const QString &message) override
    {
        found.append(u"error:"_s + message);
    }
    void nonStreamedError(const QString &, const QString &message) override
    {
        found.append(u"error:"_s + message);
    }
};

} // namespace

class TestStreamParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The over-long line's warning would come once per cut.
    void initTestCase() { QLoggingCategory::setFilterRules(u"tessary.service.stream.warning=false"_s); }

    void eventStreams_data() { EventStreamRows::addRows(); }

    void eventStreams()
    {
        QFETCH(QByteArray, wire);
        QFETCH(QStringList, found);
        QFETCH(qsizetype, maxLine);
        for (const QList<QByteArray> &pieces : EventStreamRows::cuts(wire)) {
            Recorder recorder;
            StreamParser parser(recorder, maxLine);
            for (const QByteArray &piece : pieces)
                parser.feed(piece);
            parser.finish();
            QVERIFY2(recorder.found == found,
                qPrintable(u"in %1 pieces: %2"_s.arg(pieces.size()).arg(recorder.found.join(u" | "_s))));
        }
    }

    // The log shows every line as it was meant, trimmed and without its line end, blank
    // ones included, however the line ends and cuts fall.
    void linesForTheLog()
    {
        const QByteArray wire = "\xEF\xBB\xBF: c\r\n\t data: [DONE] \r\rid: 1\nlast";
        const QStringList lines { u": c"_s, u"data: [DONE]"_s, QString(), u"id: 1"_s, u"last"_s };
        for (const QList<QByteArray> &pieces : EventStreamRows::cuts(wire)) {
            Recorder recorder;
            StreamParser parser(recorder);
            for (const QByteArray &piece : pieces)
                parser.feed(piece);
            parser.finish();
            QCOMPARE(recorder.lines, lines);
        }
    }
};

QTEST_GUILESS_MAIN(TestStreamParser)
#include "TestStreamParser.moc"
