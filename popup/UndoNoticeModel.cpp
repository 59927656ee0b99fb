#include "UndoNoticeModel.h"

UndoNoticeModel::UndoNoticeModel(QObject *parent)
    : QObject(parent)
{
}

UndoNoticeModel::~UndoNoticeModel() = default;

void UndoNoticeModel::say(const QString &message, bool offersUndo, bool refused)
{
    m_message = message;
    m_offersUndo = offersUndo;
    m_refused = refused;
    // Said anew each time, even in the same words: the notice's time starts over.
    Q_EMIT changed();
}

void UndoNoticeModel::undo()
{
    if (!m_offersUndo)
        return;
    m_offersUndo = false;
    Q_EMIT changed();
    Q_EMIT undoRequested();
}

void UndoNoticeModel::dismiss()
{
    Q_EMIT dismissed();
}
