#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class DesktopShortcut;

// Ctrl+Alt+H where the desktop, not Tessary, runs it: the one sentence on how to get it,
// the button that binds it where Tessary can, and what came of pressing it. Offers
// nothing where Tessary holds the shortcut itself or the desktop runs it already.
class ShortcutSetup : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("ShortcutSetup is created by the application")

    Q_PROPERTY(bool offered READ offered CONSTANT)
    Q_PROPERTY(bool canAdd READ canAdd NOTIFY changed)
    Q_PROPERTY(bool added READ added NOTIFY changed)
    Q_PROPERTY(QString message READ message NOTIFY changed)
    Q_PROPERTY(QString configLine READ configLine CONSTANT)

public:
    // shortcut: null where the key grab or the shortcuts portal holds Ctrl+Alt+H.
    explicit ShortcutSetup(DesktopShortcut *shortcut, QObject *parent = nullptr);

    // Decided once, so the section stays in place after the button did its work.
    bool offered() const { return m_offered; }
    bool canAdd() const;
    bool added() const { return m_added; }
    QString message() const;
    QString configLine() const;

    Q_INVOKABLE void add();

Q_SIGNALS:
    void changed();
    void shortcutAdded();

private:
    DesktopShortcut *m_shortcut;
    bool m_offered;
    bool m_adding = false;
    bool m_added = false;
    QString m_error;
};
