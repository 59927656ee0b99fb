#pragma once

#include "Platform.h"

#include <QObject>

class QClipboard;

// The desktop's CLIPBOARD selection through QClipboard.
class ClipboardPasteboard : public QObject, public Pasteboard
{
    Q_OBJECT
public:
    explicit ClipboardPasteboard(QClipboard *clipboard, QObject *parent = nullptr);

    int changeCount() const override { return m_changeCount; }
    std::optional<QString> string() const override;
    void clear() override;
    void setString(const QString &text) override;
    Snapshot snapshot() const override;
    void restore(const Snapshot &snapshot) override;

private:
    QClipboard *m_clipboard;
    int m_changeCount = 0;
};
