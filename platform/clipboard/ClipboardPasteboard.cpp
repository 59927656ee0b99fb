#include "ClipboardPasteboard.h"

#include <QClipboard>
#include <QMimeData>

using namespace Qt::StringLiterals;

namespace {

// Qt's own conversions of what is already there (an image decoded again) and the X
// selection protocol's own targets: neither is the user's contents, and Qt offers them
// again by itself when we own the clipboard.
bool isContents(const QString &format)
{
    static const QStringList protocolTargets { u"TARGETS"_s, u"MULTIPLE"_s, u"TIMESTAMP"_s, u"SAVE_TARGETS"_s,
        u"DELETE"_s, u"INCR"_s };
    return !format.startsWith(u"application/x-qt-"_s) && !protocolTargets.contains(format);
}

// GTK serves "text/plain" with CRLF line ends, as that target's RFC asks, and Qt reads
// that target rather than UTF8_STRING: undo the conversion so that a selection keeps
// its own line ends, and the user's clipboard comes back as it was.
std::optional<QString> plainText(const QMimeData *data)
{
    if (!data || !data->hasText())
        return std::nullopt;
    QString text = data->text();
    text.replace(u"\r\n"_s, u"\n"_s);
    return text;
}

} // namespace

ClipboardPasteboard::ClipboardPasteboard(QClipboard *clipboard, QObject *parent)
    : QObject(parent)
    , m_clipboard(clipboard)
{
    connect(m_clipboard, &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode == QClipboard::Clipboard)
            ++m_changeCount;
    });
}

std::optional<QString> ClipboardPasteboard::string() const
{
    return plainText(m_clipboard->mimeData(QClipboard::Clipboard));
}

void ClipboardPasteboard::clear()
{
    m_clipboard->clear(QClipboard::Clipboard);
    // Counted here too: the change notice for giving up the selection may come late.
    ++m_changeCount;
}

void ClipboardPasteboard::setString(const QString &text)
{
    auto *data = new QMimeData;
    data->setText(text);
    // Clipboard managers skip contents marked like this: our rewrite is only passing through.
    data->setData(u"x-kde-passwordManagerHint"_s, "secret");
    m_clipboard->setMimeData(data, QClipboard::Clipboard);
    ++m_changeCount;
}

Pasteboard::Snapshot ClipboardPasteboard::snapshot() const
{
    const QMimeData *data = m_clipboard->mimeData(QClipboard::Clipboard);
    if (!data)
        return nullptr;
    auto copy = std::make_shared<QMimeData>();
    const QStringList formats = data->formats();
    for (const QString &format : formats) {
        if (format == u"text/plain")
            copy->setData(format, plainText(data).value_or(QString()).toUtf8());
        else if (isContents(format))
            copy->setData(format, data->data(format));
    }
    if (copy->formats().isEmpty())
        return nullptr;
    return copy;
}

void ClipboardPasteboard::restore(const Snapshot &snapshot)
{
    if (!snapshot) {
        clear();
        return;
    }
    // The clipboard takes ownership of what it is given, and the snapshot may be restored again.
    auto *data = new QMimeData;
    const QStringList formats = snapshot->formats();
    for (const QString &format : formats)
        data->setData(format, snapshot->data(format));
    m_clipboard->setMimeData(data, QClipboard::Clipboard);
    ++m_changeCount;
}
