#pragma once

#include "Platform.h"

#include <QDBusConnection>
#include <QDateTime>
#include <QHash>
#include <QObject>

class QDBusMessage;

// Other applications' focused text through the AT-SPI accessibility bus.
//
// Every call has a short timeout: an application that hangs must never freeze us, it
// just counts as one that does not answer.
class AtspiAccessibility : public QObject, public Accessibility
{
    Q_OBJECT
public:
    explicit AtspiAccessibility(QObject *parent = nullptr);
    ~AtspiAccessibility() override;

    bool isTrusted(bool prompt) override;
    void focusedElement(const RunningApplication &app, std::function<void(FocusResult)> done) override;
    void selectedText(const Element &element, std::function<void(std::optional<QString>)> done) override;
    void setSelectedText(const Element &element, const QString &text, std::function<void(int)> done) override;

private Q_SLOTS:
    void onStateChanged(const QDBusMessage &message);

private:
    struct Selection
    {
        int start = 0;
        int end = 0;
    };

    bool connectBus();
    std::optional<QDBusMessage> call(const Element &element, const QString &interface, const QString &method,
        const QVariantList &arguments = {}, int timeoutMs = 0);
    std::optional<quint32> pidOf(const QString &busName);
    std::optional<quint64> states(const Element &element);
    bool isFocused(const Element &element);
    FocusResult focusedElement(const RunningApplication &app);
    std::optional<QString> selectedText(const Element &element);
    int setSelectedText(const Element &element, const QString &text);
    std::optional<Element> focusedOnBus(const RunningApplication &app);
    std::optional<Element> findFocused(const Element &root, int &budget);
    std::optional<Selection> selection(const Element &element);
    std::optional<QString> text(const Element &element, int start, int end);

    std::optional<QDBusConnection> m_bus;
    QHash<QString, quint32> m_pids;
    // The last element each application reported as focused.
    QHash<QString, QString> m_focusedPaths;
    // What selectedText last read per element, to notice a selection that moved since.
    QHash<QString, QString> m_capturedSelections;
};
