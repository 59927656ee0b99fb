#include "PopupWindowController.h"

#include "PopupViewModel.h"

#include <QCursor>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_PopupPlugin)

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPopup, "tessary.popup")

PopupWindowController::PopupWindowController(
    const QString &selectedText, Rewriter &rewriter, PopupHost *host, QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_viewModel(new PopupViewModel(selectedText, rewriter, host, this))
{
    prepareEngine(engine);
    QQmlComponent component(&engine, QUrl(u"qrc:/qt/qml/Tessary/Popup/PopupWindow.qml"_s));
    if (!component.isReady()) {
        qCCritical(lcPopup).noquote() << "cannot build the popup:" << component.errorString();
        return;
    }
    QObject *object
        = component.createWithInitialProperties({ { u"viewModel"_s, QVariant::fromValue(m_viewModel) } });
    m_window.reset(qobject_cast<QQuickWindow *>(object));
    if (!m_window) {
        delete object;
        qCCritical(lcPopup).noquote() << "the popup is not a window:" << component.errorString();
        return;
    }
    QQmlEngine::setObjectOwnership(m_window.get(), QQmlEngine::CppOwnership);
}

PopupWindowController::~PopupWindowController() = default;

void PopupWindowController::prepareEngine(QQmlEngine &engine)
{
    const QString modules = u"qrc:/qt/qml"_s;
    if (!engine.importPathList().contains(modules))
        engine.addImportPath(modules);
}

void PopupWindowController::showWindow()
{
    if (!m_window)
        return;
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        const QRect area = screen->availableGeometry();
        m_window->setScreen(screen);
        m_window->setPosition(area.x() + (area.width() - width) / 2, area.y() + (area.height() - height) / 2);
    }
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void PopupWindowController::close()
{
    if (m_window)
        m_window->close();
}
