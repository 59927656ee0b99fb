// Faults: replies misread over real reads, failures without a message, wrong or private log lines.
#include "FixtureServer.h"
#include "Log.h"
#include "ReplyInterpreter.h"
#include "ReplyShapes.h"
#include "RewriteRecorder.h"
#include "StdoutCapture.h"
#include "StreamDelegate.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Framing = FixtureReply::Framing;

namespace {

const QString noResponse = u"error:No response received from server"_s;

QByteArray sse(const QByteArray &content)
{
    return R"(data: {"choices":[{"delta":{"content":")" + content + R"("}}]})" + "\n\n";
}

FixtureReply reply(const QByteArray &body, QList<qsizetype> splitAt = {}, int status = 200)
{
    FixtureReply reply;
    reply.status = status;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    if (status == 401) // as real services send it; QNetworkAccessManager asks for credentials then
        reply.headers.append(std::pair<QByteArray, QByteArray>("WWW-Authenticate", "Bearer realm=\"api\""));
    reply.body = body;
    reply.splitAt = std::move(splitAt);
    reply.delay = 5ms; // separate reads on the client, not one coalesced buffer
    return reply;
}

// A reply that stops after `stopAt` bytes of `body`: it stalls or the connection is reset.
FixtureReply broken(
    const QByteArray &body, FixtureReply::End end, qsizetype stopAt, QList<qsizetype> splitAt = {})
{
    FixtureReply broken = reply(body, std::move(splitAt));
    broken.end = end;
    broken.stopAt = stopAt;
    return broken;
}

// The first and last log lines of a request.
QStringList received(int status)
{
    return { u"📡 [StreamDelegate] Response received"_s,
        u"📡 [StreamDelegate] HTTP Status Code: %1"_s.arg(status) };
}
const QString taskCompleted = u"🔚 [StreamDelegate] Task completed - Error: nil"_s;
const QStringList succeeded { taskCompleted, u"✅ [StreamDelegate] Stream completed successfully"_s };
const QStringList failed { taskCompleted,
    u"❌ [StreamDelegate] Stream completed with error (already handled)"_s };

} // namespace

class TestStreamDelegate : public QObject
{
    Q_OBJECT

private:
    FixtureServer m_server;

    // Runs one request against `reply` and returns what reached the callbacks once the
    // delegate is done.
    QStringList run(const FixtureReply &reply, std::chrono::milliseconds idleTimeout = 10s,
        StreamDelegate::Reading reading = {})
    {
        m_server.route("/chat", reply);
        QNetworkRequest request(m_server.url("/chat"));
        request.setTransferTimeout(int(idleTimeout.count()));
        request.setRawHeader("Content-Type", "application/json");
        RewriteRecorder recorder;
        StreamDelegate delegate(request, "{}", recorder.callbacks(), reading);
        QSignalSpy done(&delegate, &StreamDelegate::finished);
        if (!done.wait(20000))
            qWarning("the delegate never finished");
        return recorder.calls;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.listen()); }

    // Whatever the framing and however the body is cut, the same events come out; errors
    // the service reports, replies that yield nothing, and hostile replies, which end in a
    // defined outcome without growing without bound. Where a row gives log lines, the
    // request logs exactly those between its first and last ones.
    void replies_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QList<qsizetype>>("splitAt");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<bool>("fromDesktop"); // the log may end up in the journal

        const auto row = [](const char *name, const QByteArray &body, const QStringList &calls,
                             int status = 200, const QList<qsizetype> &splitAt = {},
                             const QStringList &lines = {}, bool fromDesktop = false) {
            QTest::newRow(name) << status << body << splitAt << calls << lines << fromDesktop;
        };
        const QStringList hello { u"token:Hel"_s, u"token:lo"_s, u"complete"_s };
        const QByteArray twoEvents = sse("Hel") + sse("lo") + "data: [DONE]\n\n";
        row("one piece", twoEvents, hello);
        row("fragment cut inside its json", twoEvents, hello, 200, { 20, 50 });
        // "é" is C3 A9 and "🙂" F0 9F 99 82: cut inside both.
        const QByteArray multiByte = sse("caf\xc3\xa9 \xf0\x9f\x99\x82");
        row("multi-byte characters cut", multiByte, { u"token:café 🙂"_s, u"complete"_s }, 200,
            { multiByte.indexOf('\xc3') + 1, multiByte.indexOf('\xf0') + 2 });
        row("done ends nothing by itself", "data: [DONE]\n" + sse("late"),
            { u"token:late"_s, u"complete"_s });
        const QByteArray badKey
            = R"({"error":{"type":"invalid_request_error","message":"Invalid API key provided"}})";
        row("whole-reply credential error", badKey,
            { u"error:Invalid API key. Please check your token in Settings."_s }, 401, {},
            { u"🔐 [StreamDelegate] Authentication error detected"_s,
                u"📦 [StreamDelegate] Received chunk: "_s + QString::fromUtf8(badKey) + u"..."_s,
                u"❌ [StreamDelegate] Non-streaming error - Type: invalid_request_error, Message: Invalid "
                "API key provided"_s });
        row("whole-reply credential error, cut", badKey,
            { u"error:Invalid API key. Please check your token in Settings."_s }, 401, { 10 });
        row("streamed credential error is passed on unchanged", "data: " + badKey + "\n\n",
            { u"error:Invalid API key provided"_s });
        // One read: what it holds crosses to the main thread together, in its order.
        row("streamed error between fragments",
            sse("Hi") + "data: {\"error\":{\"message\":\"overloaded\"}}\n" + sse("there"),
            { u"token:Hi"_s, u"error:overloaded"_s, u"token:there"_s });
        row("streamed error", R"(data: {"error":{"message":"overloaded"}})", { u"error:overloaded"_s }, 200,
            {},
            { u"📦 [StreamDelegate] Received chunk: data: {\"error\":{\"message\":\"overloaded\"}}..."_s,
                u"📄 [StreamDelegate] Processing line: data: {\"error\":{\"message\":\"overloaded\"}}"_s,
                u"📋 [StreamDelegate] Stream JSON: {\"error\":{\"message\":\"overloaded\"}}"_s,
                u"❌ [StreamDelegate] Streaming error - Type: unknown_error, Message: overloaded"_s });
        row("error without message or type", R"({"error":{"code":1}})", { u"error:Unknown error occurred"_s },
            500);
        row("error member that is a string is no error", R"({"error":"nope"})", { u"complete"_s });
        row("error status, plain body", "<html>upstream down</html>\n",
            { u"error:The service answered with HTTP 502 Bad Gateway."_s }, 502);
        row("error status with fragments is a stream", sse("ok"), { u"token:ok"_s, u"complete"_s }, 500);
        row("no body at all", QByteArray(), { noResponse });

        const QString json = uR"({"choices":[{"delta":{"content":"Hi"}}]})"_s;
        const auto length = [](const QString &value) { return u"[%1 characters]"_s.arg(value.size()); };
        const QByteArray hi = sse("Hi") + "data: [DONE]\n\n";
        const QStringList hiCalls { u"token:Hi"_s, u"complete"_s };
        row("started from the desktop: lengths, no words", hi, hiCalls, 200, { 20 },
            { u"📦 [StreamDelegate] Received chunk: [20 characters]..."_s,
                u"📦 [StreamDelegate] Received chunk: [46 characters]..."_s,
                u"📄 [StreamDelegate] Processing line: "_s + length(u"data: "_s + json),
                u"📋 [StreamDelegate] Stream JSON: "_s + length(json),
                u"📝 [StreamDelegate] Token received: [2 characters]"_s,
                u"📄 [StreamDelegate] Processing line: [0 characters]"_s,
                u"📄 [StreamDelegate] Processing line: [12 characters]"_s,
                u"🏁 [StreamDelegate] Stream completed"_s,
                u"📄 [StreamDelegate] Processing line: [0 characters]"_s },
            true);
        row("typical stream", hi, hiCalls, 200, { 20 },
            { u"📦 [StreamDelegate] Received chunk: data: {\"choices\":[{\"..."_s,
                u"📦 [StreamDelegate] Received chunk: delta\":{\"content\":\"Hi\"}}]}\\n\\ndata: [DONE]\\n\\n..."_s,
                u"📄 [StreamDelegate] Processing line: data: "_s + json,
                u"📋 [StreamDelegate] Stream JSON: "_s + json, u"📝 [StreamDelegate] Token received: Hi"_s,
                u"📄 [StreamDelegate] Processing line: "_s,
                u"📄 [StreamDelegate] Processing line: data: [DONE]"_s,
                u"🏁 [StreamDelegate] Stream completed"_s, u"📄 [StreamDelegate] Processing line: "_s });
        // Its lines are logged as they come, its data once it is whole, on one line.
        row("event over two data lines", "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"Hi\"}}]}\n\n",
            hiCalls, 200, {},
            { u"📦 [StreamDelegate] Received chunk: data: {\"choices\":[{\"delta\":\\ndata: {\"content\":\"Hi\"}}]}\\n\\n..."_s,
                u"📄 [StreamDelegate] Processing line: data: {\"choices\":[{\"delta\":"_s,
                u"📄 [StreamDelegate] Processing line: data: {\"content\":\"Hi\"}}]}"_s,
                u"📄 [StreamDelegate] Processing line: "_s,
                u"📋 [StreamDelegate] Stream JSON: {\"choices\":[{\"delta\":\\n{\"content\":\"Hi\"}}]}"_s,
                u"📝 [StreamDelegate] Token received: Hi"_s });

        // Hostile replies, cut in three.
        const auto hostile = [&row](const char *name, const QByteArray &body, const QStringList &calls) {
            row(name, body, calls, 200, { body.size() / 3, body.size() / 2 });
        };
        hostile("50 MB line, then an event", "data: " + QByteArray(50 * 1024 * 1024, 'x') + "\n" + sse("ok"),
            { u"token:ok"_s, u"complete"_s });
        hostile("1 MB fragment", sse(QByteArray(1024 * 1024, 'y')),
            { u"token:"_s + QString(1024 * 1024, u'y'), u"complete"_s });
        hostile("raw NUL inside an event passes as a character",
            QByteArray(sse("a_b")).replace('_', '\0') + sse("ok"),
            { u"token:a"_s + QChar(0) + u"b"_s, u"token:ok"_s, u"complete"_s });
        hostile("10,000 levels of nesting in an event",
            "data: " + QByteArray(10000, '[') + QByteArray(10000, ']') + "\n\n" + sse("ok"),
            { u"token:ok"_s, u"complete"_s });
        hostile("10,000 levels of nesting as the whole reply",
            "{\"error\":" + QByteArray(10000, '{') + QByteArray(10000, '}') + "}", { u"complete"_s });
    }

    void replies()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QList<qsizetype>, splitAt);
        QFETCH(QStringList, calls);
        QFETCH(QStringList, lines);
        QFETCH(bool, fromDesktop);
        for (Framing framing : { Framing::ContentLength, Framing::Chunked, Framing::Close }) {
            FixtureReply scripted = reply(body, splitAt, status);
            scripted.framing = framing;
            Log::setDetail(fromDesktop ? Log::Detail::Private : Log::Detail::Full);
            StdoutCapture capture; // megabytes of log lines do not belong in the test output
            const QStringList actual = run(scripted);
            const QStringList logged = lines.isEmpty() ? QStringList() : capture.lines();
            capture.restore(); // test failures are reported on stdout too
            Log::setDetail(Log::Detail::Full);
            QCOMPARE(actual, calls);
            if (!lines.isEmpty())
                QCOMPARE(logged,
                    received(status) + lines + (calls.last().startsWith(u"error:"_s) ? failed : succeeded));
        }
    }

    // A model server's reply, in every shape the table holds, whole and a byte per read: the
    // text, the thinking apart from it, and an ending that is never a finished empty rewrite.
    void modelServerReplies_data() { ReplyShapes::addRows(); }
    void modelServerReplies()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, wire);
        QFETCH(QString, answer);
        QFETCH(QString, reasoning);
        QFETCH(QString, ending);
        QList<qsizetype> everyByte;
        for (qsizetype at = 1; at < wire.size(); ++at)
            everyByte.append(at);
        for (const bool split : { false, true }) {
            FixtureReply scripted = reply(wire, split ? everyByte : QList<qsizetype> {}, status);
            scripted.framing = Framing::Chunked;
            scripted.delay = split ? 1ms : 0ms;
            StdoutCapture capture;
            const QStringList calls = run(scripted, 10s, { .modelServer = true });
            capture.restore();
            QString text;
            QString thought;
            for (const QString &call : calls) {
                if (call.startsWith("token:"_L1))
                    text += call.sliced(6);
                else if (call.startsWith("thinking:"_L1))
                    thought += call.sliced(9);
            }
            QCOMPARE(text, answer);
            QCOMPARE(thought, reasoning);
            const QString last = calls.value(calls.size() - 1);
            if (ending == "answer"_L1)
                QCOMPARE(last, u"complete"_s);
            else if (ending == "notext"_L1)
                QCOMPARE(last, u"error:"_s + ReplyInterpreter::noTextMessage());
            else if (ending == "thinking"_L1)
                QCOMPARE(last, u"error:"_s + ReplyInterpreter::unclosedThinkingMessage());
            else if (ending == "status"_L1)
                QVERIFY2(last.startsWith(u"error:The service answered with HTTP %1"_s.arg(status)),
                    qPrintable(last));
            else
                QCOMPARE(last, ending);
            QCOMPARE(calls.filter(QRegularExpression(u"^(complete|error:)"_s)).size(), 1);
        }
    }

    // A reply longer than the bound is cut there, keeping what came, and ends in a failure
    // that says so; the transfer stops instead of reading on.
    void replyBeyondTheBound_data()
    {
        QTest::addColumn<bool>("modelServer");
        QTest::newRow("tessary service") << false;
        QTest::newRow("model server") << true;
    }
    void replyBeyondTheBound()
    {
        QFETCH(bool, modelServer);
        QByteArray body;
        for (int i = 0; i < 30; ++i)
            body += sse("0123456789");
        // After 10 fragments the reply stalls: only stopping it ends the transfer in time.
        FixtureReply endless = broken(body, FixtureReply::End::Stall, sse("0123456789").size() * 12);
        StdoutCapture capture;
        RewriteRecorder recorder;
        QNetworkRequest request(m_server.url("/chat"));
        m_server.route("/chat", endless);
        StreamDelegate delegate(
            request, "{}", recorder.callbacks(), { .modelServer = modelServer, .maxCharacters = 95 });
        QSignalSpy done(&delegate, &StreamDelegate::finished);
        QVERIFY(done.wait(20000));
        capture.restore();
        QString text;
        for (const QString &call : recorder.calls.filter(QRegularExpression(u"^token:"_s)))
            text += call.sliced(6);
        QCOMPARE(text.size(), 95);
        QCOMPARE(recorder.failures.size(), 1);
        QCOMPARE(recorder.failures.first().kind, Failure::Kind::TooLong);
        QVERIFY(recorder.calls.last().startsWith(u"error:The reply passed 95 characters"_s));
    }

    // A failing transport always ends in one error naming it (a stall: the timeout), after whatever the
    // service said before, and never in "no response".
    void transportFailures_data()
    {
        QTest::addColumn<FixtureReply>("scripted");
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QString>("error"); // how the error begins

        using End = FixtureReply::End;
        QTest::newRow("reset before any body")
            << broken(sse("never"), End::Reset, 0) << QStringList {} << u"error:"_s;
        QTest::newRow("reset mid-stream")
            << broken(sse("a") + sse("b"), End::Reset, sse("a").size() + 10, { 30 })
            << QStringList { u"token:a"_s } << u"error:"_s;
        const QByteArray errorThenMore = "data: {\"error\":{\"message\":\"bad\"}}\n" + sse("b");
        QTest::newRow("reset after a streamed error")
            << broken(errorThenMore, End::Reset, errorThenMore.indexOf("data", 5))
            << QStringList { u"error:bad"_s } << u"error:"_s;
        QTest::newRow("stall") << broken(sse("a") + sse("b"), End::Stall, sse("a").size())
                               << QStringList { u"token:a"_s } << u"error:The request timed out."_s;
    }

    void transportFailures()
    {
        QFETCH(FixtureReply, scripted);
        QFETCH(QStringList, before);
        QFETCH(QString, error);
        // Long enough for a loaded machine to deliver what came before the failure.
        const QStringList calls = run(scripted, 1s);
        QCOMPARE(calls.size(), before.size() + 1);
        QCOMPARE(calls.mid(0, before.size()), before);
        QVERIFY2(calls.last().startsWith(error) && calls.last() != noResponse, qPrintable(calls.last()));
    }

    void cancelEndsWithoutOutcome()
    {
        m_server.route("/chat", broken(sse("a") + sse("b"), FixtureReply::End::Stall, sse("a").size()));

        StdoutCapture capture;
        RewriteRecorder recorder;
        StreamDelegate delegate(QNetworkRequest(m_server.url("/chat")), "{}", recorder.callbacks());
        QSignalSpy done(&delegate, &StreamDelegate::finished);
        QTRY_COMPARE(recorder.calls, QStringList { u"token:a"_s });
        delegate.cancel();
        QVERIFY(done.wait());
        const QStringList lines = capture.lines();
        QCOMPARE(recorder.calls, QStringList { u"token:a"_s });
        QVERIFY(
            lines.contains(u"🔚 [StreamDelegate] Task completed - Error: Error Code=-999 \"cancelled\""_s));
        QCOMPARE(lines.last(), u"🔄 [StreamDelegate] Request was cancelled"_s);
    }
};

QTEST_GUILESS_MAIN(TestStreamDelegate)
#include "TestStreamDelegate.moc"
