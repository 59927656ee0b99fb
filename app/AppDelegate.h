#pragma once

#include <QObject>

struct Platform;
class StorageManager;

// The application controller: receives rewrite requests from the shortcut, the tray
// menu and D-Bus, and owns the windows.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    AppDelegate(Platform &platform, StorageManager &storage, QObject *parent = nullptr);

private:
    Platform &m_platform;
    StorageManager &m_storage;
};
