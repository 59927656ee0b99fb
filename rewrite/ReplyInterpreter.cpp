#include "ReplyInterpreter.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QString errorMessageOf(const QJsonValue &error)
{
    if (error.isString() && !error.toString().isEmpty())
        return error.toString();
    const QString message = error.toObject().value("message"_L1).toString();
    return message.isEmpty() ? u"unknown error"_s : message;
}

QJsonDocument parseJson(QByteArrayView text)
{
    return QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), text.size()));
}

} // namespace

ReplyInterpreter::ReplyInterpreter(qsizetype maxLineLength)
    : m_reader(*this, maxLineLength)
{
}

void ReplyInterpreter::feed(QByteArrayView bytes, const Handler &onEvent)
{
    if (m_stopped)
        return;
    m_onEvent = &onEvent;
    m_reader.feed(bytes);
    m_onEvent = nullptr;
}

void ReplyInterpreter::finish(const Handler &onEvent)
{
    m_onEvent = &onEvent;
    if (!m_stopped) {
        // Read once, at the end, whatever the cuts and line breaks: reading the body so
        // far at every read would cost the square of its length.
        const QByteArrayView body = m_reader.plainBody();
        if (body.isEmpty() || !interpret(body, true))
            m_reader.finish();
    }
    const ThinkingFilter::Split held = m_thinking.finish();
    if (!m_error) {
        report(ReplyEvent::Kind::Reasoning, held.reasoning);
        report(ReplyEvent::Kind::Text, held.text);
    }
    m_onEvent = nullptr;
}

ReplyInterpreter::Ending ReplyInterpreter::ending() const
{
    if (m_error)
        return Ending::ReportedError;
    if (m_answered)
        return Ending::Answered;
    return m_thinking.unclosed() ? Ending::UnclosedThinking : Ending::NoText;
}

QString ReplyInterpreter::noTextMessage()
{
    return u"The model answered with no text."_s;
}

QString ReplyInterpreter::unclosedThinkingMessage()
{
    return u"The model was still thinking when its reply ended, so it gave no answer."_s;
}

bool ReplyInterpreter::data(QByteArrayView payload)
{
    if (m_stopped)
        return true;
    if (payload.trimmed() == "[DONE]") {
        m_stopped = true;
        report(ReplyEvent::Kind::Done, {});
        return true;
    }
    return interpret(payload, false);
}

bool ReplyInterpreter::interpret(QByteArrayView json, bool wholeBody)
{
    const QJsonDocument document = parseJson(json);
    if (document.isNull())
        return false; // perhaps the first line of an event that spans several
    const QJsonObject object = document.object();
    if (const QJsonValue error = object.value("error"_L1); !error.isUndefined() && !error.isNull()) {
        m_error = true;
        m_stopped = true;
        report(ReplyEvent::Kind::Error, errorMessageOf(error));
        return true;
    }
    // A whole completion has a message where a stream has deltas.
    const QJsonObject part = object.value("choices"_L1)
                                 .toArray()
                                 .at(0)
                                 .toObject()
                                 .value(wholeBody ? "message"_L1 : "delta"_L1)
                                 .toObject();
    for (const auto member : { "reasoning_content"_L1, "reasoning"_L1 }) {
        if (const QJsonValue reasoning = part.value(member); reasoning.isString())
            report(ReplyEvent::Kind::Reasoning, reasoning.toString());
    }
    if (const QJsonValue text = part.value("content"_L1); text.isString())
        content(text.toString());
    return true;
}

void ReplyInterpreter::content(const QString &text)
{
    const ThinkingFilter::Split split = m_thinking.take(text);
    report(ReplyEvent::Kind::Reasoning, split.reasoning);
    report(ReplyEvent::Kind::Text, split.text);
}

void ReplyInterpreter::report(ReplyEvent::Kind kind, const QString &text)
{
    // Role-only and finish deltas carry no text.
    if (text.isEmpty() && (kind == ReplyEvent::Kind::Text || kind == ReplyEvent::Kind::Reasoning))
        return;
    if (kind == ReplyEvent::Kind::Text)
        m_answered = true;
    (*m_onEvent)(ReplyEvent { kind, text });
}
