#include "AppDelegate.h"

#include "AccessibilityHelper.h"
#include "BuildInfo.h"
#include "HumanizeService.h"
#include "Log.h"
#include "Platform.h"
#include "PopupWindowController.h"
#include "PopupWindowFactory.h"
#include "StorageManager.h"
#include "TrayMenu.h"
#include "UpdateService.h"

#include <QApplication>
#include <QClipboard>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSysInfo>
#include <QTextBoundaryFinder>
#include <QTimer>

Q_LOGGING_CATEGORY(lcHotkey, "tessary.hotkey", QtInfoMsg)

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
    QMetaObject::invokeMethod(this, &AppDelegate::triggerHumanize, Qt::QueuedConnection);
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
        m_statusItem->setShortcutAvailable(m_eventTapRunning);
        // Queued: the menu closes before capture looks at the window in front.
        connect(m_statusItem, &TrayMenu::rewriteRequested, this, &AppDelegate::triggerHumanize,
            Qt::QueuedConnection);
        connect(m_statusItem, &TrayMenu::settingsRequested, this, &AppDelegate::showSettings,
            Qt::QueuedConnection);
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

// The rewrite road

namespace {
QString nameOrUnknown(const std::optional<RunningApplication> &app)
{
    return app && !app->name.isEmpty() ? app->name : u"Unknown"_s;
}

// The first count user-perceived characters, so a log line never splits an emoji.
QString firstCharacters(const QString &text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count && end != -1; ++i) {
        end = finder.toNextBoundary();
        if (end == -1)
            return text;
    }
    return text.first(end);
}
} // namespace

AccessibilityHelper &AppDelegate::accessibilityHelper()
{
    if (!m_accessibilityHelper)
        m_accessibilityHelper = std::make_unique<AccessibilityHelper>(m_platform);
    return *m_accessibilityHelper;
}

Rewriter &AppDelegate::rewriter()
{
    if (!m_humanizeService)
        m_humanizeService = std::make_unique<HumanizeService>(m_storage);
    return *m_humanizeService;
}

void AppDelegate::triggerHumanize()
{
    // Nothing captured is no error: the popup then says that no text was selected.
    accessibilityHelper().captureSelectedText(
        [this](const Capture &capture) { showPopup(capture.text.value_or(QString())); });
}

void AppDelegate::showPopup(const QString &text)
{
    m_previousApplication.reset();
    if (m_platform.workspace) {
        m_platform.workspace->frontmostApplication([this](std::optional<RunningApplication> app) {
            m_previousApplication = app;
            Log::write(u"🎯"_s, u"AppDelegate"_s, u"Stored previous app: "_s + nameOrUnknown(app));
        });
    }

    if (m_popupWindowController)
        m_popupWindowController->close();
    // The previous popup is destroyed once the new one is on its way, not in its path.
    m_previousPopup = std::move(m_popupWindowController);
    QTimer::singleShot(0, this, [this] { m_previousPopup.reset(); });
    m_popupWindowController = std::make_unique<PopupWindowController>(text, rewriter(), this, popupWindows());
    m_popupWindowController->showWindow();
    // A tray program is not the active application: ask for the focus explicitly, so
    // the popup takes the keyboard (Escape, Ctrl+Enter) at once.
    if (m_platform.workspace && m_popupWindowController->window())
        m_platform.workspace->activateSelf(m_popupWindowController->window());
    popupWindows().prepareNext(m_popupWindowController->window());
}

PopupWindowFactory &AppDelegate::popupWindows()
{
    if (!m_popupWindows) {
        m_popupEngine = std::make_unique<QQmlEngine>();
        m_popupWindows = std::make_unique<PopupWindowFactory>(*m_popupEngine);
    }
    return *m_popupWindows;
}

void AppDelegate::humanizeSelectedText(const QString &text)
{
    Log::write(u"🔧"_s, u"Service"_s, u"humanizeSelectedText called"_s);
    if (text.isEmpty()) {
        Log::write(u"❌"_s, u"Service"_s, u"No text in pasteboard"_s);
        return;
    }
    Log::write(u"🔧"_s, u"Service"_s, u"Got text from service: "_s + firstCharacters(text, 50) + u"..."_s);
    QTimer::singleShot(0, this, [this, text] { showPopup(text); });
}

void AppDelegate::returnToPreviousApp(std::function<void(bool returned)> done)
{
    if (!m_previousApplication) {
        Log::write(u"❌"_s, u"AppDelegate"_s, u"No previous app stored"_s);
        done(false);
        return;
    }
    const QString name = nameOrUnknown(m_previousApplication);
    Log::write(u"🎯"_s, u"AppDelegate"_s, u"Returning to: "_s + name);
    if (!m_platform.workspace) {
        done(false);
        return;
    }
    m_platform.workspace->activate(*m_previousApplication, [name, done = std::move(done)](bool active) {
        if (!active)
            Log::write(u"❌"_s, u"AppDelegate"_s, u"Could not bring back: "_s + name);
        done(active);
    });
}

void AppDelegate::replaceSelectedText(const QString &text, std::function<void(bool replaced)> done)
{
    // Focus may have moved on since the previous window came back; the text is for that
    // window only.
    CaptureTarget target;
    target.application = m_previousApplication;
    accessibilityHelper().replaceSelectedText(text, target, std::move(done));
}

void AppDelegate::copyToClipboard(const QString &text)
{
    // The user's own copy: plain text that clipboard managers may keep.
    QGuiApplication::clipboard()->setText(text);
}
