#include "AppDelegate.h"

#include "Platform.h"
#include "StorageManager.h"

AppDelegate::AppDelegate(Platform &platform, StorageManager &storage, QObject *parent)
    : QObject(parent)
    , m_platform(platform)
    , m_storage(storage)
{
}
