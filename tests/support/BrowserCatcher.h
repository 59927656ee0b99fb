#pragma once

#include <QDesktopServices>
#include <QList>
#include <QObject>
#include <QUrl>

// Takes the place of the user's browser while it lives: every web address the code
// asks QDesktopServices to open is recorded here instead.
class BrowserCatcher : public QObject
{
    Q_OBJECT

public:
    BrowserCatcher()
    {
        QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "open");
        QDesktopServices::setUrlHandler(QStringLiteral("http"), this, "open");
    }
    ~BrowserCatcher() override
    {
        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
        QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
    }

    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};
