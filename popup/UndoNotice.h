#pragma once

#include <QObject>
#include <QRect>

#include <memory>

class QQmlEngine;
class QQuickWindow;
class UndoNoticeModel;

// The small window that says a Replace is done and offers to take it back, and then how
// taking it back ended. It stands where the popup was and never takes the keyboard from
// the window the text went into. Its window is built at the first say().
class UndoNotice : public QObject
{
    Q_OBJECT

public:
    explicit UndoNotice(QQmlEngine &engine, QObject *parent = nullptr);
    ~UndoNotice() override;

    // Shows message centred on where (the popup's place), with Undo when offersUndo;
    // refused marks a message that says why something was not done.
    void say(const QString &message, bool offersUndo, bool refused, const QRect &where);
    void close();

    UndoNoticeModel *model() const { return m_model.get(); }
    QQuickWindow *window() const { return m_window.get(); }

Q_SIGNALS:
    void undoRequested();
    // The window manager gave the notice the keyboard, which belongs to the window the
    // text went into: Wayland compositors focus every new window.
    void keyboardTaken();

private:
    QQmlEngine &m_engine;
    std::unique_ptr<UndoNoticeModel> m_model;
    std::unique_ptr<QQuickWindow> m_window;
};
