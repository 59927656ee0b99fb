#pragma once

#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QString>
#include <QtQml/qqmlregistration.h>

// Feeds a growing text into a read-only TextEdit at most once per frame, appending
// only what is new. Re-laying out the whole text for every streamed fragment cannot
// keep up with a fast stream; this keeps the main thread free between frames.
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
    QString text() const { return m_text; }
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
    void watchWindow(QQuickWindow *window);
    void scheduleFlush();
    void flush();

    QPointer<QQuickItem> m_target;
    QPointer<QQuickWindow> m_window;
    QPointer<PopupViewModel> m_viewModel;
    QMetaObject::Connection m_frameConnection;
    QString m_text;
    QString m_shown;
    qreal m_lineSpacing = 0;
    bool m_dirty = false;
};
