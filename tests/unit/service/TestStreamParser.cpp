#include "StreamParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// What the parser reported, as "line:", "done", "event:", "token:", "error:" and
// "whole:" entries in order.
struct Recorder : StreamParser::Listener
{
    QStringList seen;
    bool withLines = true;

    void line(QByteArrayView line) override
    {
        if (withLines)
            seen.append(u"line:"_s + QString::fromUtf8(line));
    }
    void endMarker() override { seen.append(u"done"_s); }
    void event(QByteArrayView json) override { seen.append(u"event:"_s + QString::fromUtf8(json)); }
    void token(const QString &fragment) override { seen.append(u"token:"_s + fragment); }
    void streamedError(const QString &type, const QString &message) override
    {
        seen.append(u"error:%1|%2"_s.arg(type, message));
    }
    void nonStreamedError(const QString &type, const QString &message) override
    {
        seen.append(u"whole:%1|%2"_s.arg(type, message));
    }
};

QStringList parse(const QList<QByteArray> &pieces, bool withLines = true)
{
    Recorder recorder;
    recorder.withLines = withLines;
    StreamParser parser(recorder);
    for (const QByteArray &piece : pieces)
        parser.feed(piece);
    parser.finish();
    return recorder.seen;
}

// What a general JSON parser makes of the payload: the reference the event reader
// must agree with.
QStringList reference(const QByteArray &payload)
{
    const QJsonDocument document = QJsonDocument::fromJson(payload);
    if (!document.isObject())
        return {};
    const QJsonObject object = document.object();
    QStringList seen { u"event:"_s + QString::fromUtf8(payload) };
    const QJsonValue error = object.value("error"_L1);
    if (error.isObject()) {
        const QJsonValue type = error["type"_L1];
        const QJsonValue message = error["message"_L1];
        seen.append(u"error:%1|%2"_s.arg(type.isString() ? type.toString() : u"unknown_error"_s,
            message.isString() ? message.toString() : u"Unknown error occurred"_s));
        return seen;
    }
    const QJsonValue content = object["choices"_L1].toArray().at(0)["delta"_L1]["content"_L1];
    if (content.isString())
        seen.append(u"token:"_s + content.toString());
    return seen;
}

// Payloads valid and invalid. Outside the test class: moc loses its way in raw strings
// with unbalanced braces and quotes.
QList<std::pair<const char *, QByteArray>> payloadRows()
{
    return {
        { "typical chunk",
            QByteArray(R"({"id":"c1","object":"chat.completion.chunk","created":1700000000,"model":"m",)"
                       R"("choices":[{"index":0,"delta":{"role":"assistant","content":" word"},)"
                       R"("finish_reason":null}]})") },
        { "escapes",
            QByteArray("{\"choices\":[{\"delta\":{\"content\":\"a\\nb\\t\\\"q\\\" \\\\ \\/ \\u00e9 "
                       "\\ud83d\\ude42 \\b\\f\\r\"}}]}") },
        { "escaped key", QByteArray(R"({"choices":[{"delta":{"cont\u0065nt":"x"}}]})") },
        { "blanks everywhere",
            QByteArray("{\t\"choices\" : [ { \"delta\" :\t{ \"content\" : \"x\" } } ] }") },
        { "other values of every kind",
            QByteArray(R"({"a":[1,-2.5,3e10,-0.1E-3,true,false,null,{},[],{"b":[{"c":"d"}]}],)"
                       R"("choices":[{"logprobs":{"x":[1,2]},"delta":{"content":"ok","x":null}}]})") },
        { "content not a string", QByteArray(R"({"choices":[{"delta":{"content":5}}]})") },
        { "content null", QByteArray(R"({"choices":[{"delta":{"content":null}}]})") },
        { "delta not an object", QByteArray(R"({"choices":[{"delta":"content"}]})") },
        { "first choice not an object", QByteArray(R"({"choices":["x",{"delta":{"content":"second"}}]})") },
        { "error object wins over choices",
            QByteArray(R"({"choices":[{"delta":{"content":"x"}}],"error":{"type":"t","message":"m"}})") },
        { "error with odd members", QByteArray(R"({"error":{"type":7,"message":["m"],"code":"x"}})") },
        { "error that is a string", QByteArray(R"({"error":"broken"})") },
        { "empty object", QByteArray("{}") },
        { "array", QByteArray(R"([{"choices":[]}])") },
        { "string", QByteArray(R"("text")") },
        { "trailing comma", QByteArray(R"({"choices":[{"delta":{"content":"x"}}],})") },
        { "missing colon", QByteArray(R"({"choices" [{"delta":{"content":"x"}}]})") },
        { "unterminated string", QByteArray(R"({"choices":[{"delta":{"content":"x}}]})") },
        { "cut off", QByteArray(R"({"choices":[{"delta":{"content":"x"}})") },
        { "garbage after the object", QByteArray(R"({"choices":[]} x)") },
        { "bare word", QByteArray(R"({"choices":[tru]})") },
        { "bad number", QByteArray(R"({"n":-,"choices":[{"delta":{"content":"x"}}]})") },
        { "nested deeper than any service sends",
            QByteArray("{\"a\":" + QByteArray(5000, '[') + QByteArray(5000, ']') + "}") },
    };
}

} // namespace

class TestStreamParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Valid and invalid payloads, read exactly as a full JSON parser reads them.
    void payloads_data()
    {
        QTest::addColumn<QByteArray>("payload");
        for (const auto &[name, payload] : payloadRows())
            QTest::newRow(name) << payload;
    }

    void payloads()
    {
        QFETCH(QByteArray, payload);
        QCOMPARE(parse({ "data: " + payload + "\n" }, false), reference(payload));
    }

    // However the network cuts a stream with every kind of line end, the same events
    // come out: cut once at every offset, and byte by byte.
    void cutsAndLineEnds()
    {
        const QByteArray stream = ": comment\r\n"
                                  "data: {\"choices\":[{\"delta\":{\"content\":\"caf\xc3\xa9\"}}]}\r\n\r\n"
                                  "data:{\"choices\":[{\"delta\":{\"content\":\"\xf0\x9f\x99\x82\"}}]}\r\r"
                                  "\t data: {\"choices\":[{\"delta\":{\"content\":\"x\"}}]} \n"
                                  "data: [DONE]\r"
                                  "data: {\"choices\":[{\"delta\":{\"content\":\"end\"}}]}";
        const QStringList whole = parse({ stream });
        QStringList tokens;
        for (const QString &entry : whole) {
            if (entry.startsWith(u"token:"_s) || entry == u"done"_s)
                tokens.append(entry);
        }
        QCOMPARE(tokens,
            (QStringList { u"token:café"_s, u"token:🙂"_s, u"token:x"_s, u"done"_s, u"token:end"_s }));
        QCOMPARE(whole.count(u"line:"_s), 2); // the blank lines after the first two events

        for (qsizetype cut = 1; cut < stream.size(); ++cut)
            QCOMPARE(parse({ stream.left(cut), stream.mid(cut) }), whole);
        QList<QByteArray> bytes;
        for (char c : stream)
            bytes.append(QByteArray(1, c));
        QCOMPARE(parse(bytes), whole);
    }

    // A reply that is one JSON error object, however it arrives, is reported once.
    void wholeReplyError_data()
    {
        QTest::addColumn<QList<QByteArray>>("pieces");
        QTest::addColumn<QStringList>("errors");

        const QStringList slowDown { u"whole:rate_limit|Slow down"_s };
        QTest::newRow("one piece") << QList<QByteArray> {
            R"({"error":{"type":"rate_limit","message":"Slow down"}})"
        } << slowDown;
        QTest::newRow("pieces with line breaks") << QList<QByteArray> { "{\n \"error\": {\n",
            "  \"type\": \"rate_limit\",\n  \"message\": \"Slow down\"\n", " }\n}\n" }
                                                 << slowDown;
        QTest::newRow("line end after the object")
            << QList<QByteArray> { R"({"error":{"type":"rate_limit","message":"Slow down"}})", "\n", "\n" }
            << slowDown;
        QTest::newRow("within an event stream it is a line like any other")
            << QList<QByteArray> { "data: [DONE]\n", R"({"error":{"message":"x"}})" } << QStringList {};
        QTest::newRow("not an error object")
            << QList<QByteArray> { R"({"error":{"message":"x"},)", "garbage" } << QStringList {};
    }

    void wholeReplyError()
    {
        QFETCH(QList<QByteArray>, pieces);
        QFETCH(QStringList, errors);
        QStringList reported;
        for (const QString &entry : parse(pieces)) {
            if (entry.startsWith(u"whole:"_s) || entry.startsWith(u"error:"_s))
                reported.append(entry);
        }
        QCOMPARE(reported, errors);
    }
};

QTEST_GUILESS_MAIN(TestStreamParser)
#include "TestStreamParser.moc"
