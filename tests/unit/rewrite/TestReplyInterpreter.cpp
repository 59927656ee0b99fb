// Faults: a reply shape misread (text lost, thinking shown as text, an error or an empty reply
// ending as a finished rewrite), a tag cut by the network leaking, a changed script unnoticed.
#include "EventStreamRows.h"
#include "ReplyInterpreter.h"
#include "ReplyShapes.h"
#include "ScriptCheck.h"
#include "ThinkingFilter.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Read
{
    QString answer;
    QString reasoning;
    QString ending;
};

Read read(const QList<QByteArray> &pieces, int status)
{
    ReplyInterpreter interpreter;
    Read seen;
    const ReplyInterpreter::Handler collect = [&seen](const ReplyEvent &event) {
        switch (event.kind) {
        case ReplyEvent::Kind::Text:
            seen.answer += event.text;
            break;
        case ReplyEvent::Kind::Reasoning:
            seen.reasoning += event.text;
            break;
        case ReplyEvent::Kind::Error:
            seen.ending = u"error:"_s + event.text;
            break;
        case ReplyEvent::Kind::Done:
            break;
        }
    };
    for (const QByteArray &piece : pieces)
        interpreter.feed(piece, collect);
    interpreter.finish(collect);
    switch (interpreter.ending()) {
    case ReplyInterpreter::Ending::Answered:
        seen.ending = u"answer"_s;
        break;
    case ReplyInterpreter::Ending::ReportedError:
        break;
    case ReplyInterpreter::Ending::NoText:
        seen.ending = status >= 400 ? u"status"_s : u"notext"_s;
        break;
    case ReplyInterpreter::Ending::UnclosedThinking:
        seen.ending = u"thinking"_s;
        break;
    }
    return seen;
}

} // namespace

class TestReplyInterpreter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replyShapes_data() { ReplyShapes::addRows(); }
    void replyShapes()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, wire);
        QFETCH(QString, answer);
        QFETCH(QString, reasoning);
        QFETCH(QString, ending);
        for (const QList<QByteArray> &pieces : EventStreamRows::cuts(wire)) {
            const Read seen = read(pieces, status);
            const QString where = u"in %1 pieces"_s.arg(pieces.size());
            QVERIFY2(seen.answer == answer, qPrintable(where + u": "_s + seen.answer));
            QVERIFY2(seen.reasoning == reasoning, qPrintable(where + u": "_s + seen.reasoning));
            QVERIFY2(seen.ending == ending, qPrintable(where + u": "_s + seen.ending));
        }
    }

    // However the content is cut into fragments, the thinking is held back whole and the
    // answer starts where it ends.
    void thinkingCutAnywhere_data()
    {
        QTest::addColumn<QString>("content");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("reasoning");
        QTest::addColumn<bool>("unclosed");
        QTest::newRow("think") << u"<think>a\n</think>\n\nHi 🙂"_s << u"Hi 🙂"_s << u"a\n"_s << false;
        QTest::newRow("thinking, after spaces")
            << u" \n<thinking>x</thinking>Yo"_s << u"Yo"_s << u"x"_s << false;
        QTest::newRow("closer of the other tag is thinking")
            << u"<think>a</thinking>b</think>c"_s << u"c"_s << u"a</thinking>b"_s << false;
        QTest::newRow("empty block") << u"<think></think>Hi"_s << u"Hi"_s << QString() << false;
        QTest::newRow("never closed") << u"<think>a</thin"_s << QString() << u"a</thin"_s << true;
        QTest::newRow("no block") << u"Hi <think>"_s << u"Hi <think>"_s << QString() << false;
        QTest::newRow("tag-like start") << u"<thinker>"_s << u"<thinker>"_s << QString() << false;
        QTest::newRow("only the start of a tag") << u"<thi"_s << u"<thi"_s << QString() << false;
        QTest::newRow("nothing after the block") << u"<think>a</think>\n"_s << QString() << u"a"_s << false;
    }
    void thinkingCutAnywhere()
    {
        QFETCH(QString, content);
        QFETCH(QString, answer);
        QFETCH(QString, reasoning);
        QFETCH(bool, unclosed);
        // Every way of cutting it in two or three.
        for (qsizetype first = 0; first <= content.size(); ++first) {
            for (qsizetype second = first; second <= content.size(); ++second) {
                ThinkingFilter filter;
                QString text;
                QString thought;
                for (const QString &piece :
                    { content.first(first), content.sliced(first, second - first), content.sliced(second) }) {
                    const ThinkingFilter::Split split = filter.take(piece);
                    text += split.text;
                    thought += split.reasoning;
                }
                const ThinkingFilter::Split rest = filter.finish();
                text += rest.text;
                thought += rest.reasoning;
                const QString where = u"cut at %1 and %2"_s.arg(first).arg(second);
                QVERIFY2(text == answer, qPrintable(where + u": "_s + text));
                QVERIFY2(thought == reasoning, qPrintable(where + u": "_s + thought));
                QCOMPARE(filter.unclosed(), unclosed);
            }
        }
    }

    void changedScript_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("changed");
        const QString english = u"Please send me the report by Friday."_s;
        QTest::newRow("same language") << english << u"Could you send the report by Friday?"_s << false;
        QTest::newRow("another language, same script")
            << english << u"Bitte schick mir den Bericht."_s << false;
        QTest::newRow("latin to cyrillic") << english << u"Пожалуйста, пришлите отчёт до пятницы."_s << true;
        QTest::newRow("japanese to english") << u"金曜日までに報告書を送ってください。"_s << english << true;
        QTest::newRow("japanese kana and kanji count as one")
            << u"金曜日までに報告書を送ってください。"_s << u"ほうこくしょをきんようびまでにおくってね。"_s
            << false;
        QTest::newRow("a few foreign letters say nothing") << english << u"OK: отчёт"_s << false;
        QTest::newRow("digits and signs say nothing") << u"12345 + 678 = 13023"_s << english << false;
        QTest::newRow("greek quoted inside english") << english + u" (α β)"_s << english << false;
    }
    void changedScript()
    {
        QFETCH(QString, original);
        QFETCH(QString, result);
        QTEST(ScriptCheck::changedScript(original, result), "changed");
    }
};

QTEST_GUILESS_MAIN(TestReplyInterpreter)
#include "TestReplyInterpreter.moc"
