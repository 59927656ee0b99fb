// libFuzzer target for what tessary-server does with bytes from the network: request
// bodies, prompt building, and upstream event streams. Besides crashes it checks that
// the user's text reaches the upstream unchanged, that the sample budget holds, that
// the event reader gives the same events however the bytes are split, and that
// fragment events carry any text intact.

#include "EventStream.h"
#include "Prompt.h"
#include "ReplyInterpreter.h"
#include "RewriteRequest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>
#include <cstdlib>

namespace {

QStringList eventsOf(const QList<QByteArrayView> &pieces)
{
    ReplyInterpreter reader(64 * 1024);
    QStringList events;
    const ReplyInterpreter::Handler collect = [&events](const ReplyEvent &event) {
        events.append(QString::number(int(event.kind)) + event.text);
    };
    for (QByteArrayView piece : pieces)
        reader.feed(piece, collect);
    reader.finish(collect);
    return events;
}

void require(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));

    const RequestParse parse = parseRewriteRequest(bytes);
    if (parse.request) {
        const int budget = size ? int(data[0]) * 8 : 0;
        const QStringList kept = samplesWithinBudget(parse.request->examples, budget);
        qsizetype used = 0;
        for (const QString &sample : kept)
            used += sample.size();
        require(used <= budget);

        const QByteArray upstream = chatCompletionBody(
            promptMessages(parse.request->examples, parse.request->tone, parse.request->text, budget),
            QStringLiteral("m"));
        const QJsonArray messages
            = QJsonDocument::fromJson(upstream).object().value(QLatin1String("messages")).toArray();
        require(messages.size() == 2);
        require(messages[1].toObject().value(QLatin1String("content")).toString() == parse.request->text);
    } else {
        require(!parse.error.isEmpty());
    }

    const qsizetype cut = size ? qsizetype(data[size - 1]) % (bytes.size() + 1) : 0;
    const QByteArrayView view(bytes);
    const QStringList whole = eventsOf({ view });
    require(eventsOf({ view.first(cut), view.sliced(cut) }) == whole);

    // Text that does not open with a thinking tag comes back whole.
    const QString text = QString::fromUtf8(bytes);
    if (!text.trimmed().startsWith(QLatin1Char('<')))
        require(
            eventsOf({ fragmentEvent(text) }).join(QString()) == (text.isEmpty() ? QString() : u'0' + text));
    return 0;
}
