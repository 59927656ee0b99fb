#include "AppWindows.h"

#include "HistoryListModel.h"
#include "OnboardingModel.h"
#include "OwnWindow.h"
#include "Presence.h"
#include "QmlEngine.h"
#include "SettingsModel.h"
#include "StorageManager.h"
#include "UpdateService.h"

#include <QEvent>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <functional>

Q_IMPORT_QML_PLUGIN(Tessary_SettingsPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_OnboardingPlugin)
Q_IMPORT_QML_PLUGIN(Tessary_HistoryPlugin)

Q_LOGGING_CATEGORY(lcWindows, "tessary.windows", QtInfoMsg)

using namespace Qt::StringLiterals;

namespace {
constexpr int windowClosedDelay = 100; // ms
constexpr int onboardingCloseDelay = 300;

// Tells the controller that one of its windows is about to close, however it closes
// (title bar, Done, Return).
class CloseWatcher : public QObject
{
public:
    CloseWatcher(QWindow *window, std::function<void(QWindow *)> willClose)
        : QObject(window)
        , m_willClose(std::move(willClose))
    {
        window->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Close)
            m_willClose(qobject_cast<QWindow *>(watched));
        return false;
    }

private:
    std::function<void(QWindow *)> m_willClose;
};
} // namespace

AppWindows::AppWindows(StorageManager &storage, UpdateService &updateService, Workspace *workspace,
    QmlEngine &qml, DesktopShortcut *desktopShortcut, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_updateService(updateService)
    , m_workspace(workspace)
    , m_qml(qml)
    , m_desktopShortcut(desktopShortcut)
{
}

AppWindows::~AppWindows() = default;

Presence &AppWindows::presence()
{
    if (!m_presence)
        m_presence = std::make_shared<Presence>();
    return *m_presence;
}

QQuickWindow *AppWindows::createWindow(const QString &url, QObject *model)
{
    QQmlComponent component(&m_qml.get(), QUrl(url));
    QObject *object = component.createWithInitialProperties({ { u"model"_s, QVariant::fromValue(model) } });
    auto *window = qobject_cast<QQuickWindow *>(object);
    if (!window) {
        qCWarning(lcWindows) << "cannot create" << url << component.errorString();
        delete object;
        return nullptr;
    }
    OwnWindow::centre(window, window->screen());
    presence().track(window);
    new CloseWatcher(window, [this](QWindow *closing) { windowWillClose(closing); });
    return window;
}

void AppWindows::showWindow(QQuickWindow *window)
{
    OwnWindow::bringForward(window, m_workspace);
}

void AppWindows::showSettings()
{
    presence().setRegular();
    if (!m_settingsWindow) {
        m_settingsModel = std::make_shared<SettingsModel>(m_storage, m_desktopShortcut);
        connect(m_settingsModel->shortcutSetup(), &ShortcutSetup::shortcutAdded, this,
            &AppWindows::desktopShortcutAdded);
        connect(m_settingsModel.get(), &SettingsModel::historyRequested, this, &AppWindows::showHistory,
            Qt::QueuedConnection);
        connect(m_settingsModel.get(), &SettingsModel::updateCheckRequested, this,
            [this] { m_updateService.checkForUpdates(false); });
        const auto publish = [this] {
            std::optional<SettingsModel::Release> release;
            if (const auto &info = m_updateService.updateInfo())
                release
                    = SettingsModel::Release { info->currentVersion, info->releaseNotes, info->downloadUrl };
            m_settingsModel->setUpdateState(
                m_updateService.isCheckingForUpdates(), m_updateService.updateAvailable(), release);
        };
        publish();
        connect(
            &m_updateService, &UpdateService::isCheckingForUpdatesChanged, m_settingsModel.get(), publish);
        connect(&m_updateService, &UpdateService::updateAvailableChanged, m_settingsModel.get(), publish);
        connect(&m_updateService, &UpdateService::updateInfoChanged, m_settingsModel.get(), publish);
        m_settingsWindow.reset(
            createWindow(u"qrc:/qt/qml/Tessary/Settings/SettingsView.qml"_s, m_settingsModel.get()));
        if (!m_settingsWindow)
            return;
        m_settingsModel->accessibility()->setBackend(m_accessibility);
    } else {
        // The user may have flipped the switch in the desktop's settings meanwhile.
        m_settingsModel->accessibility()->refresh();
    }
    showWindow(m_settingsWindow.get());
}

void AppWindows::showOnboarding()
{
    presence().setRegular();
    if (!m_onboardingWindow) {
        m_onboardingModel = std::make_shared<OnboardingModel>(
            m_storage, OnboardingModel::defaultCompletionDelay, m_desktopShortcut);
        m_onboardingModel->setTrayShown(m_trayShown);
        connect(m_onboardingModel->shortcutSetup(), &ShortcutSetup::shortcutAdded, this,
            &AppWindows::desktopShortcutAdded);
        connect(m_onboardingModel.get(), &OnboardingModel::completed, this,
            [this] { QTimer::singleShot(onboardingCloseDelay, this, &AppWindows::onboardingCompleted); });
        m_onboardingWindow.reset(
            createWindow(u"qrc:/qt/qml/Tessary/Onboarding/OnboardingView.qml"_s, m_onboardingModel.get()));
        if (!m_onboardingWindow)
            return;
    }
    showWindow(m_onboardingWindow.get());
}

void AppWindows::showHistory()
{
    if (!m_history)
        return;
    presence().setRegular();
    if (!m_historyWindow) {
        m_historyModel = std::make_shared<HistoryListModel>(*m_history);
        connect(
            m_historyModel.get(), &HistoryListModel::rewriteRequested, this, &AppWindows::rewriteRequested);
        m_historyWindow.reset(
            createWindow(u"qrc:/qt/qml/Tessary/History/HistoryView.qml"_s, m_historyModel.get()));
        if (!m_historyWindow)
            return;
    } else {
        m_historyModel->refresh();
    }
    showWindow(m_historyWindow.get());
}

void AppWindows::onboardingCompleted()
{
    // Dropped before it closes, so its closing does not schedule a second hide that
    // would take away the settings window opened below. The model goes last: the
    // window's bindings read it until the window is gone.
    const std::shared_ptr<OnboardingModel> model = std::move(m_onboardingModel);
    const std::shared_ptr<QQuickWindow> window = std::move(m_onboardingWindow);
    if (window)
        window->close();
    presence().setAccessory();
    presence().hideApplication();
    if (!m_storage.serviceUsable()) {
        // Without a usable service nothing can be rewritten yet: take the user to where it is chosen.
        showSettings();
        if (m_settingsWindow)
            QMetaObject::invokeMethod(m_settingsWindow.get(), "focusApiKey");
    }
}

void AppWindows::windowWillClose(QWindow *window)
{
    if (!window)
        return;
    const auto goAccessory = [this] {
        QTimer::singleShot(windowClosedDelay, this, [this] {
            presence().setAccessory();
            presence().hideApplication();
        });
    };
    if (window == m_settingsWindow.get())
        goAccessory();
    if (window == m_onboardingWindow.get() || window == m_historyWindow.get())
        goAccessory();
}
