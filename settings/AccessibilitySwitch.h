#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

class Accessibility;

// The desktop's accessibility switch as Settings shows it: while it is off, Replace can
// only paste; turned on, applications put their text on the bus and Replace writes in
// place. Asked again each time Settings opens, as the user may flip it elsewhere.
class AccessibilitySwitch : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("AccessibilitySwitch belongs to the settings model")

    Q_PROPERTY(bool known READ known NOTIFY changed)
    Q_PROPERTY(bool on READ on NOTIFY changed)
    Q_PROPERTY(bool switchable READ switchable NOTIFY changed)
    Q_PROPERTY(bool turningOn READ turningOn NOTIFY changed)

public:
    explicit AccessibilitySwitch(QObject *parent = nullptr);

    // null where the desktop has no accessibility bus: nothing is shown then.
    void setBackend(Accessibility *accessibility);
    // Asks the bus again; the properties follow its answer.
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void turnOn();

    bool known() const { return m_known; }
    bool on() const { return m_on; }
    bool switchable() const { return m_switchable; }
    bool turningOn() const { return m_turningOn; }

Q_SIGNALS:
    void changed();

private:
    Accessibility *m_accessibility = nullptr;
    bool m_known = false;
    bool m_on = false;
    bool m_switchable = false;
    bool m_turningOn = false;
};
