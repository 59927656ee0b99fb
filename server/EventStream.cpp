#include "EventStream.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

QByteArray fragmentEvent(const QString &fragment)
{
    // Written by hand: this runs for every fragment of every stream, and building and
    // serialising a JSON document each time costs several times more.
    const QByteArray text = fragment.toUtf8();
    QByteArray event;
    event.reserve(text.size() + 64);
    event.append(R"(data: {"choices":[{"delta":{"content":")");
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        // Qt's JSON reader drops a raw U+FEFF inside a string; escaped, it arrives.
        if (c == '\xef' && text.sliced(i).startsWith("\xef\xbb\xbf")) {
            event.append("\\ufeff");
            i += 2;
            continue;
        }
        switch (c) {
        case '"':
            event.append("\\\"");
            break;
        case '\\':
            event.append("\\\\");
            break;
        case '\n':
            event.append("\\n");
            break;
        case '\r':
            event.append("\\r");
            break;
        case '\t':
            event.append("\\t");
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                static constexpr char hex[] = "0123456789abcdef";
                event.append("\\u00").append(hex[(c >> 4) & 0xf]).append(hex[c & 0xf]);
            } else {
                event.append(c);
            }
        }
    }
    event.append("\"}}]}\n\n");
    return event;
}

QByteArray errorBody(const QString &type, const QString &message)
{
    const QJsonObject error { { "error"_L1,
        QJsonObject { { "type"_L1, type }, { "message"_L1, message } } } };
    return QJsonDocument(error).toJson(QJsonDocument::Compact);
}

QByteArray errorEvent(const QString &type, const QString &message)
{
    return "data: " + errorBody(type, message) + "\n\n";
}
