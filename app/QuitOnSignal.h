#pragma once

#include <QObject>

// Turns SIGTERM and SIGINT (the end of the session, Ctrl+C in a terminal) into the same
// quit as the menu's, so that settings not yet on disk are written before the end.
class QuitOnSignal : public QObject
{
    Q_OBJECT

public:
    explicit QuitOnSignal(QObject *parent = nullptr);
};
