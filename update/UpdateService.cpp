#include "UpdateService.h"

#include "Log.h"
#include "StorageManager.h"

#include <QDesktopServices>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

Q_LOGGING_CATEGORY(lcUpdate, "tessary.update", QtInfoMsg)

using namespace Qt::StringLiterals;

namespace {
constexpr qint64 checkInterval = 24 * 60 * 60; // seconds
constexpr int transferTimeout = 60000; // ms, as long as a browser would wait
} // namespace

UpdateService::UpdateService(StorageManager &storage, const QJsonObject &buildInfo, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_buildInfo(buildInfo)
{
}

QString UpdateService::availableVersion() const
{
    return m_updateInfo ? m_updateInfo->currentVersion : QString();
}

QString UpdateService::releaseNotes() const
{
    return m_updateInfo ? m_updateInfo->releaseNotes : QString();
}

QString UpdateService::downloadUrl() const
{
    return m_updateInfo ? m_updateInfo->downloadUrl : QString();
}

QString UpdateService::runningVersion() const
{
    const QJsonValue version = m_buildInfo.value(u"version"_s);
    return version.isString() ? version.toString() : u"1.0.0"_s;
}

bool UpdateService::shouldCheckForUpdates(const QDateTime &now) const
{
    if (!m_storage.updateCheckEnabled())
        return false;
    const QDateTime last = m_storage.lastVersionCheck();
    if (!last.isValid())
        return true;
    // A last check in the future (clock set back) is simply not due yet.
    return last.secsTo(now) > checkInterval;
}

void UpdateService::checkForUpdates(bool silent)
{
    // The setting is about the automatic check; one the user asks for always runs.
    if (silent && !m_storage.updateCheckEnabled())
        return;
    // A running check is no reason to refuse: two requests make two checks.
    setChecking(true);
    performVersionCheck(silent);
}

void UpdateService::performVersionCheck(bool silent)
{
    const QUrl url(m_storage.apiBase() + u"/version"_s, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative()) {
        if (!silent)
            Q_EMIT checkFailed(u"the service address is not a valid URL"_s);
        finishCheck();
        return;
    }

    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    QNetworkRequest request(url);
    request.setTransferTimeout(transferTimeout);
    QNetworkReply *reply = m_network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, silent] {
        reply->deleteLater();
        versionReplyReceived(reply, silent);
    });
}

void UpdateService::versionReplyReceived(QNetworkReply *reply, bool silent)
{
    // Only the body counts: an error status whose body is a valid reply is a reply.
    const bool gotResponse = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
    if (!gotResponse) {
        Log::write({ u"Version check error: ", Log::Public(reply->errorString()) });
        if (!silent)
            Q_EMIT checkFailed(reply->errorString());
        finishCheck();
        return;
    }

    QString why;
    const std::optional<VersionResponse> response = VersionResponse::decode(reply->readAll(), &why);
    if (!response) {
        Log::write({ u"Version check error: ", Log::Public(why) });
        if (!silent)
            Q_EMIT checkFailed(why);
        finishCheck();
        return;
    }
    if (!response->success || !response->data) {
        if (!silent)
            Q_EMIT checkFailed(u"the service did not name a release"_s);
        finishCheck();
        return;
    }

    const VersionData &remote = *response->data;
    const QString current = getCurrentVersion();
    Log::write({ u"🔍 Version check - Current: ", Log::Public(current), u", Remote: ",
        Log::Public(remote.currentVersion) });

    if (isNewerVersion(remote.currentVersion, current)) {
        Log::write(u"✅ Update available!");
        publish(true, remote);
        if (!silent)
            showNativeUpdateAlert();
    } else {
        Log::write(u"✅ App is up to date");
        publish(false, std::nullopt);
        if (!silent)
            Q_EMIT upToDate(current);
    }
    finishCheck();
}

void UpdateService::publish(bool available, const std::optional<VersionData> &info)
{
    const bool availableChanged = available != m_updateAvailable;
    m_updateAvailable = available;
    m_updateInfo = info;
    if (availableChanged)
        Q_EMIT updateAvailableChanged();
    Q_EMIT updateInfoChanged();
    Q_EMIT updateStatusChanged();
}

void UpdateService::finishCheck()
{
    setChecking(false);
    m_storage.setLastVersionCheck(QDateTime::currentDateTime());
}

void UpdateService::setChecking(bool checking)
{
    if (checking == m_checking)
        return;
    m_checking = checking;
    Q_EMIT isCheckingForUpdatesChanged();
}

QString UpdateService::getCurrentVersion() const
{
    const QString version = runningVersion();
    Log::write({ u"📱 Bundle version from Info.plist: ", Log::Public(version) });
    Log::write({ u"📱 Full bundle info: ",
        Log::Public(QString::fromUtf8(QJsonDocument(m_buildInfo).toJson(QJsonDocument::Compact))) });
    return version;
}

void UpdateService::showNativeUpdateAlert()
{
    if (!m_updateInfo)
        return;
    // The alert is a window of the view layer; the check does not wait for the choice.
    Q_EMIT updateAlertRequested(u"Version "_s + m_updateInfo->currentVersion + u" is now available.\n\n"_s
        + m_updateInfo->releaseNotes);
}

void UpdateService::openDownloadURL()
{
    if (!m_updateInfo)
        return;
    const QUrl url(m_updateInfo->downloadUrl, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative())
        return;
    QDesktopServices::openUrl(url);
}
