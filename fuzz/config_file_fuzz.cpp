// libFuzzer harness for tessary-server's config file. Besides crashes it checks that a
// file either reads or names its line, and that any text at all, written as a TOML
// string, reads back exactly: a token or key is never cut, split or changed.

#include "ServerConfig.h"

#include <cstdint>
#include <cstdlib>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// A TOML basic string, as a person would write it: quotes and backslashes escaped, and
// control characters as \uXXXX; everything else as it is.
QByteArray quoted(const QString &text)
{
    QByteArray out = "\"";
    for (const char32_t c : text.toUcs4()) {
        if (c == U'"' || c == U'\\')
            out += '\\';
        if (c < 0x20 || c == 0x7f)
            out += "\\u" + QByteArray::number(uint(c), 16).rightJustified(4, '0');
        else
            out += QString::fromUcs4(&c, 1).toUtf8();
    }
    return out + '"';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString source = QStringLiteral("fuzz.toml");

    ServerConfig config;
    QSet<QString> found;
    const QString error = readConfigText(bytes, source, config, found);
    if (!error.isEmpty()) {
        require(error.startsWith(source + u':'));
        const qsizetype lines = bytes.count('\n') + 1;
        bool ok = false;
        const qsizetype line = error.section(u':', 1, 1).toLongLong(&ok);
        require(ok && line >= 1 && line <= lines);
    }

    const QString text = QString::fromUtf8(bytes);
    const QByteArray written
        = "client_token = " + quoted(text) + "\nupstream_key = " + quoted(u'k' + text) + " # a comment\n";
    ServerConfig again;
    QSet<QString> foundAgain;
    require(readConfigText(written, source, again, foundAgain).isEmpty());
    require(again.clientToken == text);
    require(again.upstreamKey == u'k' + text);
    return 0;
}
