#include "UpdateAlert.h"

#include "UpdateService.h"

#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tessary_UpdatePlugin)

Q_LOGGING_CATEGORY(lcUpdateAlert, "tessary.update", QtInfoMsg)

using namespace Qt::StringLiterals;

UpdateAlert::UpdateAlert(UpdateService &updates, QObject *parent)
    : QObject(parent)
    , m_updates(updates)
{
    connect(&updates, &UpdateService::updateAlertRequested, this, &UpdateAlert::show);
}

// The window goes before the engine it came from.
UpdateAlert::~UpdateAlert()
{
    m_window.reset();
}

void UpdateAlert::download()
{
    m_updates.openDownloadURL();
}

void UpdateAlert::show(const QString &informativeText)
{
    m_message = informativeText;
    Q_EMIT messageChanged();
    if (!m_window) {
        m_engine = std::make_unique<QQmlEngine>();
        m_engine->addImportPath(u"qrc:/qt/qml"_s);
        QQmlComponent component(m_engine.get(), QUrl(u"qrc:/qt/qml/Tessary/Update/UpdateAlertView.qml"_s));
        QObject *object
            = component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(this) } });
        m_window.reset(qobject_cast<QQuickWindow *>(object));
        if (!m_window) {
            qCWarning(lcUpdateAlert) << "cannot create the update window:" << component.errorString();
            delete object;
            return;
        }
    }
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}
