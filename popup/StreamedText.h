#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlParserStatus>
#include <QQuickItem>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// Feeds a growing text into read-only TextEdits at most once per screen frame,
// appending only what is new. Re-laying out the whole text for every streamed fragment
// cannot keep up with a fast stream. The text goes in between frames, not while one
// is being drawn: then the layouts that follow from it (the result's height, the
// scroll area) settle in the next frame, instead of each asking for a frame of its own.
//
// A long text is shown as a column of pages, each a TextEdit of its own: a TextEdit
// rebuilds what it draws for all of its text whenever any of it changes, so one page
// for everything would cost more with every frame of a long stream. A page ends where
// a line of the text wraps or a paragraph ends, so the pages read as one text.
class PopupViewModel;
class QTextDocument;

class StreamedText : public QObject, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    QML_ELEMENT

    // The column the pages go in, and what makes one page: a TextEdit.
    Q_PROPERTY(QQuickItem *container READ container WRITE setContainer NOTIFY containerChanged)
    Q_PROPERTY(QQmlComponent *page READ page WRITE setPage NOTIFY pageChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    // Follows a popup's result directly, without a binding evaluated for every fragment.
    Q_PROPERTY(PopupViewModel *viewModel READ viewModel WRITE setViewModel NOTIFY viewModelChanged)
    // Extra space between lines, in pixels.
    Q_PROPERTY(qreal lineSpacing READ lineSpacing WRITE setLineSpacing NOTIFY lineSpacingChanged)
    // A page longer than this many characters is cut at its last wrapped line within it.
    Q_PROPERTY(int pageLength READ pageLength WRITE setPageLength NOTIFY pageLengthChanged)

public:
    explicit StreamedText(QObject *parent = nullptr);

    QQuickItem *container() const { return m_container; }
    void setContainer(QQuickItem *container);
    QQmlComponent *page() const { return m_page; }
    void setPage(QQmlComponent *page);
    QString text() const;
    void setText(const QString &text);
    PopupViewModel *viewModel() const { return m_viewModel; }
    void setViewModel(PopupViewModel *viewModel);
    qreal lineSpacing() const { return m_lineSpacing; }
    void setLineSpacing(qreal spacing);
    int pageLength() const { return m_pageLength; }
    void setPageLength(int length);

    // What the pages hold now.
    QString shownText() const { return m_shown; }
    // The pages in reading order.
    QList<QQuickItem *> pages() const;

    void classBegin() override { }
    void componentComplete() override;

Q_SIGNALS:
    void containerChanged();
    void pageChanged();
    void textChanged();
    void viewModelChanged();
    void lineSpacingChanged();
    void pageLengthChanged();
    // After the pages have taken a new piece of text.
    void shown();

private:
    void restart();
    void markDirty();
    void scheduleFlush();
    void flush();
    int frameInterval() const;
    QQuickItem *addPage();
    void append(QStringView text);
    void cutLastPage();

    QPointer<QQuickItem> m_container;
    QPointer<QQmlComponent> m_page;
    QPointer<PopupViewModel> m_viewModel;
    QList<QPointer<QQuickItem>> m_pages;
    QString m_text; // when no view model is followed
    QString m_shown;
    qreal m_lineSpacing = 0;
    int m_pageLength = 10'000;
    bool m_complete = false;
    bool m_dirty = false;
    QTimer m_flushTimer;
    QElapsedTimer m_sinceFlush;
};
