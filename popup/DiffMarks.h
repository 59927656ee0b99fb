#pragma once

#include "PopupViewModel.h"
#include "WordDiff.h"

#include <QColor>
#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// The marks of what a rewrite changed, for a view to show. While the rewrite streams,
// the comparison runs on a pool thread, at most once per frame and one at a time; the
// newest texts are compared when the one before is done.
class DiffMarks : public QObject
{
    Q_OBJECT
    QML_ELEMENT

    Q_PROPERTY(QString original READ original WRITE setOriginal NOTIFY inputChanged)
    Q_PROPERTY(QString result READ result WRITE setResult NOTIFY inputChanged)
    // Or follow a popup's result: read when a comparison starts, without a binding
    // evaluated (and a copy made) for every fragment.
    Q_PROPERTY(PopupViewModel *viewModel READ viewModel WRITE setViewModel NOTIFY inputChanged)
    // The rewrite is still arriving.
    Q_PROPERTY(bool partial READ isPartial WRITE setPartial NOTIFY inputChanged)
    // Off: nothing is compared (the marks are not shown).
    Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY inputChanged)
    Q_PROPERTY(QColor insertedColor READ insertedColor WRITE setInsertedColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor deletedColor READ deletedColor WRITE setDeletedColor NOTIFY colorsChanged)
    Q_PROPERTY(QString markup READ markup NOTIFY marksChanged)
    Q_PROPERTY(QString summary READ summary NOTIFY marksChanged)
    Q_PROPERTY(int changedWords READ changedWords NOTIFY marksChanged)
    // Too long to compare: no marks, and no markup; the view shows the text plain.
    Q_PROPERTY(bool tooLong READ isTooLong NOTIFY marksChanged)
    // The marks are those of the texts as they are now.
    Q_PROPERTY(bool current READ isCurrent NOTIFY marksChanged)

public:
    explicit DiffMarks(QObject *parent = nullptr);
    ~DiffMarks() override;

    QString original() const { return m_original; }
    void setOriginal(const QString &text);
    QString result() const;
    void setResult(const QString &text);
    PopupViewModel *viewModel() const { return m_viewModel; }
    void setViewModel(PopupViewModel *viewModel);
    bool isPartial() const { return m_partial; }
    void setPartial(bool partial);
    bool isActive() const { return m_active; }
    void setActive(bool active);
    QColor insertedColor() const { return m_inserted; }
    void setInsertedColor(const QColor &color);
    QColor deletedColor() const { return m_deleted; }
    void setDeletedColor(const QColor &color);

    QString markup() const { return m_markup; }
    QString summary() const;
    int changedWords() const { return m_diff.changedWords; }
    bool isTooLong() const { return m_diff.tooLong; }
    bool isCurrent() const { return !m_dirty && !m_watcher.isRunning(); }

Q_SIGNALS:
    void inputChanged();
    void colorsChanged();
    void marksChanged();

private:
    void changed();
    void start();
    void finished();
    void updateMarkup();

    QString m_original;
    QString m_result;
    QPointer<PopupViewModel> m_viewModel;
    bool m_partial = false;
    bool m_active = true;
    QColor m_inserted;
    QColor m_deleted;
    WordDiff::Result m_diff;
    QString m_markup;
    bool m_dirty = false;
    // The last comparison's result length, and whether it was of a rewrite still arriving.
    qsizetype m_comparedSize = -1;
    bool m_comparedPartial = false;
    QTimer m_frame;
    QFutureWatcher<WordDiff::Result> m_watcher;
};
