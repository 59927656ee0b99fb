#include "StreamedText.h"

#include "PopupViewModel.h"

#include <QQuickItem>
#include <QQuickTextDocument>
#include <QQuickWindow>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>

StreamedText::StreamedText(QObject *parent)
    : QObject(parent)
{
}

void StreamedText::setTarget(QQuickItem *target)
{
    if (m_target == target)
        return;
    if (m_target)
        disconnect(m_target, nullptr, this, nullptr);
    m_target = target;
    if (m_target) {
        connect(m_target, &QQuickItem::windowChanged, this, &StreamedText::watchWindow);
        watchWindow(m_target->window());
    }
    m_shown.clear();
    m_dirty = true;
    scheduleFlush();
    Q_EMIT targetChanged();
}

void StreamedText::setText(const QString &text)
{
    m_text = text;
    m_dirty = true;
    scheduleFlush();
    Q_EMIT textChanged();
}

void StreamedText::setViewModel(PopupViewModel *viewModel)
{
    if (m_viewModel == viewModel)
        return;
    if (m_viewModel)
        disconnect(m_viewModel, nullptr, this, nullptr);
    m_viewModel = viewModel;
    if (m_viewModel) {
        connect(m_viewModel, &PopupViewModel::resultTextChanged, this,
            [this] { setText(m_viewModel->resultText()); });
        setText(m_viewModel->resultText());
    }
    Q_EMIT viewModelChanged();
}

void StreamedText::setLineSpacing(qreal spacing)
{
    if (qFuzzyCompare(m_lineSpacing, spacing))
        return;
    m_lineSpacing = spacing;
    m_shown.clear(); // lay everything out again with the new spacing
    m_dirty = true;
    scheduleFlush();
    Q_EMIT lineSpacingChanged();
}

void StreamedText::watchWindow(QQuickWindow *window)
{
    if (m_window == window)
        return;
    disconnect(m_frameConnection);
    m_window = window;
    // afterAnimating runs on the GUI thread once per frame, before the scene is synced.
    if (m_window)
        m_frameConnection = connect(m_window, &QQuickWindow::afterAnimating, this, &StreamedText::flush);
}

void StreamedText::scheduleFlush()
{
    // Without frames (no window yet, or a hidden one) there is nothing to wait for.
    if (!m_window || !m_window->isVisible()) {
        flush();
        return;
    }
    m_window->update();
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

    QTextCursor cursor(document);
    if (!m_shown.isEmpty() && m_text.startsWith(m_shown)) {
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(m_text.sliced(m_shown.size()));
    } else {
        document->setUndoRedoEnabled(false);
        document->clear();
        QTextBlockFormat format;
        format.setLineHeight(m_lineSpacing, QTextBlockFormat::LineDistanceHeight);
        cursor.setBlockFormat(format); // new lines inherit it
        cursor.insertText(m_text);
    }
    m_shown = m_text;
    Q_EMIT shown();
}
