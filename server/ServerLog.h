#pragma once

#include <QString>

// One line on stderr with a UTC timestamp; safe from any thread.
void serverLog(const QString &message);
