#include "ClipboardPasteboard.h"

#include "x11/X11Connection.h"

#include <QClipboard>
#include <QMimeData>
#include <QPointer>

#include <algorithm>
#include <cstring>

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

ClipboardPasteboard::ClipboardPasteboard(
    QClipboard *clipboard, std::shared_ptr<X11Connection> x11, QObject *parent)
    : QObject(parent)
    , m_clipboard(clipboard)
    , m_x11(std::move(x11))
{
    connect(m_clipboard, &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode == QClipboard::Clipboard)
            ++m_changeCount;
    });
}

void ClipboardPasteboard::string(std::function<void(std::optional<QString>)> done) const
{
    // Our own contents are at hand; another program's are asked for.
    if (!m_x11 || m_clipboard->ownsClipboard()) {
        done(plainText(m_clipboard->mimeData(QClipboard::Clipboard)));
        return;
    }
    const xcb_atom_t utf8 = m_x11->ewmh()->UTF8_STRING;
    m_x11->convertSelection(m_x11->clipboardAtom(), utf8,
        [utf8, done = std::move(done)](std::optional<QByteArray> bytes, xcb_atom_t type) {
            if (!bytes || type != utf8) {
                done(std::nullopt);
                return;
            }
            done(QString::fromUtf8(*bytes));
        });
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

void ClipboardPasteboard::snapshot(std::function<void(Snapshot)> done) const
{
    if (!m_x11 || m_clipboard->ownsClipboard()) {
        done(snapshotNow());
        return;
    }
    // The formats the holder offers, then each of them in turn.
    std::shared_ptr<X11Connection> x11 = m_x11;
    QPointer<const ClipboardPasteboard> self(this);
    x11->convertSelection(x11->clipboardAtom(), x11->targetsAtom(),
        [self, x11, done = std::move(done)](std::optional<QByteArray> bytes, xcb_atom_t type) {
            if (!self)
                return;
            if (!bytes || type != XCB_ATOM_ATOM) {
                // Nobody holds the clipboard, or its holder does not answer.
                done(nullptr);
                return;
            }
            QList<xcb_atom_t> targets;
            for (qsizetype at = 0; at + qsizetype(sizeof(xcb_atom_t)) <= bytes->size();
                 at += sizeof(xcb_atom_t)) {
                xcb_atom_t target;
                std::memcpy(&target, bytes->constData() + at, sizeof target);
                targets.append(target);
            }
            self->readFormats(targets, done);
        });
}

void ClipboardPasteboard::readFormats(
    const QList<xcb_atom_t> &targets, std::function<void(Snapshot)> done) const
{
    struct Reading
    {
        QList<std::pair<xcb_atom_t, QString>> formats; // target and its name
        qsizetype named = 0;
        std::shared_ptr<QMimeData> copy = std::make_shared<QMimeData>();
        bool incremental = false;
    };
    auto reading = std::make_shared<Reading>();
    std::shared_ptr<X11Connection> x11 = m_x11;
    QPointer<const ClipboardPasteboard> self(this);
    const auto collect = [self, x11, reading, done] {
        // Text once, from UTF8_STRING: GTK's "text/plain" carries CRLF line ends.
        const bool hasUtf8 = std::any_of(reading->formats.cbegin(), reading->formats.cend(),
            [](const auto &format) { return format.second == u"UTF8_STRING"; });
        auto remaining = std::make_shared<int>(0);
        const auto finished = [self, reading, done] {
            if (!self)
                return;
            if (reading->incremental) {
                // Too large for one transfer: Qt reads it, waiting as long as it takes.
                done(self->snapshotNow());
                return;
            }
            done(reading->copy->formats().isEmpty() ? nullptr : Snapshot(reading->copy));
        };
        QList<std::pair<xcb_atom_t, QString>> wanted;
        for (const auto &[target, name] : reading->formats) {
            if (name == u"UTF8_STRING")
                wanted.append({ target, u"text/plain"_s });
            else if (name.contains(u'/') && !name.startsWith(u"text/plain") && isContents(name))
                wanted.append({ target, name });
            else if (!hasUtf8 && name == u"text/plain")
                wanted.append({ target, u"text/plain"_s });
        }
        *remaining = int(wanted.size());
        if (wanted.isEmpty()) {
            finished();
            return;
        }
        for (const auto &[target, mime] : wanted) {
            x11->convertSelection(x11->clipboardAtom(), target,
                [x11, reading, remaining, finished, mime](std::optional<QByteArray> bytes, xcb_atom_t type) {
                    if (bytes)
                        reading->copy->setData(
                            mime, mime == u"text/plain" ? QByteArray(*bytes).replace("\r\n", "\n") : *bytes);
                    else if (type == x11->incrementalAtom())
                        reading->incremental = true;
                    if (--*remaining == 0)
                        finished();
                });
        }
    };
    if (targets.isEmpty()) {
        done(nullptr);
        return;
    }
    for (xcb_atom_t target : targets) {
        x11->atomName(target, [reading, target, count = targets.size(), collect](const QString &name) {
            reading->formats.append({ target, name });
            if (++reading->named == count)
                collect();
        });
    }
}

Pasteboard::Snapshot ClipboardPasteboard::snapshotNow() const
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
