#include "StreamedText.h"

#include "PopupViewModel.h"

#include <QQmlContext>
#include <QQuickItem>
#include <QQuickTextDocument>
#include <QQuickWindow>
#include <QScreen>
#include <QTextBlock>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>

namespace {

QTextDocument *documentOf(QQuickItem *page)
{
    auto *handle = page ? page->property("textDocument").value<QQuickTextDocument *>() : nullptr;
    return handle ? handle->textDocument() : nullptr;
}

// Where a page may end: the start of its last line that begins within `longest`
// characters, other than its first line and the line still being written, whose
// wrapping may change as it grows. -1 when there is none.
int cutPosition(const QTextDocument &document, int longest)
{
    const QTextBlock lastBlock = document.lastBlock();
    for (QTextBlock block = lastBlock; block.isValid(); block = block.previous()) {
        if (block.position() > longest)
            continue;
        const QTextLayout *layout = block.layout();
        const int lines = layout ? layout->lineCount() : 0;
        for (int i = block == lastBlock ? lines - 2 : lines - 1; i >= 0; --i) {
            const int at = block.position() + layout->lineAt(i).textStart();
            if (at <= longest)
                return at > 0 ? at : -1;
        }
        if (lines == 0 && block != lastBlock && block.position() > 0)
            return block.position();
    }
    return -1;
}

} // namespace

StreamedText::StreamedText(QObject *parent)
    : QObject(parent)
{
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_flushTimer, &QTimer::timeout, this, &StreamedText::flush);
}

void StreamedText::componentComplete()
{
    m_complete = true;
    markDirty();
}

void StreamedText::setContainer(QQuickItem *container)
{
    if (m_container == container)
        return;
    m_container = container;
    restart();
    Q_EMIT containerChanged();
}

void StreamedText::setPage(QQmlComponent *page)
{
    if (m_page == page)
        return;
    m_page = page;
    restart();
    Q_EMIT pageChanged();
}

QList<QQuickItem *> StreamedText::pages() const
{
    QList<QQuickItem *> pages;
    for (QQuickItem *page : m_pages) {
        if (page)
            pages.append(page);
    }
    return pages;
}

// Drops the pages: the text goes in again from the start.
void StreamedText::restart()
{
    for (QQuickItem *page : std::as_const(m_pages)) {
        if (page) {
            page->setParentItem(nullptr);
            page->deleteLater();
        }
    }
    m_pages.clear();
    m_shown.clear();
    markDirty();
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

void StreamedText::setPageLength(int length)
{
    if (m_pageLength == length || length < 1)
        return;
    m_pageLength = length;
    restart();
    Q_EMIT pageLengthChanged();
}

void StreamedText::scheduleFlush()
{
    const QQuickWindow *window = m_container ? m_container->window() : nullptr;
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
    const QQuickWindow *window = m_container ? m_container->window() : nullptr;
    const QScreen *screen = window ? window->screen() : nullptr;
    const qreal rate = screen && screen->refreshRate() >= 1 ? screen->refreshRate() : 60;
    return int(1000 / rate);
}

void StreamedText::flush()
{
    if (!m_dirty || !m_complete || !m_container || !m_page)
        return;
    m_dirty = false;

    const QString current = text();
    if (m_shown.isEmpty() || !current.startsWith(m_shown) || pages().size() != m_pages.size()) {
        // Keep the first page: it may hold the keyboard and a selection.
        while (m_pages.size() > 1) {
            if (QQuickItem *page = m_pages.takeLast()) {
                page->setParentItem(nullptr);
                page->deleteLater();
            }
        }
        if (m_pages.isEmpty() || !m_pages.first()) {
            m_pages.clear();
            if (!addPage())
                return;
        }
        QTextDocument *document = documentOf(m_pages.first());
        if (!document)
            return;
        document->clear();
        QTextBlockFormat format;
        format.setLineHeight(m_lineSpacing, QTextBlockFormat::LineDistanceHeight);
        QTextCursor(document).setBlockFormat(format); // new lines inherit it
        m_shown.clear();
    }
    append(QStringView(current).sliced(m_shown.size()));
    m_shown = current;
    m_sinceFlush.start();
    Q_EMIT shown();
}

QQuickItem *StreamedText::addPage()
{
    QQmlContext *context = m_page->creationContext() ? m_page->creationContext() : qmlContext(this);
    QObject *object = m_page->beginCreate(context);
    auto *page = qobject_cast<QQuickItem *>(object);
    if (page) {
        page->setProperty("continued", !m_pages.isEmpty());
        page->setParent(m_container);
        page->setParentItem(m_container);
    }
    m_page->completeCreate();
    QTextDocument *document = documentOf(page);
    if (!document) {
        delete object;
        return nullptr;
    }
    document->setUndoRedoEnabled(false);
    QTextBlockFormat format;
    format.setLineHeight(m_lineSpacing, QTextBlockFormat::LineDistanceHeight);
    QTextCursor(document).setBlockFormat(format);
    m_pages.append(page);
    return page;
}

void StreamedText::append(QStringView text)
{
    // A long text goes in a page's worth at a time, so that no page is laid out whole
    // with far more than it keeps.
    for (qsizetype at = 0; at < text.size(); at += m_pageLength) {
        QTextDocument *document = documentOf(m_pages.last());
        if (!document)
            return;
        QTextCursor cursor(document);
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(text.sliced(at, std::min<qsizetype>(m_pageLength, text.size() - at)).toString());
        cutLastPage();
    }
}

void StreamedText::cutLastPage()
{
    for (;;) {
        QQuickItem *last = m_pages.last();
        QTextDocument *document = documentOf(last);
        // Lines are only known once the page has its width.
        if (!document || last->width() <= 0 || document->characterCount() <= m_pageLength + 1)
            return;
        const int at = cutPosition(*document, m_pageLength);
        if (at < 0)
            return;
        QTextCursor tail(document);
        tail.setPosition(at);
        tail.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        const QString moved = tail.selectedText();
        // A page ending with a paragraph's end would show an empty line below it.
        if (document->characterAt(at - 1) == QChar::ParagraphSeparator) {
            tail.setPosition(at - 1);
            tail.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        }
        tail.removeSelectedText();
        QQuickItem *next = addPage();
        QTextDocument *nextDocument = documentOf(next);
        if (!nextDocument)
            return;
        QTextCursor(nextDocument).insertText(moved);
    }
}
