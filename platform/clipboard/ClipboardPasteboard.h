#pragma once

#include "Platform.h"

#include <QList>
#include <QObject>

#include <memory>

class QClipboard;

class X11Connection;

// The desktop's CLIPBOARD selection through QClipboard. Reading another program's
// contents through QClipboard waits for that program; on X11 they are read over our own
// connection instead, answered through the event loop.
class ClipboardPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT
public:
    explicit ClipboardPasteboard(
        QClipboard *clipboard, std::shared_ptr<X11Connection> x11 = nullptr, QObject *parent = nullptr);

    int changeCount() const override { return m_changeCount; }
    void string(std::function<void(std::optional<QString>)> done) const override;
    void clear() override;
    void setString(const QString &text) override;
    void snapshot(std::function<void(Snapshot)> done) const override;
    void restore(const Snapshot &snapshot) override;

private:
    Snapshot snapshotNow() const;
    void readFormats(const QList<quint32> &targets, std::function<void(Snapshot)> done) const;

    QClipboard *m_clipboard;
    std::shared_ptr<X11Connection> m_x11;
    int m_changeCount = 0;
};
