#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <functional>

class PopupHost;
class Rewriter;

// The state of one rewrite while its popup is open: the captured text, the chosen
// tone, the result as it streams in, and the user's actions on it.
class PopupViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("A popup's model is made by its window controller")

    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    Q_PROPERTY(QString resultText READ resultText NOTIFY resultTextChanged)
    Q_PROPERTY(QString selectedTone READ selectedTone NOTIFY selectedToneChanged)
    Q_PROPERTY(QString originalText READ originalText CONSTANT)
    Q_PROPERTY(QStringList tones READ tones CONSTANT)
    // What the footer may do in the current state.
    Q_PROPERTY(bool busy READ isBusy NOTIFY stateChanged)
    Q_PROPERTY(bool canRetry READ canRetry NOTIFY actionsChanged)
    Q_PROPERTY(bool canCopy READ canCopy NOTIFY actionsChanged)
    Q_PROPERTY(bool canReplace READ canReplace NOTIFY actionsChanged)

public:
    enum class State { Error, Loading, Streaming, Done };
    Q_ENUM(State)

    // The host may be null: Replace then only closes the window, Copy does nothing.
    PopupViewModel(
        const QString &originalText, Rewriter &rewriter, PopupHost *host, QObject *parent = nullptr);

    static const QStringList &toneNames();

    State state() const { return m_state; }
    QString errorMessage() const { return m_errorMessage; }
    QString resultText() const { return m_resultText; }
    QString selectedTone() const { return m_selectedTone; }
    QString originalText() const { return m_originalText; }
    QStringList tones() const { return toneNames(); }
    bool isBusy() const { return m_state == State::Loading || m_state == State::Streaming; }
    bool canRetry() const;
    bool canCopy() const;
    bool canReplace() const { return canCopy(); }

    Q_INVOKABLE void run();
    Q_INVOKABLE void selectTone(const QString &tone);
    Q_INVOKABLE void copy();
    // Replaces with the result as it is now, after closeWindow has hidden the popup.
    void replace(std::function<void()> closeWindow);
    // The view's Replace: the popup's window closes on closeRequested.
    Q_INVOKABLE void replace();

Q_SIGNALS:
    void stateChanged();
    void resultTextChanged();
    void selectedToneChanged();
    void actionsChanged();
    void closeRequested();

private:
    void setState(State state, const QString &errorMessage = {});
    void appendFragment(const QString &fragment);

    const QString m_originalText;
    Rewriter &m_rewriter;
    PopupHost *m_host;
    State m_state = State::Loading;
    QString m_errorMessage;
    QString m_resultText;
    QString m_selectedTone;
};
