#include "AppDelegate.h"

#include "BuildInfo.h"
#include "Platform.h"
#include "StorageManager.h"
#include "TrayMenu.h"
#include "UpdateService.h"

#include <QApplication>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSysInfo>
#include <QTimer>

Q_LOGGING_CATEGORY(lcHotkey, "tessary.hotkey")

using namespace Qt::StringLiterals;

namespace {
constexpr quint64 hotkeyFlagMask = Keys::Shift | Keys::Control | Keys::Option | Keys::Command;
constexpr quint64 hotkeyFlags = Keys::Control | Keys::Option;
constexpr int permissionPollInterval = 2000; // ms

// What the version check reports about the running program.
QJsonObject buildInfo()
{
    return { { u"name"_s, u"Tessary"_s }, { u"version"_s, BuildInfo::version() },
        { u"qt"_s, QString::fromLatin1(qVersion()) }, { u"os"_s, QSysInfo::prettyProductName() } };
}
} // namespace

AppDelegate::AppDelegate(Platform &platform, StorageManager &storage, QObject *parent)
    : QObject(parent)
    , m_platform(platform)
    , m_storage(storage)
    , m_updateService(std::make_unique<UpdateService>(storage, buildInfo()))
{
}

AppDelegate::~AppDelegate()
{
    if (m_platform.keyboardGrab)
        m_platform.keyboardGrab->stop();
    delete m_statusItem;
}

void AppDelegate::startEventTap()
{
    m_eventTapRunning = m_platform.keyboardGrab
        && m_platform.keyboardGrab->start(
            [this](int keyCode, quint64 flags) { return handleEvent(keyCode, flags); });
    if (!m_eventTapRunning) {
        qCWarning(lcHotkey) << "Ctrl+Alt+H is not available: another program holds it, or this desktop"
                            << "allows no global shortcut. Use the tray menu, or bind `tessary --trigger`"
                            << "to a shortcut in the desktop's settings.";
    }
    if (m_statusItem)
        m_statusItem->setShortcutAvailable(m_eventTapRunning);
}

bool AppDelegate::isHotkey(int keyCode, quint64 flags)
{
    return keyCode == Keys::H && (flags & hotkeyFlagMask) == hotkeyFlags;
}

bool AppDelegate::handleEvent(int keyCode, quint64 flags)
{
    if (!isHotkey(keyCode, flags))
        return false;
    // Capture can keep the event loop busy for a while; the key handler returns first.
    QMetaObject::invokeMethod(this, "triggerHumanize", Qt::QueuedConnection);
    return true;
}

void AppDelegate::pollAccessibilityPermission()
{
    QTimer::singleShot(permissionPollInterval, this, [this] {
        if (m_platform.accessibility && m_platform.accessibility->isTrusted(false))
            startEventTap();
        else
            pollAccessibilityPermission();
    });
}

void AppDelegate::setupMenuBar()
{
    if (!m_statusItem) {
        m_statusItem = new TrayMenu(*m_updateService);
        m_statusItem->setShortcutAvailable(m_eventTapRunning || !m_platform.keyboardGrab);
        // Slots of the rewrite road and the windows, reached by name as the menu
        // actions travel to whoever answers them.
        connect(m_statusItem, &TrayMenu::rewriteRequested, this,
            [this] { QMetaObject::invokeMethod(this, "triggerHumanize", Qt::QueuedConnection); });
        connect(m_statusItem, &TrayMenu::settingsRequested, this,
            [this] { QMetaObject::invokeMethod(this, "showSettings", Qt::QueuedConnection); });
        connect(m_statusItem, &TrayMenu::updateItemChosen, this, &AppDelegate::checkForUpdates);
        connect(m_statusItem, &TrayMenu::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
        connect(m_updateService.get(), &UpdateService::updateStatusChanged, this,
            &AppDelegate::updateMenuForUpdateStatus, Qt::UniqueConnection);
        return;
    }
    m_statusItem->rebuild();
}

void AppDelegate::updateMenuForUpdateStatus()
{
    setupMenuBar();
}

void AppDelegate::checkForUpdates()
{
    if (m_updateService->updateAvailable())
        m_updateService->openDownloadURL();
    else
        m_updateService->checkForUpdates(false);
}
