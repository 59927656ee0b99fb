#include "StreamedText.h"

#include "PopupViewModel.h"

#include <QQuickItem>
#include <QQuickTextDocument>
#include <QQuickWindow>
#include <QScreen>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>

StreamedText::StreamedText(QObject *parent)
    : QObject(parent)
{
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_flushTimer, &QTimer::timeout, this, &StreamedText::flush);
}

void StreamedText::setTarget(QQuickItem *target)
{
    if (m_target == target)
        return;
    m_target = target;
    m_shown.clear();
    markDirty();
    Q_EMIT targetChanged();
}

QString StreamedText::text() const
{
    return m_viewModel ? m_viewModel->resultText() : m_text;
}

void StreamedText::setText(const QString &text)
{
    m_text = text;
    markDirty();
    Q_EMIT textChanged();
}

void StreamedText::markDirty()
{
    m_dirty = true;
    scheduleFlush();
}

void StreamedText::setViewModel(PopupViewModel *viewModel)
{
    if (m_viewModel == viewModel)
        return;
    if (m_viewModel)
        disconnect(m_viewModel, nullptr, this, nullptr);
    m_viewModel = viewModel;
    if (m_viewModel) {
        // The model's text is read when it goes on screen: taking a copy for every
        // fragment would make the model copy its whole text at the next one.
        connect(m_viewModel, &PopupViewModel::resultTextChanged, this, &StreamedText::textChanged);
        connect(m_viewModel, &PopupViewModel::resultTextChanged, this, &StreamedText::markDirty);
    }
    markDirty();
    Q_EMIT textChanged();
    Q_EMIT viewModelChanged();
}

void StreamedText::setLineSpacing(qreal spacing)
{
    if (qFuzzyCompare(m_lineSpacing, spacing))
        return;
    m_lineSpacing = spacing;
    m_shown.clear(); // lay everything out again with the new spacing
    markDirty();
    Q_EMIT lineSpacingChanged();
}

void StreamedText::scheduleFlush()
{
    const QQuickWindow *window = m_target ? m_target->window() : nullptr;
    // Without frames (no window yet, or a hidden one) there is nothing to wait for.
    if (!window || !window->isVisible()) {
        m_flushTimer.stop();
        flush();
        return;
    }
    if (m_flushTimer.isActive())
        return;
    // Even the first change waits for the event loop to come round: the fragments that
    // arrived together go in together.
    const qint64 sinceFlush = m_sinceFlush.isValid() ? m_sinceFlush.elapsed() : frameInterval();
    m_flushTimer.start(int(std::max<qint64>(0, frameInterval() - sinceFlush)));
}

int StreamedText::frameInterval() const
{
    const QQuickWindow *window = m_target ? m_target->window() : nullptr;
    const QScreen *screen = window ? window->screen() : nullptr;
    const qreal rate = screen && screen->refreshRate() >= 1 ? screen->refreshRate() : 60;
    return int(1000 / rate);
}

void StreamedText::flush()
{
    if (!m_dirty || !m_target)
        return;
    auto *handle = m_target->property("textDocument").value<QQuickTextDocument *>();
    if (!handle)
        return;
    QTextDocument *document = handle->textDocument();
    m_dirty = false;

    const QString current = text();
    QTextCursor cursor(document);
    if (!m_shown.isEmpty() && current.startsWith(m_shown)) {
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(current.sliced(m_shown.size()));
    } else {
        document->setUndoRedoEnabled(false);
        document->clear();
        QTextBlockFormat format;
        format.setLineHeight(m_lineSpacing, QTextBlockFormat::LineDistanceHeight);
        cursor.setBlockFormat(format); // new lines inherit it
        cursor.insertText(current);
    }
    m_shown = current;
    m_sinceFlush.start();
    Q_EMIT shown();
}
