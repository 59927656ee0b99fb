#include "ReplaceUndo.h"

#include "AccessibilityHelper.h"
#include "Log.h"
#include "Platform.h"
#include "RewriteSession.h"

#include <QPointer>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

constexpr Log::Literal tag = u"Undo";

QString messageFor(AccessibilityHelper::TakeBack result, const QString &app)
{
    using TakeBack = AccessibilityHelper::TakeBack;
    switch (result) {
    case TakeBack::Restored:
        return ReplaceUndo::tr("The original is back in %1.").arg(app);
    case TakeBack::NotInFront:
        return ReplaceUndo::tr("%1 is no longer in front: the original is on the clipboard.").arg(app);
    case TakeBack::CannotCheck:
        return ReplaceUndo::tr(
            "The rewrite was pasted into %1, which cannot be read back: the original is on "
            "the clipboard.")
            .arg(app);
    case TakeBack::Gone:
        return ReplaceUndo::tr("The text in %1 is gone: the original is on the clipboard.").arg(app);
    case TakeBack::Changed:
        return ReplaceUndo::tr(
            "The text in %1 has changed since the rewrite: the original is on the clipboard.")
            .arg(app);
    case TakeBack::NotWritten:
        return ReplaceUndo::tr("%1 did not take the original back: it is on the clipboard.").arg(app);
    }
    return {};
}

} // namespace

ReplaceUndo::ReplaceUndo(AccessibilityHelper &textAccess, Workspace *workspace,
    std::chrono::milliseconds returnDelay, QObject *parent)
    : QObject(parent)
    , m_textAccess(textAccess)
    , m_workspace(workspace)
    , m_returnDelay(returnDelay)
{
}

ReplaceUndo::~ReplaceUndo() = default;

void ReplaceUndo::remember(const RewriteSession &session)
{
    if (!session.wasWritten() || !session.writtenPlace())
        return;
    m_record = Record { session.originalText(), session.resultText(), *session.writtenPlace(),
        session.applicationName() };
    Q_EMIT canUndoChanged(true);
}

QString ReplaceUndo::applicationName() const
{
    return m_record ? m_record->application : QString();
}

void ReplaceUndo::undo()
{
    // Taken once: a second Undo while this one runs finds nothing to write twice.
    const std::optional<Record> record = std::exchange(m_record, std::nullopt);
    if (!record) {
        Log::write(u"❌", tag, u"Nothing to undo");
        Q_EMIT undone(false, tr("There is no rewrite to undo."));
        return;
    }
    Q_EMIT canUndoChanged(false);
    Log::write(u"🎯", tag, { u"Returning to: ", Log::Public(record->application) });
    if (!m_workspace) {
        m_textAccess.takeBack(record->original, record->rewrite, record->place,
            [this, app = record->application](AccessibilityHelper::TakeBack result) {
                finish(result == AccessibilityHelper::TakeBack::Restored, messageFor(result, app));
            });
        return;
    }
    m_workspace->activate(record->place.application, [self = QPointer(this), record](bool active) {
        if (!self)
            return;
        if (!active) {
            // Nothing is typed anywhere else: the original waits on the clipboard.
            self->m_textAccess.copy(record->original, {});
            Log::write(u"❌", tag, { u"Could not bring back: ", Log::Public(record->application) });
            self->finish(false,
                tr("%1 could not be brought back: the original is on the clipboard.")
                    .arg(record->application));
            return;
        }
        QTimer::singleShot(self->m_returnDelay, self, [self, record] {
            if (self)
                self->takeBack(*record);
        });
    });
}

void ReplaceUndo::takeBack(const Record &record)
{
    m_textAccess.takeBack(record.original, record.rewrite, record.place,
        [self = QPointer(this), app = record.application](AccessibilityHelper::TakeBack result) {
            if (self)
                self->finish(result == AccessibilityHelper::TakeBack::Restored, messageFor(result, app));
        });
}

void ReplaceUndo::finish(bool restored, const QString &message)
{
    Log::write(u"↩️", tag, { u"Undo result: ", restored });
    Q_EMIT undone(restored, message);
}
