#include "PopupWindowFactory.h"

#include "PopupViewModel.h"
#include "QmlEngine.h"

#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tessary_UiPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_PopupPlugin)

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPopup, "tessary.popup")

namespace {

QQmlEngine &preparedEngine(QQmlEngine &engine)
{
    QmlEngine::prepare(engine);
    return engine;
}

} // namespace

PopupWindowFactory::PopupWindowFactory(QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_component(&preparedEngine(engine), QUrl(u"qrc:/qt/qml/Tessary/Popup/PopupWindow.qml"_s))
{
}

PopupWindowFactory::~PopupWindowFactory() = default;

std::unique_ptr<QQuickWindow> PopupWindowFactory::create(PopupViewModel *model)
{
    if (!m_prepared)
        return build(model);
    std::unique_ptr<QQuickWindow> window = std::move(m_prepared);
    // Every binding that read the stand-in reads the real model from here on.
    window->setProperty("viewModel", QVariant::fromValue(model));
    m_standIn.reset();
    return window;
}

void PopupWindowFactory::prepareNext(QQuickWindow *shownWindow)
{
    disconnect(m_firstFrame);
    if (m_prepared)
        return;
    // Not before the popup that was just opened is on screen: that is what the user
    // waits for.
    if (shownWindow && shownWindow->isVisible()) {
        m_firstFrame = connect(shownWindow, &QQuickWindow::frameSwapped, this, [this] {
            disconnect(m_firstFrame);
            QTimer::singleShot(0, this, &PopupWindowFactory::buildPrepared);
        });
        return;
    }
    QTimer::singleShot(0, this, &PopupWindowFactory::buildPrepared);
}

void PopupWindowFactory::buildPrepared()
{
    if (m_prepared)
        return;
    // A window built ahead is never shown before it has its real model.
    auto standIn = std::make_unique<PopupViewModel>(nullptr);
    m_prepared = build(standIn.get());
    if (m_prepared)
        m_standIn = std::move(standIn);
}

std::unique_ptr<QQuickWindow> PopupWindowFactory::build(PopupViewModel *model)
{
    if (!m_component.isReady()) {
        qCCritical(lcPopup).noquote() << "cannot build the popup:" << m_component.errorString();
        return nullptr;
    }
    QObject *object
        = m_component.createWithInitialProperties({ { u"viewModel"_s, QVariant::fromValue(model) } });
    std::unique_ptr<QQuickWindow> window(qobject_cast<QQuickWindow *>(object));
    if (!window) {
        delete object;
        qCCritical(lcPopup).noquote() << "the popup is not a window:" << m_component.errorString();
        return nullptr;
    }
    QQmlEngine::setObjectOwnership(window.get(), QQmlEngine::CppOwnership);
    return window;
}
