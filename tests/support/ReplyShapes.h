#pragma once

// Replies that model servers send to a streamed chat completion, and how each must end,
// whichever program reads it: the desktop program talking to a model server directly, and
// tessary-server relaying one. Both read them with the same interpreter; each runs these
// rows through its own use of it, over real HTTP, cut into single bytes.

#include <QByteArray>
#include <QString>
#include <QTest>

namespace ReplyShapes {

inline QByteArray delta(const QByteArray &member, const QByteArray &value)
{
    return R"(data: {"choices":[{"index":0,"delta":{")" + member + R"(":")" + value + R"("}}]})" + "\n\n";
}
inline QByteArray text(const QByteArray &content)
{
    return delta("content", content);
}
inline const QByteArray done = "data: [DONE]\n\n";

// "status": the HTTP status. "wire": the body. "answer": the text the user gets (all of
// it, in order). "reasoning": the thinking, apart from it. "ending": "answer", "error:"
// and the model server's words, "notext", "thinking" (it never stopped thinking) or
// "status" (an error status that said nothing else).
inline void addRows()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("reasoning");
    QTest::addColumn<QString>("ending");
    const auto row
        = [](const char *name, const QByteArray &wire, const QString &answer,
              const QString &ending = QStringLiteral("answer"), const QString &reasoning = {},
              int status = 200) { QTest::newRow(name) << status << wire << answer << reasoning << ending; };
    using namespace Qt::StringLiterals;

    row("streamed deltas", text("Hel") + text("lo") + done, u"Hello"_s);
    row("role-only and empty deltas carry nothing",
        delta("role", "assistant") + text("") + text("Hi")
            + R"(data: {"choices":[{"delta":{},"finish_reason":"stop"}]})" + "\n\n" + done,
        u"Hi"_s);
    row("whole completion although a stream was asked",
        R"({"id":"c1","object":"chat.completion","choices":[{"index":0,"message":{"role":"assistant","content":"Hi there"},"finish_reason":"stop"}]})",
        u"Hi there"_s);
    row("whole completion over several lines",
        "{\n  \"choices\": [\n    {\"message\": {\"content\": \"Hi\\nthere\"}}\n  ]\n}\n", u"Hi\nthere"_s);
    row("text after the end marker is not read", text("Hi") + done + text(" late"), u"Hi"_s);
    row("error string in an event",
        R"(data: {"error":"the server is busy"})"
        "\n\n",
        {}, u"error:the server is busy"_s);
    row("error object in an event ends the text",
        text("Par")
            + R"(data: {"error":{"message":"overloaded"}})"
              "\n\n"
            + text("more"),
        u"Par"_s, u"error:overloaded"_s);
    row("error string as the whole body, with an error status", R"({"error":"the server is busy"})", {},
        u"error:the server is busy"_s, {}, 503);
    row("error object as the whole body, with status 200",
        R"({"error":{"message":"context too long","type":"invalid_request_error"}})", {},
        u"error:context too long"_s);
    row("only the end marker", done, {}, u"notext"_s);
    row("only empty deltas", delta("role", "assistant") + text("") + done, {}, u"notext"_s);
    row("a whole completion without content", R"({"choices":[{"message":{"role":"assistant"}}]})", {},
        u"notext"_s);
    row("error status with a page", "<html><body>Bad gateway</body></html>", {}, u"status"_s, {}, 502);
    row("error status with an event stream is a stream", text("ok") + done, u"ok"_s, u"answer"_s, {}, 500);

    // Reasoning models: thinking is never text, however the tags are cut.
    row("inline think block",
        text("<thi") + text("nk>plan ") + text("it</th") + text("ink>\\n\\nHel") + text("lo") + done,
        u"Hello"_s, u"answer"_s, u"plan it"_s);
    row("inline thinking block after blank lines",
        text("\\n<thinking>") + text("a < b") + text("</thinking>") + text("Hi") + done, u"Hi"_s, u"answer"_s,
        u"a < b"_s);
    row("reasoning_content members",
        delta("reasoning_content", "hmm") + delta("reasoning_content", ", ok") + text("Hi") + done, u"Hi"_s,
        u"answer"_s, u"hmm, ok"_s);
    row("reasoning members", delta("reasoning", "so") + text("Hi") + done, u"Hi"_s, u"answer"_s, u"so"_s);
    row("a block that never closes", text("<think>") + text("I wonder") + done, {}, u"thinking"_s,
        u"I wonder"_s);
    row("only reasoning, no content", delta("reasoning_content", "hmm") + done, {}, u"notext"_s, u"hmm"_s);
    row("a whole completion that thinks first",
        R"({"choices":[{"message":{"content":"<think>x</think>\n\nHi","reasoning_content":"y"}}]})", u"Hi"_s,
        u"answer"_s, u"yx"_s);
    row("a tag inside the text is text", text("Use ") + text("<think> tags") + done, u"Use <think> tags"_s);
    row("a text that starts like a tag is text", text("<thin") + text(" line") + done, u"<thin line"_s);
}

} // namespace ReplyShapes
