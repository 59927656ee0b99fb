#include "StreamParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <cstring>
#include <optional>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcStream, "tessary.service.stream")

QByteArrayView trimBlanks(QByteArrayView line)
{
    while (!line.isEmpty() && (line.front() == ' ' || line.front() == '\t'))
        line = line.sliced(1);
    while (!line.isEmpty() && (line.back() == ' ' || line.back() == '\t'))
        line.chop(1);
    return line;
}

bool endsWithBrace(const QByteArray &text)
{
    for (qsizetype i = text.size() - 1; i >= 0; --i) {
        const char c = text[i];
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            return c == '}';
    }
    return false;
}

std::pair<QString, QString> typeAndMessage(const QJsonObject &error)
{
    const QJsonValue type = error.value("type"_L1);
    const QJsonValue message = error.value("message"_L1);
    return { type.isString() ? type.toString() : u"unknown_error"_s,
        message.isString() ? message.toString() : u"Unknown error occurred"_s };
}

// Reads one event payload: checks that it is a JSON object and takes out only the
// members the reader uses, without building a document. A general JSON parser made
// the event parsing several times slower than the network.
class EventScan
{
public:
    struct Found
    {
        bool errorObject = false;
        std::optional<QString> type; // of the error object, when a string
        std::optional<QString> message;
        std::optional<QString> content; // choices[0].delta.content, when a string
    };

    explicit EventScan(QByteArrayView text)
        : m_p(text.data())
        , m_end(text.data() + text.size())
    {
    }

    // False when the text is not one valid JSON object.
    bool run(Found &found)
    {
        skipSpace();
        if (peek() != '{')
            return false;
        const bool valid = members([&](QByteArrayView key) {
            if (key == "error") {
                found.errorObject = peek() == '{';
                found.type.reset();
                found.message.reset();
                if (!found.errorObject)
                    return value();
                return members([&](QByteArrayView member) {
                    if (member == "type")
                        return stringOrValue(found.type);
                    if (member == "message")
                        return stringOrValue(found.message);
                    return value();
                });
            }
            if (key == "choices") {
                found.content.reset();
                if (peek() != '[')
                    return value();
                return elements([&](int index) {
                    if (index > 0 || peek() != '{')
                        return value();
                    return members([&](QByteArrayView member) {
                        if (member != "delta" || peek() != '{')
                            return value();
                        return members([&](QByteArrayView field) {
                            return field == "content" ? stringOrValue(found.content) : value();
                        });
                    });
                });
            }
            return value();
        });
        skipSpace();
        return valid && m_p == m_end;
    }

private:
    // Deeper nesting is no event of any service; refusing it keeps the stack small.
    static constexpr int maxDepth = 256;

    char peek() const { return m_p < m_end ? *m_p : '\0'; }

    void skipSpace()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n' || *m_p == '\r'))
            ++m_p;
    }

    // Walks a '{...}' or '[...]' starting at m_p, calling item() at each member or element.
    template<typename Item> bool container(char close, Item item)
    {
        if (++m_depth > maxDepth)
            return false;
        ++m_p;
        skipSpace();
        if (peek() != close) {
            for (int index = 0;; ++index) {
                skipSpace();
                if (!item(index))
                    return false;
                skipSpace();
                if (peek() != ',')
                    break;
                ++m_p;
            }
        }
        if (peek() != close)
            return false;
        ++m_p;
        --m_depth;
        return true;
    }

    template<typename OnMember> bool members(OnMember onMember)
    {
        QByteArray decodedKey;
        return container('}', [&](int) {
            if (peek() != '"')
                return false;
            const char *keyStart = m_p + 1;
            bool escaped = false;
            if (!skipString(escaped))
                return false;
            QByteArrayView key(keyStart, m_p - 1 - keyStart);
            if (escaped) {
                decodedKey = unescape(key).toUtf8();
                key = decodedKey;
            }
            skipSpace();
            if (peek() != ':')
                return false;
            ++m_p;
            skipSpace();
            return onMember(key);
        });
    }

    template<typename OnElement> bool elements(OnElement onElement) { return container(']', onElement); }

    bool value()
    {
        switch (peek()) {
        case '{':
            return members([this](QByteArrayView) { return value(); });
        case '[':
            return elements([this](int) { return value(); });
        case '"': {
            bool escaped = false;
            return skipString(escaped);
        }
        case 't':
            return literal("true");
        case 'f':
            return literal("false");
        case 'n':
            return literal("null");
        default:
            return number();
        }
    }

    // A string value is taken; any other value is checked and leaves `out` empty.
    bool stringOrValue(std::optional<QString> &out)
    {
        out.reset();
        if (peek() != '"')
            return value();
        const char *start = m_p + 1;
        bool escaped = false;
        if (!skipString(escaped))
            return false;
        const QByteArrayView raw(start, m_p - 1 - start);
        // Invalid UTF-8 becomes U+FFFD: one odd byte must not cost the whole fragment.
        out = escaped ? unescape(raw) : QString::fromUtf8(raw);
        return true;
    }

    // Moves past the string starting at m_p ('"'); `escaped` tells whether it holds escapes.
    bool skipString(bool &escaped)
    {
        ++m_p;
        for (;;) {
            const char *stop = m_p;
            while (stop < m_end && *stop != '"' && *stop != '\\')
                ++stop;
            if (stop == m_end)
                return false;
            if (*stop == '"') {
                m_p = stop + 1;
                return true;
            }
            escaped = true;
            if (stop + 1 == m_end)
                return false;
            m_p = stop + 2;
        }
    }

    static QString unescape(QByteArrayView raw)
    {
        QString out;
        out.reserve(raw.size());
        qsizetype plainFrom = 0;
        const auto flushPlain
            = [&](qsizetype to) { out += QString::fromUtf8(raw.sliced(plainFrom, to - plainFrom)); };
        for (qsizetype i = 0; i < raw.size(); ++i) {
            if (raw[i] != '\\')
                continue;
            flushPlain(i);
            const char kind = i + 1 < raw.size() ? raw[i + 1] : '\0';
            switch (kind) {
            case 'n':
                out += u'\n';
                break;
            case 't':
                out += u'\t';
                break;
            case 'r':
                out += u'\r';
                break;
            case 'b':
                out += u'\b';
                break;
            case 'f':
                out += u'\f';
                break;
            case 'u': {
                bool ok = i + 6 <= raw.size();
                const ushort unit = ok ? raw.sliced(i + 2, 4).toUShort(&ok, 16) : 0;
                out += ok ? QChar(unit) : QChar::ReplacementCharacter;
                i += ok ? 4 : 0;
                break;
            }
            default:
                out += QLatin1Char(kind);
                break; // '"', '\\', '/' and anything lenient
            }
            ++i;
            plainFrom = i + 1;
        }
        flushPlain(raw.size());
        return out;
    }

    bool literal(std::string_view word)
    {
        if (size_t(m_end - m_p) < word.size() || std::string_view(m_p, word.size()) != word)
            return false;
        m_p += word.size();
        return true;
    }

    bool number()
    {
        const auto digits = [this] {
            const char *start = m_p;
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
            return m_p > start;
        };
        if (peek() == '-')
            ++m_p;
        if (!digits())
            return false;
        if (peek() == '.') {
            ++m_p;
            if (!digits())
                return false;
        }
        if (peek() == 'e' || peek() == 'E') {
            ++m_p;
            if (peek() == '+' || peek() == '-')
                ++m_p;
            if (!digits())
                return false;
        }
        return true;
    }

    const char *m_p;
    const char *m_end;
    int m_depth = 0;
};

} // namespace

StreamParser::StreamParser(Listener &listener)
    : m_listener(listener)
{
}

void StreamParser::feed(QByteArrayView bytes)
{
    collectBody(bytes);
    tryWholeBodyError();

    const char *data = bytes.data();
    const qsizetype size = bytes.size();
    qsizetype start = 0;
    if (m_skipLineFeed && size > 0) {
        m_skipLineFeed = false;
        if (data[0] == '\n')
            start = 1;
    }
    // memchr for each kind of line end; the CR position is remembered, since most
    // streams have none and searching again for every line would scan to the end each time.
    qsizetype nextCr = -2;
    while (start < size) {
        if (nextCr != -1 && nextCr < start) {
            const void *cr = std::memchr(data + start, '\r', size_t(size - start));
            nextCr = cr ? static_cast<const char *>(cr) - data : -1;
        }
        const void *lf = std::memchr(data + start, '\n', size_t(size - start));
        qsizetype end = lf ? static_cast<const char *>(lf) - data : -1;
        if (nextCr != -1 && (end == -1 || nextCr < end))
            end = nextCr;
        if (end == -1)
            break;
        takeLine(bytes.sliced(start, end - start));
        if (data[end] == '\r') {
            if (end + 1 == size)
                m_skipLineFeed = true;
            else if (data[end + 1] == '\n')
                ++end;
        }
        start = end + 1;
    }

    if (start == size || m_discarding)
        return;
    if (m_buffer.size() + (size - start) > maxLineLength) {
        qCWarning(lcStream) << "dropping a line longer than" << maxLineLength << "bytes";
        m_discarding = true;
        m_buffer.clear();
        return;
    }
    m_buffer.append(bytes.sliced(start));
}

void StreamParser::finish()
{
    if (!m_discarding && !m_buffer.isEmpty())
        processLine(m_buffer);
    m_buffer.clear();
    if (!m_reportedError && m_tokens == 0)
        tryWholeBodyError();
}

void StreamParser::takeLine(QByteArrayView line)
{
    if (m_discarding) {
        m_discarding = false; // this line end closes the dropped line
        return;
    }
    if (m_buffer.isEmpty()) {
        processLine(line);
        return;
    }
    m_buffer.append(line);
    processLine(m_buffer);
    m_buffer.clear();
}

void StreamParser::processLine(QByteArrayView raw)
{
    const QByteArrayView line = trimBlanks(raw);
    m_listener.line(line);
    if (!line.startsWith("data:"))
        return;
    QByteArrayView payload = line.sliced(5);
    if (payload.startsWith(' '))
        payload = payload.sliced(1);
    if (payload == "[DONE]") {
        m_listener.endMarker();
        return;
    }

    EventScan::Found found;
    if (!EventScan(payload).run(found))
        return; // not JSON, or not an object
    m_listener.event(payload);
    if (found.errorObject) {
        m_reportedError = true;
        m_listener.streamedError(found.type ? *found.type : u"unknown_error"_s,
            found.message ? *found.message : u"Unknown error occurred"_s);
        return;
    }
    if (!found.content)
        return;
    ++m_tokens;
    m_listener.token(*found.content);
}

void StreamParser::collectBody(QByteArrayView bytes)
{
    if (!m_bodyMayBeError)
        return;
    const qsizetype from = std::max<qsizetype>(0, m_body.size() - 4);
    m_body.append(bytes);
    if (m_body.size() > maxErrorBodyLength || m_body.indexOf("data:", from) >= 0) {
        m_bodyMayBeError = false;
        m_body = QByteArray();
    }
}

bool StreamParser::tryWholeBodyError()
{
    // An object can only be complete when the text so far ends in a brace; checking
    // that first keeps a long body from being parsed again for every piece.
    if (!m_bodyMayBeError || m_nonStreamedErrorSeen || !endsWithBrace(m_body))
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(m_body);
    const QJsonValue error = document.object().value("error"_L1);
    if (!error.isObject())
        return false;
    const auto [type, message] = typeAndMessage(error.toObject());
    m_nonStreamedErrorSeen = true;
    m_reportedError = true;
    m_listener.nonStreamedError(type, message);
    return true;
}
