#pragma once

#include "Capture.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <optional>

class AccessibilityHelper;
class RewriteSession;
class Workspace;

// The last Replace that wrote a rewrite, and taking it back: back to the window it went
// into, and the original written over the rewrite there, only while the text there is
// still exactly the rewrite. Whatever stops it, the original waits on the clipboard and
// the message says why.
class ReplaceUndo : public QObject
{
    Q_OBJECT

public:
    // From bringing the window back to reading it: the window manager needs the time to
    // hand the keyboard back, as for Replace.
    ReplaceUndo(AccessibilityHelper &textAccess, Workspace *workspace,
        std::chrono::milliseconds returnDelay = std::chrono::milliseconds(200), QObject *parent = nullptr);
    ~ReplaceUndo() override;

    // Keeps the session's Replace, once its result was written; the one kept before goes.
    void remember(const RewriteSession &session);
    bool canUndo() const { return m_record.has_value(); }
    QString applicationName() const;
    // Takes the kept Replace back, once: undone() tells how it ended.
    void undo();

Q_SIGNALS:
    void canUndoChanged(bool canUndo);
    // restored: the original is back where the rewrite was; message says so or why not.
    void undone(bool restored, const QString &message);

private:
    struct Record
    {
        QString original;
        QString rewrite;
        WrittenPlace place;
        QString application;
    };

    void takeBack(const Record &record);
    void finish(bool restored, const QString &message);

    AccessibilityHelper &m_textAccess;
    Workspace *m_workspace;
    const std::chrono::milliseconds m_returnDelay;
    std::optional<Record> m_record;
};
