#include "RewriteRequest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

RequestParse parseRewriteRequest(const QByteArray &body)
{
    RequestParse result;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        result.error = u"The request body is not a JSON object."_s;
        return result;
    }
    const QJsonObject object = document.object();

    RewriteRequest request;
    const QJsonValue examples = object.value("examples"_L1);
    if (!examples.isUndefined() && !examples.isNull()) {
        if (!examples.isArray()) {
            result.error = u"\"examples\" must be an array of strings."_s;
            return result;
        }
        for (const QJsonValue &example : examples.toArray()) {
            if (!example.isString()) {
                result.error = u"\"examples\" must be an array of strings."_s;
                return result;
            }
            request.examples.append(example.toString());
        }
    }

    const QJsonValue tone = object.value("tone"_L1);
    if (!tone.isUndefined() && !tone.isNull() && !tone.isString()) {
        result.error = u"\"tone\" must be a string."_s;
        return result;
    }
    request.tone = tone.toString();

    const QJsonValue asked = object.value("instruction"_L1);
    if (!asked.isUndefined() && !asked.isNull() && !asked.isString()) {
        result.error = u"\"instruction\" must be a string."_s;
        return result;
    }
    request.instruction = asked.toString();

    const QJsonValue messages = object.value("messages"_L1);
    std::optional<QString> content;
    if (messages.isArray()) {
        for (const QJsonValue &message : messages.toArray()) {
            const QJsonObject m = message.toObject();
            if (m.value("role"_L1).toString() == "user"_L1 && m.value("content"_L1).isString())
                content = m.value("content"_L1).toString();
        }
    }
    if (!content) {
        result.error = u"\"messages\" must hold a user message with the text to rewrite."_s;
        return result;
    }
    const QString instruction = QString::fromUtf16(rewriteInstruction);
    request.text = content->startsWith(instruction) ? content->mid(instruction.size()) : *content;
    if (request.text.trimmed().isEmpty()) {
        result.error = u"There is no text to rewrite."_s;
        return result;
    }
    result.request = request;
    return result;
}
