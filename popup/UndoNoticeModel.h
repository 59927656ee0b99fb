#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

// What the notice after a Replace shows: one sentence, and whether it offers Undo.
class UndoNoticeModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the notice's controller")
    Q_PROPERTY(QString message READ message NOTIFY changed)
    Q_PROPERTY(bool offersUndo READ offersUndo NOTIFY changed)
    // The message says why something was not done.
    Q_PROPERTY(bool refused READ refused NOTIFY changed)

public:
    explicit UndoNoticeModel(QObject *parent = nullptr);
    ~UndoNoticeModel() override;

    void say(const QString &message, bool offersUndo, bool refused = false);
    QString message() const { return m_message; }
    bool offersUndo() const { return m_offersUndo; }
    bool refused() const { return m_refused; }

    // The notice's Undo, once per Replace.
    Q_INVOKABLE void undo();
    // Its time is up, or the user closed it.
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    void changed();
    void undoRequested();
    void dismissed();

private:
    QString m_message;
    bool m_offersUndo = false;
    bool m_refused = false;
};
