#pragma once

#include <QList>
#include <QObject>
#include <QPointer>

class QWindow;

// Whether Tessary shows up as a running application or lives in the tray only.
// On X11 the task bar lists mapped normal windows, so "regular" lets our settings and
// onboarding windows appear there, and "accessory" goes with none of them showing.
class Presence : public QObject
{
    Q_OBJECT

public:
    enum class Policy { Regular, Accessory };
    Q_ENUM(Policy)

    using QObject::QObject;

    Policy policy() const { return m_policy; }
    void setRegular() { setPolicy(Policy::Regular); }
    void setAccessory() { setPolicy(Policy::Accessory); }

    // A window of ours that hideApplication() hides. The popup is not one: it belongs
    // to the rewrite in progress, not to the application's presence.
    void track(QWindow *window);
    // Hides every tracked window, which hands the focus back to the desktop.
    void hideApplication();

Q_SIGNALS:
    void policyChanged(Presence::Policy policy);

private:
    void setPolicy(Policy policy);

    Policy m_policy = Policy::Accessory;
    QList<QPointer<QWindow>> m_windows;
};
