#pragma once

#include <QFile>
#include <QStringList>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

// Collects what the code under test writes to standard output (the program's event
// log), so a test can check the exact lines. Restores stdout when destroyed.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        m_file.open();
        std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() { restore(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    QStringList lines()
    {
        std::fflush(stdout);
        QFile file(m_file.fileName());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

private:
    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
        m_saved = -1;
    }

    QTemporaryFile m_file;
    int m_saved = -1;
};
