#include "DiffMarks.h"

#include "PopupViewModel.h"

#include <QPromise>
#include <QThreadPool>

#include <memory>

namespace {
constexpr int frameMs = 16;
} // namespace

DiffMarks::DiffMarks(QObject *parent)
    : QObject(parent)
{
    m_frame.setSingleShot(true);
    m_frame.setInterval(frameMs);
    connect(&m_frame, &QTimer::timeout, this, &DiffMarks::start);
    connect(&m_watcher, &QFutureWatcher<WordDiff::Result>::finished, this, &DiffMarks::finished);
}

// A comparison still running finishes on its own; nobody reads its answer.
DiffMarks::~DiffMarks()
{
    m_watcher.disconnect(this);
}

void DiffMarks::setOriginal(const QString &text)
{
    if (m_original == text)
        return;
    m_original = text;
    m_comparedSize = -1;
    changed();
}

void DiffMarks::setResult(const QString &text)
{
    if (m_result == text)
        return;
    m_result = text;
    m_comparedSize = -1;
    changed();
}

QString DiffMarks::result() const
{
    return m_viewModel ? m_viewModel->resultText() : m_result;
}

void DiffMarks::setViewModel(PopupViewModel *viewModel)
{
    if (m_viewModel == viewModel)
        return;
    if (m_viewModel)
        disconnect(m_viewModel, nullptr, this, nullptr);
    m_viewModel = viewModel;
    m_comparedSize = -1;
    if (m_viewModel)
        connect(m_viewModel, &PopupViewModel::resultTextChanged, this, &DiffMarks::changed);
    changed();
}

void DiffMarks::setPartial(bool partial)
{
    if (m_partial == partial)
        return;
    m_partial = partial;
    changed();
}

void DiffMarks::setActive(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    changed();
}

void DiffMarks::setInsertedColor(const QColor &color)
{
    if (m_inserted == color)
        return;
    m_inserted = color;
    updateMarkup();
    Q_EMIT colorsChanged();
    Q_EMIT marksChanged();
}

void DiffMarks::setDeletedColor(const QColor &color)
{
    if (m_deleted == color)
        return;
    m_deleted = color;
    updateMarkup();
    Q_EMIT colorsChanged();
    Q_EMIT marksChanged();
}

QString DiffMarks::summary() const
{
    return WordDiff::summary(m_diff);
}

void DiffMarks::changed()
{
    Q_EMIT inputChanged();
    if (!m_active)
        return;
    const bool wasCurrent = isCurrent();
    m_dirty = true;
    if (wasCurrent)
        Q_EMIT marksChanged();
    if (!m_frame.isActive() && !m_watcher.isRunning())
        m_frame.start();
}

void DiffMarks::start()
{
    if (!m_dirty || m_watcher.isRunning() || !m_active)
        return;
    m_dirty = false;
    const QString text = result();
    // While a rewrite streams, its text only grows, and once too long to compare it stays
    // so: comparing it again at every frame would only churn memory on the pool thread.
    if (m_partial && m_diff.tooLong && m_comparedPartial && text.size() >= m_comparedSize) {
        Q_EMIT marksChanged();
        return;
    }
    m_comparedSize = text.size();
    m_comparedPartial = m_partial;
    auto promise = std::make_shared<QPromise<WordDiff::Result>>();
    m_watcher.setFuture(promise->future());
    promise->start();
    QThreadPool::globalInstance()->start(
        [promise, original = m_original, result = text, partial = m_partial] {
            promise->addResult(WordDiff::compare(original, result, partial));
            promise->finish();
        });
}

void DiffMarks::finished()
{
    if (m_watcher.future().resultCount() > 0)
        m_diff = m_watcher.result();
    updateMarkup();
    // Texts that changed meanwhile are compared a frame later.
    if (m_dirty)
        m_frame.start();
    Q_EMIT marksChanged();
}

// A text too long to compare is shown plain, in pages: as one marked Text, laid out whole
// at every comparison, it would hold up the window for a tenth of a second each time.
void DiffMarks::updateMarkup()
{
    m_markup = m_diff.tooLong ? QString() : WordDiff::markup(m_diff.segments, m_inserted, m_deleted);
}
