#pragma once

#include "Platform.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QStringList>

class QDBusMessage;

// Other applications' focused text through the AT-SPI accessibility bus.
//
// Every call is asynchronous and has a short timeout: an application that hangs never
// freezes us, it just counts as one that does not answer. Where the focus is comes from
// the focus events applications send, checked against the application in front when it
// is needed; a search of the application's tree is the fallback.
class AtspiAccessibility : public QObject, public Accessibility
{
    Q_OBJECT
public:
    explicit AtspiAccessibility(QObject *parent = nullptr);
    ~AtspiAccessibility() override;

    void status(std::function<void(AccessibilityStatus)> done) override;
    void turnOn(std::function<void(bool on)> done) override;
    void focusedElement(const RunningApplication &app, std::function<void(FocusResult)> done) override;
    void selectedText(const Element &element, std::function<void(std::optional<QString>)> done) override;
    void setSelectedText(const Element &element, const QString &text, std::function<void(int)> done) override;
    void selectedRange(const Element &element, std::function<void(std::optional<TextRange>)> done) override;
    void textIn(
        const Element &element, TextRange range, std::function<void(std::optional<QString>)> done) override;
    void replaceRange(
        const Element &element, TextRange range, const QString &text, std::function<void(int)> done) override;

    // The process whose window is active, Tessary itself left out; none when the window
    // in front belongs to an application off the bus.
    void lastFocusedApplication(std::function<void(std::optional<quint32> pid)> done);

private Q_SLOTS:
    void onStateChanged(const QDBusMessage &message);

private:
    struct Selection
    {
        int start = 0;
        int end = 0;
    };
    using Reply = std::function<void(const std::optional<QDBusMessage> &reply)>;
    struct Walk;

    void lookUpBus();
    // Runs next once the bus is known to be there or not; at once when it is attached.
    void whenBusKnown(std::function<void()> next);
    void attach(const QString &address);
    static bool isEnabled(const QDBusMessage &reply);
    void askFocusedApplication(std::function<void(std::optional<quint32> pid)> done);
    void call(const Element &element, const QString &interface, const QString &method,
        const QVariantList &arguments, Reply answer);
    void pidOf(const QString &busName, std::function<void(std::optional<quint32>)> answer);
    void applicationWithActiveWindow(QList<Element> apps, std::function<void(std::optional<quint32>)> done);
    void anyActive(QList<Element> windows, std::function<void(bool active)> done);
    void states(const Element &element, std::function<void(std::optional<quint64>)> answer);
    void checkRemembered(
        const RunningApplication &app, QStringList services, std::function<void(FocusResult)> done);
    void searchTree(const RunningApplication &app, std::function<void(FocusResult)> done);
    void walk(std::shared_ptr<Walk> walk);
    void selection(const Element &element, std::function<void(std::optional<Selection>)> answer);
    void text(const Element &element, int start, int end, std::function<void(std::optional<QString>)> answer);
    void insertAt(const Element &element, int start, const QString &text, std::function<void(int)> done);

    std::optional<QDBusConnection> m_bus;
    bool m_lookingUp = false;
    QList<std::function<void()>> m_waitingForBus;
    QHash<QString, quint32> m_pids;
    // The element each application last reported as focused; the most recent first.
    QHash<QString, QString> m_focusedPaths;
    QStringList m_focusOrder;
};
