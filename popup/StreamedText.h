#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// Feeds a growing text into a read-only TextEdit at most once per screen frame,
// appending only what is new. Re-laying out the whole text for every streamed fragment
// cannot keep up with a fast stream. The text goes in between frames, not while one
// is being drawn: then the layouts that follow from it (the result's height, the
// scroll area) settle in the next frame, instead of each asking for a frame of its own.
class PopupViewModel;

class StreamedText : public QObject
{
    Q_OBJECT
    QML_ELEMENT

    // The TextEdit that shows the text.
    Q_PROPERTY(QQuickItem *target READ target WRITE setTarget NOTIFY targetChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    // Follows a popup's result directly, without a binding evaluated for every fragment.
    Q_PROPERTY(PopupViewModel *viewModel READ viewModel WRITE setViewModel NOTIFY viewModelChanged)
    // Extra space between lines, in pixels.
    Q_PROPERTY(qreal lineSpacing READ lineSpacing WRITE setLineSpacing NOTIFY lineSpacingChanged)

public:
    explicit StreamedText(QObject *parent = nullptr);

    QQuickItem *target() const { return m_target; }
    void setTarget(QQuickItem *target);
    QString text() const;
    void setText(const QString &text);
    PopupViewModel *viewModel() const { return m_viewModel; }
    void setViewModel(PopupViewModel *viewModel);
    qreal lineSpacing() const { return m_lineSpacing; }
    void setLineSpacing(qreal spacing);

    // What the TextEdit holds now.
    QString shownText() const { return m_shown; }

Q_SIGNALS:
    void targetChanged();
    void textChanged();
    void viewModelChanged();
    void lineSpacingChanged();
    // After the TextEdit has taken a new piece of text.
    void shown();

private:
    void markDirty();
    void scheduleFlush();
    void flush();
    int frameInterval() const;

    QPointer<QQuickItem> m_target;
    QPointer<PopupViewModel> m_viewModel;
    QString m_text; // when no view model is followed
    QString m_shown;
    qreal m_lineSpacing = 0;
    bool m_dirty = false;
    QTimer m_flushTimer;
    QElapsedTimer m_sinceFlush;
};
