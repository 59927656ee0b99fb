#pragma once

// Event streams as services send them, and what a reader must find in each: fragments,
// the end marker and errors, in order. The program and tessary-server read event streams
// with the same reader; each runs these rows through its own use of it, cut in every way
// the network may cut them.

#include <QByteArray>
#include <QList>
#include <QStringList>
#include <QTest>

namespace EventStreamRows {

// One fragment event's line, without its line end.
inline QByteArray fragment(const QByteArray &content)
{
    return R"(data: {"choices":[{"delta":{"content":")" + content + R"("}}]})";
}

// One event of `payload`, with the blank line that ends it.
inline QByteArray event(const QByteArray &payload)
{
    return "data: " + payload + "\n\n";
}

// "wire": the reply's bytes. "found": each fragment's text, "done" for the end marker,
// "error:" and the message for an error the service reported. "maxLine": the reader's
// bound on the length of a line.
inline void row(
    const char *name, const QByteArray &wire, const QStringList &found, qsizetype maxLine = 1 << 20)
{
    QTest::newRow(name) << wire << found << maxLine;
}

inline void addRows()
{
    using namespace Qt::StringLiterals;
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<QStringList>("found");
    QTest::addColumn<qsizetype>("maxLine");
    const QStringList hello { u"Hel"_s, u"lo"_s, u"done"_s };
    const QByteArray hel = fragment("Hel");
    const QByteArray lo = fragment("lo");

    row("LF", hel + "\n\n" + lo + "\n\ndata: [DONE]\n\n", hello);
    row("CRLF", hel + "\r\n\r\n" + lo + "\r\n\r\ndata: [DONE]\r\n\r\n", hello);
    row("CR", hel + "\r\r" + lo + "\r\rdata: [DONE]\r\r", hello);
    row("comments, blanks around lines, no space after the colon",
        ": keep-alive\r\n\t " + hel + " \t\n\n" + QByteArray(lo).replace("data: ", "data:")
            + "\r\n\r\n:\ndata:[DONE]\n\n",
        hello);
    row("event, id, retry and unknown fields are read and ignored",
        "event: message\nid: 7\nretry: 3000\n" + hel + "\n\nid\nevent: error\nretry: soon\n"
            + R"(foo: {"error":{"message":"x"}})" + "\n" + lo + "\n\ndata: [DONE]\n\n",
        hello);
    row("byte order mark", "\xEF\xBB\xBF" + hel + "\n\n" + lo + "\n\ndata: [DONE]\n\n", hello);
    row("a byte order mark after the start is no mark", hel + "\n\n\xEF\xBB\xBF" + lo + "\n\n", { u"Hel"_s });
    row("one event over several data lines",
        "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"Hel\"}}]}\n\n" + lo + "\n\n",
        { u"Hel"_s, u"lo"_s });
    row("pretty-printed event with a line that is JSON by itself",
        "data: {\ndata:   \"choices\": [\ndata:     {\"delta\": {\"content\": \"Hel\"}}\ndata:   ]\ndata: "
        "}\n\n",
        { u"Hel"_s });
    row("no blank lines between events", hel + "\n" + lo + "\ndata: [DONE]\n", hello);
    row("last line without line end", hel + "\n\n" + lo, { u"Hel"_s, u"lo"_s });
    row("unfinished event of several lines at the end",
        hel + "\n\ndata: {\"choices\":[{\"delta\":\ndata: {\"content\":\"lo\"}}]}", { u"Hel"_s, u"lo"_s });
    row("multi-byte characters", fragment("caf\xc3\xa9 \xf0\x9f\x99\x82") + "\n\n", { u"café 🙂"_s });
    row("bytes that are not UTF-8 become U+FFFD", fragment("a\xff\xfe b") + "\n\n", { u"a\uFFFD\uFFFD b"_s });
    row("escapes", fragment(R"(a\nb \"q\" \\ \u00e9 \ud83d\ude42)") + "\n\n", { u"a\nb \"q\" \\ é 🙂"_s });
    row("only the first choice",
        event(R"({"choices":[{"delta":{"content":"a"}},{"delta":{"content":"b"}}]})"), { u"a"_s });
    row("no content, content not a string, no choices",
        event(R"({"choices":[{"delta":{"role":"assistant"}}]})")
            + event(R"({"choices":[{"delta":{"content":5}}]})") + event(R"({"choices":[]})")
            + event(R"({"choices":{}})") + event("[1,2]") + fragment("ok") + "\n\n",
        { u"ok"_s });
    // Each is its own event, so none takes the next one with it.
    row("not JSON: leading zero, trailing comma, cut off, garbage after",
        event(R"({"n":01,"choices":[{"delta":{"content":"x"}}]})")
            + event(R"({"choices":[{"delta":{"content":"x"}}],})")
            + event(R"({"choices":[{"delta":{"content":"x"}})")
            + event(R"({"choices":[{"delta":{"content":"x"}}]} x)") + event("nonsense") + fragment("ok")
            + "\n\n",
        { u"ok"_s });
    row("end marker ends nothing by itself", event("[DONE]") + fragment("late") + "\n\n",
        { u"done"_s, u"late"_s });
    row("error event between fragments",
        hel + "\n\n" + event(R"({"error":{"type":"server_error","message":"overloaded"}})") + lo + "\n\n",
        { u"Hel"_s, u"error:overloaded"_s, u"lo"_s });
    row("error object as the whole reply",
        R"({"error":{"type":"invalid_request_error","message":"Invalid API key provided"}})",
        { u"error:Invalid API key provided"_s });
    row("error object as the whole reply, with line breaks",
        "{\r\n  \"error\": {\n    \"type\": \"rate_limit\",\n    \"message\": \"Slow down\"\n  }\n}\n",
        { u"error:Slow down"_s });
    row("error object after an event is no whole reply",
        "data: [DONE]\n"
        R"({"error":{"message":"x"}})",
        { u"done"_s });
    row("whole reply that is no JSON",
        R"({"error":{"message":"x"},)"
        "\ngarbage",
        {});
    row("a line over the bound is dropped, the next one read",
        fragment(QByteArray(100, 'x')) + "\n\n" + fragment("ok") + "\n\n" + fragment(QByteArray(100, 'y')),
        { u"ok"_s }, 80);
    row("an event over the bound is dropped, the next one read",
        "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"" + QByteArray(50, 'x') + "\"}}]}\ndata: x\n\n"
            + fragment("ok") + "\n\n",
        { u"ok"_s }, 80);
}

// The reply whole, cut once at every offset, and a byte at a time.
inline QList<QList<QByteArray>> cuts(const QByteArray &wire)
{
    QList<QList<QByteArray>> all { { wire } };
    for (qsizetype at = 1; at < wire.size(); ++at)
        all.append({ wire.first(at), wire.sliced(at) });
    QList<QByteArray> bytes;
    for (const char c : wire)
        bytes.append(QByteArray(1, c));
    all.append(bytes);
    return all;
}

} // namespace EventStreamRows
